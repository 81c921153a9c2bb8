// The exported event subscriptions: devices found, lost and changed, commands and simple messages
// received, as the application's callbacks see them.

#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "OxaApiTest.h"

namespace oxa_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

constexpr const char *kCallbacksSource = "src/AgentProxyCallbacks.cc";

// What an application callback saw of the object it was lent, read during the call.
struct Seen {
  std::string kind;
  std::string address;
  int type;
  int id;
  Bytes data;
  void *userData;
  bool operator==(const Seen &other) const {
    return kind == other.kind && address == other.address && type == other.type && id == other.id &&
           data == other.data && userData == other.userData;
  }
};

std::ostream &operator<<(std::ostream &out, const Seen &seen) {
  out << "{" << seen.kind << ", " << seen.address << ", type " << seen.type << ", id " << seen.id
      << ", data";
  for (unsigned char byte : seen.data) {
    out << " " << static_cast<int>(byte);
  }
  return out << "}";
}

std::vector<Seen> seenEvents;

void seeDevice(const std::string &kind, oxa_device_h device, void *userData) {
  char *address = nullptr;
  char *name = nullptr;
  oxa_device_type_e type = OXA_DEVICE_TYPE_1;
  EXPECT_EQ(oxa_device_get_address(device, &address), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_device_get_name(device, &name), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_device_get_type(device, &type), OXA_ERROR_NONE);
  seenEvents.push_back(
      {kind + ":" + (name ? name : ""), address ? address : "", type, 0, {}, userData});
  std::free(address);
  std::free(name);
}

void deviceFound(oxa_device_h device, void *userData) {
  seeDevice("found", device, userData);
}
void deviceLost(oxa_device_h device, void *userData) {
  seeDevice("lost", device, userData);
}
void contextChanged(oxa_device_h device, void *userData) {
  seeDevice("changed", device, userData);
}

void commandReceived(oxa_command_h command, void *userData) {
  int id = -1;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  unsigned char *payload = nullptr;
  int length = -1;
  char *address = nullptr;
  EXPECT_EQ(oxa_command_get_id(command, &id), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_command_get_type(command, &type), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_command_get_payload(command, &payload, &length), OXA_ERROR_NONE);
  const int addressResult = oxa_command_get_address(command, &address);
  seenEvents.push_back(
      {"command",
       addressResult == OXA_ERROR_NONE ? address : "error " + std::to_string(addressResult), type,
       id, Bytes(payload, payload + length), userData});
  std::free(payload);
  std::free(address);
}

void messageReceived(const char *address, const unsigned char *data, int length, void *userData) {
  seenEvents.push_back({"message", address, 0, 0, Bytes(data, data + length), userData});
}

class OxaSubscriptionTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    seenEvents.clear();
  }

  // Subscribes with `subscribe`, checks the registration request for `methodId` with the
  // delegate `delegateId`, and gives the delegate's sequence number.
  int subscribed(int result, int methodId, int handlerId, int delegateId) {
    EXPECT_EQ(result, OXA_ERROR_NONE);
    const std::vector<fake::SentParcel> parcels = sent();
    if (parcels.size() != 1) {
      ADD_FAILURE() << parcels.size() << " requests instead of one";
      return -1;
    }
    const int seq = delegateSeq(parcels[0]);
    EXPECT_THAT(parcels, ElementsAre(request(concat({fake::Int32(methodId), fake::Int32(handlerId)},
                                                    delegate(delegateId, seq)))));
    mark();
    return seq;
  }

  // A command from `address` carrying a simple message with `payload` (header included).
  static fake::Values messageCommand(const std::string &address, const Bytes &payload) {
    return commandRecord(address, 1, 3, OXA_COMMAND_TYPE_3, payload, 900);
  }

  int userData = 0;
};

// ---- Argument checks and unsubscription --------------------------------------------------------

