// The exported command and simple-message functions: creation, getters, sending and outcomes.

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "OxaApiTest.h"

namespace oxa_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

// What a sent callback was called with.
struct SentEvent {
  void *handle;
  int result;
  void *userData;
  bool operator==(const SentEvent &other) const {
    return handle == other.handle && result == other.result && userData == other.userData;
  }
};

std::vector<SentEvent> sentEvents;

void recordCommandSent(oxa_command_h command, oxa_error_e result, void *userData) {
  sentEvents.push_back({command, result, userData});
}

void recordMessageSent(oxa_simple_message_h message, oxa_error_e result, void *userData) {
  sentEvents.push_back({message, result, userData});
}

// The line on which the event adapter reports an event without its object.
fake::LogLine missingObjectLine(const std::string &message) {
  return apiLog(DLOG_ERROR, kApiSource, "callApplication",
                sourceLine(kApiSource, "void callApplication(Object", "missingObjectMessage("),
                message);
}

// The sequence number of the command record in a SendCommand request: the last value before the
// three values of the delegate.
int commandSeqOf(const fake::SentParcel &parcel) {
  return static_cast<int>(parcel.values.at(parcel.values.size() - 4).integer);
}

Bytes payloadOf(oxa_command_h command) {
  unsigned char *payload = nullptr;
  int length = -1;
  EXPECT_EQ(oxa_command_get_payload(command, &payload, &length), OXA_ERROR_NONE);
  Bytes bytes(payload, payload + (length > 0 ? length : 0));
  std::free(payload);
  return bytes;
}

class OxaCommandTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    sentEvents.clear();
  }

  // A command to kPeer, destroyed with the test.
  oxa_command_h makeCommand(int type, int id, const Bytes &payload) {
    oxa_command_h command = nullptr;
    EXPECT_EQ(oxa_command_create(kPeer, type, id, payload.data(), static_cast<int>(payload.size()),
                                 &command),
              OXA_ERROR_NONE);
    commands.push_back(command);
    return command;
  }

  void TearDown() override {
    for (oxa_command_h command : commands) {
      oxa_command_destroy(command);
    }
    for (oxa_simple_message_h message : messages) {
      oxa_simple_message_destroy(message);
    }
    ApiTest::TearDown();
  }

  oxa_simple_message_h makeMessage(const Bytes &data) {
    oxa_simple_message_h message = nullptr;
    EXPECT_EQ(
        oxa_simple_message_create(kPeer, data.data(), static_cast<int>(data.size()), &message),
        OXA_ERROR_NONE);
    messages.push_back(message);
    return message;
  }

  std::vector<oxa_command_h> commands;
  std::vector<oxa_simple_message_h> messages;
  int userData = 0;
};

// ---- Creation and getters ----------------------------------------------------------------------

TEST_F(OxaCommandTest, CreateChecksTheOutputBeforeTypeAndAddress) {
  expectRefused(oxa_command_create(nullptr, 0, 1, nullptr, 0, nullptr), "oxa_command_create",
                "command is NULL");
}

TEST_F(OxaCommandTest, CreateRefusesTypesOutsideOneToThreeBeforeTheAddress) {
  for (int type : {0, 4}) {
    mark();
    auto *const untouched = reinterpret_cast<oxa_command_h>(0x1234);
    oxa_command_h command = untouched;
    expectRefused(oxa_command_create("short", type, 1, nullptr, 0, &command), "oxa_command_create",
                  "Invalid type");
    EXPECT_EQ(command, untouched);
  }
}

TEST_F(OxaCommandTest, CreateRefusesAddressesThatAreNotSeventeenCharacters) {
  for (const char *address :
       {static_cast<const char *>(nullptr), "AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FF0"}) {
    mark();
    auto *const untouched = reinterpret_cast<oxa_command_h>(0x1234);
    oxa_command_h command = untouched;
    expectRefused(oxa_command_create(address, OXA_COMMAND_TYPE_1, 1, nullptr, 0, &command),
                  "oxa_command_create", "Invalid adress");
    EXPECT_EQ(command, untouched);
  }
}

TEST_F(OxaCommandTest, CreateCopiesEveryField) {
  unsigned char payload[] = {0x01, 0x02, 0x03};
  oxa_command_h command = nullptr;
  ASSERT_EQ(oxa_command_create(kPeer, OXA_COMMAND_TYPE_2, 77, payload, 2, &command),
            OXA_ERROR_NONE);
  commands.push_back(command);
  payload[0] = 0xff;
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_command_create")));
  EXPECT_THAT(sent(), IsEmpty());

  int id = 0;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  char *address = nullptr;
  EXPECT_EQ(oxa_command_get_id(command, &id), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_command_get_type(command, &type), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_command_get_address(command, &address), OXA_ERROR_NONE);
  EXPECT_EQ(id, 77);
  EXPECT_EQ(type, OXA_COMMAND_TYPE_2);
  EXPECT_STREQ(address, kPeer);
  std::free(address);
  EXPECT_EQ(payloadOf(command), (Bytes{0x01, 0x02}));
}

TEST_F(OxaCommandTest, EmptyPayloadFromNullPointerGivesAnEmptyAllocation) {
  oxa_command_h command = nullptr;
  ASSERT_EQ(oxa_command_create(kPeer, OXA_COMMAND_TYPE_3, 1, nullptr, 0, &command), OXA_ERROR_NONE);
  commands.push_back(command);
  mark();
  unsigned char *payload = nullptr;
  int length = -1;
  EXPECT_EQ(oxa_command_get_payload(command, &payload, &length), OXA_ERROR_NONE);
  EXPECT_NE(payload, nullptr);
  EXPECT_EQ(length, 0);
  std::free(payload);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_command_get_payload")));
}

TEST_F(OxaCommandTest, CreateWithNegativeLengthRaisesTheVectorLengthError) {
  const unsigned char payload[] = {1};
  oxa_command_h command = nullptr;
  try {
    oxa_command_create(kPeer, OXA_COMMAND_TYPE_1, 1, payload, -1, &command);
    ADD_FAILURE() << "no exception";
  } catch (const std::length_error &error) {
    EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
  }
  EXPECT_EQ(command, nullptr);
}

TEST_F(OxaCommandTest, DestroyAndGettersRefuseNull) {
  int id = -1;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  unsigned char *payload = nullptr;
  int length = -1;
  char *address = nullptr;
  expectRefused(oxa_command_destroy(nullptr), "oxa_command_destroy", "No command");
  mark();
  expectRefused(oxa_command_get_id(nullptr, &id), "oxa_command_get_id", "No command");
  mark();
  expectRefused(oxa_command_get_type(nullptr, &type), "oxa_command_get_type", "No command");
  mark();
  expectRefused(oxa_command_get_payload(nullptr, &payload, &length), "oxa_command_get_payload",
                "No command");
  mark();
  expectRefused(oxa_command_get_address(nullptr, &address), "oxa_command_get_address",
                "No command");
  EXPECT_EQ(id, -1);
  EXPECT_EQ(type, OXA_COMMAND_TYPE_1);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(length, -1);
  EXPECT_EQ(address, nullptr);
}

TEST_F(OxaCommandTest, GettersLogOnlyTheirEntry) {
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_1, 5, {9});
  mark();
  int id = 0;
  oxa_command_type_e type = OXA_COMMAND_TYPE_2;
  char *address = nullptr;
  oxa_command_get_id(command, &id);
  oxa_command_get_type(command, &type);
  oxa_command_get_address(command, &address);
  std::free(address);
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_command_get_id"), entryLine("oxa_command_get_type"),
                          entryLine("oxa_command_get_address")));
}

// ---- Sending commands --------------------------------------------------------------------------

TEST_F(OxaCommandTest, SendCommandChecksServiceThenCommand) {
  ScopedService service;
  mark();
  expectRefused(oxa_send_command(nullptr, nullptr, recordCommandSent, nullptr), "oxa_send_command",
                "service is NULL");
  mark();
  expectRefused(oxa_send_command(service.get(), nullptr, recordCommandSent, nullptr),
                "oxa_send_command", "No command");
}