TEST_F(OxaSubscriptionTest, EverySetterAndUnsetterRefusesNullService) {
  for (const auto &[name, call] : std::vector<std::pair<std::string, int (*)()>>{
           {"oxa_set_device_found_cb",
            [] { return oxa_set_device_found_cb(nullptr, deviceFound, nullptr); }},
           {"oxa_unset_device_found_cb", [] { return oxa_unset_device_found_cb(nullptr); }},
           {"oxa_set_device_lost_cb",
            [] { return oxa_set_device_lost_cb(nullptr, deviceLost, nullptr); }},
           {"oxa_unset_device_lost_cb", [] { return oxa_unset_device_lost_cb(nullptr); }},
           {"oxa_set_context_changed_cb",
            [] { return oxa_set_context_changed_cb(nullptr, contextChanged, nullptr); }},
           {"oxa_unset_context_changed_cb", [] { return oxa_unset_context_changed_cb(nullptr); }},
           {"oxa_set_command_received_cb",
            [] { return oxa_set_command_received_cb(nullptr, commandReceived, nullptr); }},
           {"oxa_unset_command_received_cb", [] { return oxa_unset_command_received_cb(nullptr); }},
           {"oxa_set_simple_message_received_cb",
            [] { return oxa_set_simple_message_received_cb(nullptr, messageReceived, nullptr); }},
           {"oxa_unset_simple_message_received_cb",
            [] { return oxa_unset_simple_message_received_cb(nullptr); }},
       }) {
    SCOPED_TRACE(name);
    mark();
    expectRefused(call(), name, "service is NULL");
  }
}

TEST_F(OxaSubscriptionTest, UnsettersSendTheAgentUnregistrationAndReturnItsResult) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  for (const auto &[name, methodId, call] :
       std::vector<std::tuple<std::string, int, int (*)(oxa_service_h)>>{
           {"oxa_unset_device_found_cb", 11, oxa_unset_device_found_cb},
           {"oxa_unset_device_lost_cb", 13, oxa_unset_device_lost_cb},
           {"oxa_unset_context_changed_cb", 15, oxa_unset_context_changed_cb},
           {"oxa_unset_command_received_cb", 9, oxa_unset_command_received_cb},
           {"oxa_unset_simple_message_received_cb", 9, oxa_unset_simple_message_received_cb},
       }) {
    SCOPED_TRACE(name);
    mark();
    queueResult(OXA_ERROR_NO_DATA);
    EXPECT_EQ(call(service.get()), OXA_ERROR_NO_DATA);
    EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(methodId), fake::Int32(3)})));
    EXPECT_THAT(apiLogs(), ElementsAre(entryLine(name)));
  }
}

TEST_F(OxaSubscriptionTest, SettingWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  disconnect();
  EXPECT_EQ(oxa_set_device_found_cb(service.get(), deviceFound, nullptr), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(oxa_set_simple_message_received_cb(service.get(), messageReceived, nullptr),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_set_device_found_cb"),
                                  notInitializedLine("RegisterDeviceFoundEvent", "registerEvent<"),
                                  entryLine("oxa_set_simple_message_received_cb"),
                                  notInitializedLine("RegisterSimpleMessageReceivedEvent",
                                                     "registerEvent<")));
}

TEST_F(OxaSubscriptionTest, SettingReturnsTheAgentResult) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(oxa_set_device_lost_cb(service.get(), deviceLost, nullptr),
            OXA_ERROR_PERMISSION_DENIED);
}

// ---- Device events -----------------------------------------------------------------------------