TEST_F(OxaCommandTest, SendCommandWritesTheRecordAndHandsTheOwnCommandToTheSentCallback) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_2, 42, {0xde, 0xad});
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_send_command(service.get(), command, recordCommandSent, &userData),
            OXA_ERROR_NO_DATA);
  ASSERT_EQ(sent().size(), 1U);
  const int seq = commandSeqOf(sent()[0]);
  const int delegateSeqId = delegateSeq(sent()[0]);
  EXPECT_THAT(sent(),
              ElementsAre(request(
                  concat(concat({fake::Int32(7), fake::Int32(3)},
                                commandRecord(kPeer, 3, 42, OXA_COMMAND_TYPE_2, {0xde, 0xad}, seq)),
                         delegate(3, delegateSeqId)))));
  EXPECT_THAT(sentEvents, IsEmpty());

  ASSERT_TRUE(fake::FireReceived(
      eventFor(3, delegateSeqId,
               concat({fake::Int32(OXA_ERROR_NONE)},
                      commandRecord(kPeer, 3, 42, OXA_COMMAND_TYPE_2, {0xde, 0xad}, seq)))));
  EXPECT_THAT(sentEvents, ElementsAre(SentEvent{command, OXA_ERROR_NONE, &userData}));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_send_command")));
}

TEST_F(OxaCommandTest, SentEventWithAnUnknownSequenceNumberEndsWithNoCommand) {
  ScopedService service;
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_1, 1, {});
  queueResult(OXA_ERROR_NONE);
  ASSERT_EQ(oxa_send_command(service.get(), command, recordCommandSent, &userData), OXA_ERROR_NONE);
  const int seq = commandSeqOf(sent().back());
  const int delegateSeqId = delegateSeq(sent().back());
  mark();
  ASSERT_TRUE(fake::FireReceived(eventFor(
      3, delegateSeqId,
      concat({fake::Int32(OXA_ERROR_NONE)}, commandRecord(kPeer, 1, 1, 1, {}, seq + 1000)))));
  EXPECT_THAT(sentEvents, IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(missingObjectLine("No command")));
}

TEST_F(OxaCommandTest, SendCommandWithoutCallbackSucceedsAndCallsNothing) {
  ScopedService service;
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_1, 1, {1});
  mark();
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_send_command(service.get(), command, nullptr, &userData), OXA_ERROR_NONE);
  const int seq = commandSeqOf(sent().back());
  ASSERT_TRUE(fake::FireReceived(
      eventFor(3, delegateSeq(sent().back()),
               concat({fake::Int32(OXA_ERROR_NONE)}, commandRecord(kPeer, 1, 1, 1, {1}, seq)))));
  EXPECT_THAT(sentEvents, IsEmpty());
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_send_command")));
}

TEST_F(OxaCommandTest, SendCommandIsDeniedWithoutRequestAfterPermissionDenial) {
  ScopedService service;
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_1, 1, {});
  denyPermission();
  EXPECT_EQ(oxa_send_command(service.get(), command, recordCommandSent, nullptr),
            OXA_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_send_command"), permissionDeniedLine("sendCommand")));
}