TEST_F(OxaSubscriptionTest, DeviceEventsLendTheDeviceWithItsTypeNormalised) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NONE);
  const int foundSeq =
      subscribed(oxa_set_device_found_cb(service.get(), deviceFound, &userData), 10, 6, 5);
  queueResult(OXA_ERROR_NONE);
  const int lostSeq =
      subscribed(oxa_set_device_lost_cb(service.get(), deviceLost, &userData), 12, 6, 6);
  queueResult(OXA_ERROR_NONE);
  const int changedSeq =
      subscribed(oxa_set_context_changed_cb(service.get(), contextChanged, &userData), 14, 6, 7);

  ASSERT_TRUE(fake::FireReceived(eventFor(5, foundSeq, deviceRecord(kPeer, 3, "a"))));
  ASSERT_TRUE(fake::FireReceived(eventFor(6, lostSeq, deviceRecord(kPeer, 0, "b"))));
  ASSERT_TRUE(fake::FireReceived(eventFor(7, changedSeq, deviceRecord(kPeer, 6, "c"))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"found:a", kPeer, 3, 0, {}, &userData},
                                      Seen{"lost:b", kPeer, 99, 0, {}, &userData},
                                      Seen{"changed:c", kPeer, 99, 0, {}, &userData}));
}

TEST_F(OxaSubscriptionTest, NullCallbackSubscribesAndDropsTheEvents) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(oxa_set_device_found_cb(service.get(), nullptr, &userData), 10, 1, 5);
  ASSERT_TRUE(fake::FireReceived(eventFor(5, seq, deviceRecord(kPeer, 1, "a"))));
  EXPECT_THAT(seenEvents, IsEmpty());
  EXPECT_THAT(apiLogs(), IsEmpty());
}

TEST_F(OxaSubscriptionTest, SettingTwiceMakesTwoDelegatesThatTheAgentTellsApart) {
  ScopedService service;
  int otherUserData = 0;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int first =
      subscribed(oxa_set_device_found_cb(service.get(), deviceFound, &userData), 10, 1, 5);
  queueResult(OXA_ERROR_NONE);
  const int second =
      subscribed(oxa_set_device_found_cb(service.get(), deviceFound, &otherUserData), 10, 1, 5);
  EXPECT_NE(first, second);
  ASSERT_TRUE(fake::FireReceived(eventFor(5, second, deviceRecord(kPeer, 1, "x"))));
  ASSERT_TRUE(fake::FireReceived(eventFor(5, first, deviceRecord(kPeer, 2, "y"))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"found:x", kPeer, 1, 0, {}, &otherUserData},
                                      Seen{"found:y", kPeer, 2, 0, {}, &userData}));
}

// ---- Commands received -------------------------------------------------------------------------

TEST_F(OxaSubscriptionTest, ReceivedCommandIsLentWithItsFields) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq =
      subscribed(oxa_set_command_received_cb(service.get(), commandReceived, &userData), 8, 3, 4);
  ASSERT_TRUE(fake::FireReceived(
      eventFor(4, seq, commandRecord(kPeer, 3, 21, OXA_COMMAND_TYPE_2, {7, 8, 9}, 55))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"command", kPeer, 2, 21, {7, 8, 9}, &userData}));
}

TEST_F(OxaSubscriptionTest, ReceivedCommandWithAShortAddressHasNoAddressToHandOut) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq =
      subscribed(oxa_set_command_received_cb(service.get(), commandReceived, &userData), 8, 1, 4);
  ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, commandRecord("AA:BB", 1, 1, 1, {}, 0))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"command", "error -1073741825", 1, 1, {}, &userData}));
  const auto lines = apiLogs();
  EXPECT_THAT(lines, ::testing::Contains(apiLine(DLOG_ERROR, "oxa_command_get_address",
                                                 "Invalid MAC address length[",
                                                 "Invalid MAC address length[5]")));
}

// ---- Simple messages received ------------------------------------------------------------------

TEST_F(OxaSubscriptionTest, ReceivedMessageHandsOverAddressAndData) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(
      oxa_set_simple_message_received_cb(service.get(), messageReceived, &userData), 8, 1, 4);
  ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(kPeer, {9, 0, 'o', 'k'}))));
  ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(kPeer, {9, 0, 'x'}))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"message", kPeer, 0, 0, {'o', 'k'}, &userData},
                                      Seen{"message", kPeer, 0, 0, {'x'}, &userData}));
  EXPECT_THAT(apiLogs(), IsEmpty());
}