TEST_F(OxaCommandTest, SendCommandWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  oxa_command_h command = makeCommand(OXA_COMMAND_TYPE_1, 1, {});
  disconnect();
  EXPECT_EQ(oxa_send_command(service.get(), command, recordCommandSent, nullptr),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_send_command"), notInitializedLine("SendCommand")));
}

// ---- Simple messages ---------------------------------------------------------------------------

TEST_F(OxaCommandTest, MessageCreateChecksTheOutputBeforeTheAddress) {
  expectRefused(oxa_simple_message_create(nullptr, nullptr, 0, nullptr),
                "oxa_simple_message_create", "handle is NULL");
}

TEST_F(OxaCommandTest, MessageCreateRefusesAddressesThatAreNotSeventeenCharacters) {
  for (const char *address :
       {static_cast<const char *>(nullptr), "AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FF0"}) {
    mark();
    auto *const untouched = reinterpret_cast<oxa_simple_message_h>(0x1234);
    oxa_simple_message_h message = untouched;
    expectRefused(oxa_simple_message_create(address, nullptr, 0, &message),
                  "oxa_simple_message_create", "Invalid address");
    EXPECT_EQ(message, untouched);
  }
}

TEST_F(OxaCommandTest, MessageCreateWithNegativeLengthRaisesTheVectorLengthError) {
  const unsigned char data[] = {1};
  oxa_simple_message_h message = nullptr;
  try {
    oxa_simple_message_create(kPeer, data, -1, &message);
    ADD_FAILURE() << "no exception";
  } catch (const std::length_error &error) {
    EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
  }
  EXPECT_EQ(message, nullptr);
}

TEST_F(OxaCommandTest, MessageDestroyRefusesNull) {
  expectRefused(oxa_simple_message_destroy(nullptr), "oxa_simple_message_destroy", "No message");
}

TEST_F(OxaCommandTest, SendMessageChecksServiceThenMessage) {
  ScopedService service;
  mark();
  expectRefused(oxa_send_simple_message(nullptr, nullptr, recordMessageSent, nullptr),
                "oxa_send_simple_message", "service is NULL");
  mark();
  expectRefused(oxa_send_simple_message(service.get(), nullptr, recordMessageSent, nullptr),
                "oxa_send_simple_message", "No message");
}

TEST_F(OxaCommandTest, SendMessageTravelsAsCommandAndHandsTheOwnMessageToTheSentCallback) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  queueResult(OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_set_app_id(service.get(), 0x1234), OXA_ERROR_NONE);
  oxa_simple_message_h message = makeMessage({'h', 'i'});
  mark();
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_send_simple_message(service.get(), message, recordMessageSent, &userData),
            OXA_ERROR_NONE);
  ASSERT_EQ(sent().size(), 1U);
  const int seq = commandSeqOf(sent()[0]);
  const int delegateSeqId = delegateSeq(sent()[0]);
  const Bytes payload = {0x34, 0x00, 'h', 'i'};
  EXPECT_THAT(sent(), ElementsAre(request(concat(
                          concat({fake::Int32(7), fake::Int32(6)},
                                 commandRecord(kPeer, 6, 3, OXA_COMMAND_TYPE_3, payload, seq)),
                          delegate(3, delegateSeqId)))));

  ASSERT_TRUE(fake::FireReceived(
      eventFor(3, delegateSeqId,
               concat({fake::Int32(OXA_ERROR_IO_ERROR)},
                      commandRecord(kPeer, 6, 3, OXA_COMMAND_TYPE_3, payload, seq)))));
  EXPECT_THAT(sentEvents, ElementsAre(SentEvent{message, OXA_ERROR_IO_ERROR, &userData}));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_send_simple_message")));
}

TEST_F(OxaCommandTest, SendMessageOfNoDataFromNullPointerCarriesOnlyTheHeader) {
  ScopedService service;
  oxa_simple_message_h message = nullptr;
  ASSERT_EQ(oxa_simple_message_create(kPeer, nullptr, 0, &message), OXA_ERROR_NONE);
  messages.push_back(message);
  mark();
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_send_simple_message(service.get(), message, nullptr, nullptr), OXA_ERROR_NONE);
  const int seq = commandSeqOf(sent().back());
  EXPECT_THAT(sent(), ElementsAre(request(concat(
                          concat({fake::Int32(7), fake::Int32(1)},
                                 commandRecord(kPeer, 1, 3, OXA_COMMAND_TYPE_3, {0, 0}, seq)),
                          delegate(3, delegateSeq(sent().back()))))));
  // The wrapper command waits for its sent event; deliver it so that it is freed.
  ASSERT_TRUE(fake::FireReceived(
      eventFor(3, delegateSeq(sent().back()),
               concat({fake::Int32(OXA_ERROR_NONE)}, commandRecord(kPeer, 1, 3, 3, {0, 0}, seq)))));
  EXPECT_THAT(sentEvents, IsEmpty());
}

TEST_F(OxaCommandTest, SendMessageIsDeniedWithoutRequestAfterPermissionDenial) {
  ScopedService service;
  oxa_simple_message_h message = makeMessage({1});
  denyPermission();
  EXPECT_EQ(oxa_send_simple_message(service.get(), message, recordMessageSent, nullptr),
            OXA_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_send_simple_message"),
                                  permissionDeniedLine("sendSimpleMessage")));
}

TEST_F(OxaCommandTest, SendMessageWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  oxa_simple_message_h message = makeMessage({1});
  disconnect();
  EXPECT_EQ(oxa_send_simple_message(service.get(), message, recordMessageSent, nullptr),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_send_simple_message"),
                                  notInitializedLine("SendSimpleMessage")));
}

}  // namespace
}  // namespace oxa_test