TEST_F(OxaSubscriptionTest, ReceivedMessageWithAnEmptyBodyIsNotDelivered) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(
      oxa_set_simple_message_received_cb(service.get(), messageReceived, &userData), 8, 1, 4);
  ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(kPeer, {9, 0}))));
  EXPECT_THAT(seenEvents, IsEmpty());
  EXPECT_THAT(apiLogs(),
              ElementsAre(apiLog(DLOG_ERROR, kApiSource, "callApplication",
                                 sourceLine(kApiSource, "void callApplication(const char *address",
                                            "\"No message\""),
                                 "No message")));
}

TEST_F(OxaSubscriptionTest, ReceivedMessageShorterThanItsHeaderIsDropped) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(
      oxa_set_simple_message_received_cb(service.get(), messageReceived, &userData), 8, 1, 4);
  for (const Bytes &payload : {Bytes{9}, Bytes{}}) {
    mark();
    ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(kPeer, payload))));
    EXPECT_THAT(logs(), ElementsAre(apiLog(
                            DLOG_ERROR, kCallbacksSource, "OnReceived",
                            sourceLine(kCallbacksSource, "Invalid data. payload size["),
                            "Invalid data. payload size[" + std::to_string(payload.size()) + "]")));
  }
  EXPECT_THAT(seenEvents, IsEmpty());
}

TEST_F(OxaSubscriptionTest, ReceivedMessageIsDeliveredOnlyFromSeventeenCharacterAddresses) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(
      oxa_set_simple_message_received_cb(service.get(), messageReceived, &userData), 8, 1, 4);
  for (const std::string address : {"AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FF0"}) {
    mark();
    ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(address, {9, 0, 1}))));
    EXPECT_THAT(logs(), ElementsAre(apiLog(
                            DLOG_ERROR, kCallbacksSource, "OnReceived",
                            sourceLine(kCallbacksSource, "Invalid MAC address length["),
                            "Invalid MAC address length[" + std::to_string(address.size()) + "]")));
  }
  EXPECT_THAT(seenEvents, IsEmpty());
  ASSERT_TRUE(fake::FireReceived(eventFor(4, seq, messageCommand(kPeer, {9, 0, 1}))));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"message", kPeer, 0, 0, {1}, &userData}));
}

TEST_F(OxaSubscriptionTest, CommandAndMessageSubscriptionsOfOneServiceAreTwoDelegatesOfIdFour) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NONE);
  const int commandSeq =
      subscribed(oxa_set_command_received_cb(service.get(), commandReceived, &userData), 8, 6, 4);
  queueResult(OXA_ERROR_NONE);
  const int messageSeq = subscribed(
      oxa_set_simple_message_received_cb(service.get(), messageReceived, &userData), 8, 6, 4);
  EXPECT_NE(commandSeq, messageSeq);

  const fake::Values command = commandRecord(kPeer, 6, 3, OXA_COMMAND_TYPE_3, {5, 0, 'm'}, 1);
  ASSERT_TRUE(fake::FireReceived(eventFor(4, messageSeq, command)));
  ASSERT_TRUE(fake::FireReceived(eventFor(4, commandSeq, command)));
  EXPECT_THAT(seenEvents, ElementsAre(Seen{"message", kPeer, 0, 0, {'m'}, &userData},
                                      Seen{"command", kPeer, 3, 3, {5, 0, 'm'}, &userData}));
}

TEST_F(OxaSubscriptionTest, UnsettingSimpleMessagesSendsTheCommandUnregistration) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NONE);
  subscribed(oxa_set_command_received_cb(service.get(), commandReceived, &userData), 8, 6, 4);
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_unset_simple_message_received_cb(service.get()), OXA_ERROR_NONE);
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_unset_command_received_cb(service.get()), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(9), fake::Int32(6)}),
                                  request({fake::Int32(9), fake::Int32(6)})));
}

}  // namespace
}  // namespace oxa_test
