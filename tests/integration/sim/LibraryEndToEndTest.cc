// The library through the real host transport against the simulated agent: every public
// function and every event kind.
#include <gtest/gtest.h>
#include <oxa.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>

#include "LibraryTest.h"

namespace {

using oxa::test::Bytes;
using oxa::test::CommandSeen;
using oxa::test::DeviceSeen;
using oxa::test::Events;
using oxa::test::MessageSeen;

constexpr char kTv[] = "A0:00:00:00:00:01";
constexpr char kEcho[] = "A0:00:00:00:00:02";
constexpr char kSensor[] = "A0:00:00:00:00:03";
constexpr char kOdd[] = "A0:00:00:00:00:04";
constexpr char kNowhere[] = "FF:FF:FF:FF:FF:FF";
constexpr char kSelf[] = "02:00:00:00:00:01";

const DeviceSeen kTvDevice{kTv, "TV", OXA_DEVICE_TYPE_1};
const DeviceSeen kEchoDevice{kEcho, "Echo", OXA_DEVICE_TYPE_3};
const DeviceSeen kSensorDevice{kSensor, "Sensor", OXA_DEVICE_TYPE_4};
// The agent reports type 7, which the library shows as unknown.
const DeviceSeen kOddDevice{kOdd, "Odd", OXA_DEVICE_TYPE_UNKNOWN};

// The timeline starts with the first discovery.
constexpr char kScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "TV", "adv_data": {"hex": "0201ff"},
     "contexts": [{"service": 1, "context": 2, "text": "on"},
                  {"service": 1, "context": 1, "text": "ch7"}]},
    {"address": "A0:00:00:00:00:02", "type": 3, "name": "Echo", "echo": true},
    {"address": "A0:00:00:00:00:03", "type": 4, "name": "Sensor", "present": false},
    {"address": "A0:00:00:00:00:04", "type": 7, "name": "Odd"}
  ],
  "timeline": [
    {"at_ms": 0, "action": "appear", "address": "A0:00:00:00:00:03"},
    {"at_ms": 10, "action": "context", "address": "A0:00:00:00:00:01",
     "service": 1, "context": 2, "text": "off"},
    {"at_ms": 20, "action": "command", "address": "A0:00:00:00:00:01",
     "service": 1, "id": 9, "type": 2, "hex": "abcd"},
    {"at_ms": 30, "action": "message", "address": "A0:00:00:00:00:01",
     "service": 1, "text": "hi"},
    {"at_ms": 40, "action": "disappear", "address": "A0:00:00:00:00:03"}
  ]
})";

Bytes bytesOf(const std::string &text) {
  return {text.begin(), text.end()};
}

class LibraryEndToEndTest : public oxa::test::LibraryTest {
 protected:
  void start(std::vector<std::string> args = {}) {
    args.insert(args.end(), {"--trace", "--scenario", writeScenario(kScenario)});
    startSim(args);
  }

  // The sim's trace line for a request of this test's client.
  static std::string request(const std::string &text) {
    return std::string("trace: <- [") + kSelf + " " + kAppId + "] " + text + "\n";
  }

  // Sends a message to the echo peer through `service` and waits for it to come back: every
  // event the agent sent before it has then arrived.
  void barrier(oxa_service_h service) {
    ASSERT_EQ(oxa_set_simple_message_received_cb(service, &Events::onMessageReceived, &events),
              OXA_ERROR_NONE);
    const size_t before = events.messagesReceived.size();
    const oxa::test::Message ping = createMessage(kEcho, {0x70});
    ASSERT_EQ(oxa_send_simple_message(service, ping.get(), &Events::onMessageSent, &events),
              OXA_ERROR_NONE);
    ASSERT_TRUE(waitForCount(events.messagesReceived, before + 1));
  }

  static std::vector<DeviceSeen> foundDevices(oxa_service_h service, size_t stopAfter = 100) {
    struct Walk {
      std::vector<DeviceSeen> seen;
      size_t stopAfter;
    } walk{{}, stopAfter};
    EXPECT_EQ(oxa_foreach_found_device(
                  service,
                  [](oxa_device_h device, void *data) {
                    auto *w = static_cast<Walk *>(data);
                    w->seen.push_back(oxa::test::readDevice(device));
                    return w->seen.size() < w->stopAfter;
                  },
                  &walk),
              OXA_ERROR_NONE);
    return walk.seen;
  }

  static Bytes context(oxa_device_h device, oxa_service_type_e service, oxa_context_type_e type,
                       int expectedResult = OXA_ERROR_NONE) {
    unsigned char *value = nullptr;
    int length = 0;
    EXPECT_EQ(oxa_device_get_context(device, service, type, &value, &length), expectedResult);
    Bytes data(value, value + (value != nullptr ? length : 0));
    std::free(value);
    return data;
  }
};

TEST_F(LibraryEndToEndTest, InitializeConnectsAndDeinitializeUnregisters) {
  start();
  initialize();
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_TRUE(sim().waitForOutput(request("Unregister"))) << sim().output();

  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
}

TEST_F(LibraryEndToEndTest, ServiceRegistrationStateAndAppId) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  ASSERT_EQ(oxa_service_set_state_changed_cb(service.get(), &Events::onStateChanged, &events),
            OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service.get(), &Events::onRegistered, &events), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.registered, 1));
  EXPECT_EQ(events.registered[0].handle, service.get());
  EXPECT_EQ(events.registered[0].result, OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.states, 1));
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 1);

  EXPECT_EQ(oxa_service_unregister(service.get()), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.states, 2));
  EXPECT_EQ(events.states, (std::vector<int>{1, 0}));
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);

  EXPECT_EQ(oxa_service_unset_state_changed_cb(service.get()), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service.get(), &Events::onRegistered, &events), OXA_ERROR_NONE);
  barrier(service.get());
  EXPECT_EQ(events.registered.size(), 2U);
  EXPECT_EQ(events.states.size(), 2U);

  const oxa::test::Service typed = createService(OXA_SERVICE_TYPE_6);
  EXPECT_EQ(oxa_service_set_app_id(typed.get(), 42), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_service_set_app_id(service.get(), 42), OXA_ERROR_NOT_SUPPORTED);
  EXPECT_TRUE(sim().waitForOutput(request("SetAppId appId=42"))) << sim().output();
}

TEST_F(LibraryEndToEndTest, DestroyingARegisteredServiceUnregistersIt) {
  start();
  initialize();
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_3, &service), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service, nullptr, nullptr), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
  EXPECT_TRUE(sim().waitForOutput(request("UnregisterService handlerId=3"))) << sim().output();
}

TEST_F(LibraryEndToEndTest, AgentRefusalsReachTheApplication) {
  start(
      {"--fail", "RegisterService=-38", "--fail", "StartDiscovery=-13", "--refuse-state-changed"});
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  // A refused state-change registration still reports success to the application.
  EXPECT_EQ(oxa_service_set_state_changed_cb(service.get(), &Events::onStateChanged, &events),
            OXA_ERROR_NONE);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_PERMISSION_DENIED);
  ASSERT_EQ(oxa_service_register(service.get(), &Events::onRegistered, &events), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.registered, 1));
  EXPECT_EQ(events.registered[0].result, OXA_ERROR_INVALID_OPERATION);
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
  EXPECT_TRUE(events.states.empty());
}

TEST_F(LibraryEndToEndTest, DiscoveryReportsDevicesAndPlaysTheTimeline) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  EXPECT_TRUE(foundDevices(service.get()).empty());
  ASSERT_EQ(oxa_set_device_found_cb(service.get(), &Events::onFound, &events), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_set_device_lost_cb(service.get(), &Events::onLost, &events), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_set_context_changed_cb(service.get(), &Events::onContextChanged, &events),
            OXA_ERROR_NONE);
  ASSERT_EQ(oxa_set_command_received_cb(service.get(), &Events::onCommandReceived, &events),
            OXA_ERROR_NONE);

  ASSERT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.lost, 1));
  EXPECT_EQ(events.found,
            (std::vector<DeviceSeen>{kTvDevice, kEchoDevice, kOddDevice, kSensorDevice}));
  EXPECT_EQ(events.contextChanged, std::vector<DeviceSeen>{kTvDevice});
  EXPECT_EQ(events.commandsReceived,
            (std::vector<CommandSeen>{{kTv, OXA_COMMAND_TYPE_2, 9, {0xab, 0xcd}},
                                      {kTv, OXA_COMMAND_TYPE_3, 3, {0, 0, 'h', 'i'}}}));
  EXPECT_EQ(events.lost, std::vector<DeviceSeen>{kSensorDevice});

  EXPECT_EQ(foundDevices(service.get()),
            (std::vector<DeviceSeen>{kTvDevice, kEchoDevice, kOddDevice}));
  EXPECT_EQ(foundDevices(service.get(), 1), std::vector<DeviceSeen>{kTvDevice});
  EXPECT_EQ(oxa_stop_discovery(service.get()), OXA_ERROR_NONE);

  EXPECT_EQ(oxa_unset_device_found_cb(service.get()), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_unset_device_lost_cb(service.get()), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_unset_context_changed_cb(service.get()), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  barrier(service.get());
  EXPECT_EQ(events.found.size(), 4U);
  EXPECT_TRUE(sim().waitForOutput(request("UnregisterContextChangedEvent handlerId=1")));
}

TEST_F(LibraryEndToEndTest, TimelineMessageReachesTheSimpleMessageCallback) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  ASSERT_EQ(oxa_set_simple_message_received_cb(service.get(), &Events::onMessageReceived, &events),
            OXA_ERROR_NONE);
  ASSERT_EQ(oxa_set_device_lost_cb(service.get(), &Events::onLost, &events), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.lost, 1));
  // The timeline's two-byte command carries no message and is dropped by the library.
  EXPECT_EQ(events.messagesReceived, std::vector<MessageSeen>({{kTv, bytesOf("hi")}}));
}

TEST_F(LibraryEndToEndTest, DeviceDataComesFromTheAgent) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);

  oxa_device_h raw = nullptr;
  ASSERT_EQ(oxa_get_my_device(service.get(), "", &raw), OXA_ERROR_NONE);
  const oxa::test::Device self(raw);
  EXPECT_EQ(oxa::test::readDevice(self.get()), DeviceSeen({kSelf, kAppId, OXA_DEVICE_TYPE_1}));

  raw = nullptr;
  ASSERT_EQ(oxa_get_my_device(service.get(), kTv, &raw), OXA_ERROR_NONE);
  const oxa::test::Device tv(raw);
  EXPECT_EQ(oxa::test::readDevice(tv.get()), kTvDevice);

  raw = nullptr;
  EXPECT_EQ(oxa_get_my_device(service.get(), kNowhere, &raw), OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(raw, nullptr);

  oxa_device_h copy = nullptr;
  ASSERT_EQ(oxa_device_clone(tv.get(), &copy), OXA_ERROR_NONE);
  EXPECT_EQ(oxa::test::readDevice(copy), kTvDevice);
  EXPECT_EQ(oxa_device_destroy(copy), OXA_ERROR_NONE);

  unsigned char *adv = nullptr;
  int length = 0;
  ASSERT_EQ(oxa_device_get_raw_context(tv.get(), &adv, &length), OXA_ERROR_NONE);
  EXPECT_EQ(Bytes(adv, adv + length), (Bytes{0x02, 0x01, 0xff}));
  std::free(adv);

  EXPECT_EQ(context(tv.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2), bytesOf("on"));
  EXPECT_EQ(context(tv.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1), bytesOf("ch7"));
  EXPECT_TRUE(context(tv.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_3, OXA_ERROR_NO_DATA).empty());
  EXPECT_TRUE(context(tv.get(), OXA_SERVICE_TYPE_6, OXA_CONTEXT_TYPE_3, OXA_ERROR_INVALID_OPERATION)
                  .empty());

  const Bytes published = bytesOf("abc");
  ASSERT_EQ(oxa_update_context(service.get(), OXA_CONTEXT_TYPE_2, published.data(),
                               static_cast<int>(published.size())),
            OXA_ERROR_NONE);
  EXPECT_EQ(context(self.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2), published);
}

TEST_F(LibraryEndToEndTest, CommandsAndMessagesComeBackFromTheEchoPeer) {
  start();
  initialize();
  const oxa::test::Service commands = createService(OXA_SERVICE_TYPE_1);
  const oxa::test::Service messages = createService(OXA_SERVICE_TYPE_3);
  ASSERT_EQ(oxa_set_command_received_cb(commands.get(), &Events::onCommandReceived, &events),
            OXA_ERROR_NONE);
  ASSERT_EQ(oxa_set_simple_message_received_cb(messages.get(), &Events::onMessageReceived, &events),
            OXA_ERROR_NONE);

  const oxa::test::Command command = createCommand(kEcho, OXA_COMMAND_TYPE_2, 77, {1, 2, 3});
  ASSERT_EQ(oxa_send_command(commands.get(), command.get(), &Events::onCommandSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.commandsReceived, 1));
  ASSERT_EQ(events.commandsSent.size(), 1U);
  EXPECT_EQ(events.commandsSent[0].handle, command.get());
  EXPECT_EQ(events.commandsSent[0].result, OXA_ERROR_NONE);
  EXPECT_EQ(events.commandsReceived[0], (CommandSeen{kEcho, OXA_COMMAND_TYPE_2, 77, {1, 2, 3}}));

  const oxa::test::Message message = createMessage(kEcho, bytesOf("ping"));
  ASSERT_EQ(oxa_send_simple_message(messages.get(), message.get(), &Events::onMessageSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.messagesReceived, 1));
  ASSERT_EQ(events.messagesSent.size(), 1U);
  EXPECT_EQ(events.messagesSent[0].handle, message.get());
  EXPECT_EQ(events.messagesSent[0].result, OXA_ERROR_NONE);
  EXPECT_EQ(events.messagesReceived[0], (MessageSeen{kEcho, bytesOf("ping")}));
  EXPECT_EQ(events.commandsReceived.size(), 1U);
}

TEST_F(LibraryEndToEndTest, SendsToAnUnknownAddressFailInTheSentCallback) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  const oxa::test::Command command = createCommand(kNowhere, OXA_COMMAND_TYPE_1, 1, {});
  ASSERT_EQ(oxa_send_command(service.get(), command.get(), &Events::onCommandSent, &events),
            OXA_ERROR_NONE);
  const oxa::test::Message message = createMessage(kNowhere, bytesOf("x"));
  ASSERT_EQ(oxa_send_simple_message(service.get(), message.get(), &Events::onMessageSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.messagesSent, 1));
  ASSERT_EQ(events.commandsSent.size(), 1U);
  EXPECT_EQ(events.commandsSent[0].handle, command.get());
  EXPECT_EQ(events.commandsSent[0].result, OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(events.messagesSent[0].handle, message.get());
  EXPECT_EQ(events.messagesSent[0].result, OXA_ERROR_NO_DEVICE);
}

TEST_F(LibraryEndToEndTest, UnsettingCommandOrMessageCallbacksStopsDelivery) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  const oxa::test::Service other = createService(OXA_SERVICE_TYPE_3);
  ASSERT_EQ(oxa_set_command_received_cb(service.get(), &Events::onCommandReceived, &events),
            OXA_ERROR_NONE);
  EXPECT_EQ(oxa_unset_command_received_cb(service.get()), OXA_ERROR_NONE);
  const oxa::test::Command command = createCommand(kEcho, OXA_COMMAND_TYPE_1, 5, {9});
  ASSERT_EQ(oxa_send_command(service.get(), command.get(), &Events::onCommandSent, &events),
            OXA_ERROR_NONE);
  barrier(other.get());
  EXPECT_EQ(events.commandsSent.size(), 1U);
  EXPECT_TRUE(events.commandsReceived.empty());

  EXPECT_EQ(oxa_unset_simple_message_received_cb(other.get()), OXA_ERROR_NONE);
  const oxa::test::Message message = createMessage(kEcho, bytesOf("lost"));
  ASSERT_EQ(oxa_send_simple_message(other.get(), message.get(), &Events::onMessageSent, &events),
            OXA_ERROR_NONE);
  barrier(service.get());
  EXPECT_EQ(events.messagesReceived.size(), 2U);  // the two barrier echoes only
}

TEST_F(LibraryEndToEndTest, ClientWithoutThePrivilegeIsRejected) {
  start({"--require-privilege", "http://oxa.org/privilege/agent"});
  unsetenv("RPC_PORT_PRIVILEGES");
  ASSERT_EQ(oxa_initialize(&Events::onInitialized, &events), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.initialized, 1));
  EXPECT_EQ(events.initialized[0], OXA_ERROR_PERMISSION_DENIED);
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_INTERNAL_ERROR);
}

TEST_F(LibraryEndToEndTest, ClientWithThePrivilegeConnects) {
  start({"--require-privilege", "http://oxa.org/privilege/agent"});
  setenv("RPC_PORT_PRIVILEGES", "http://oxa.org/privilege/agent", 1);
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
}

TEST_F(LibraryEndToEndTest, AgentKilledMidSessionThenBackAgain) {
  start();
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  ASSERT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);

  sim().kill(SIGKILL);
  ASSERT_TRUE(waitForCount(events.initialized, 2));
  EXPECT_EQ(events.initialized[1], OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(oxa_set_device_found_cb(service.get(), &Events::onFound, &events),
            OXA_ERROR_INTERNAL_ERROR);
  const oxa::test::Command command = createCommand(kEcho, OXA_COMMAND_TYPE_1, 1, {});
  EXPECT_EQ(oxa_send_command(service.get(), command.get(), &Events::onCommandSent, &events),
            OXA_ERROR_INTERNAL_ERROR);

  start();
  initialize();
  EXPECT_EQ(events.initialized,
            (std::vector<int>{OXA_ERROR_NONE, OXA_ERROR_INTERNAL_ERROR, OXA_ERROR_NONE}));
  ASSERT_EQ(oxa_set_device_found_cb(service.get(), &Events::onFound, &events), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.found, 3));
  EXPECT_EQ(events.found[0], kTvDevice);
}

TEST_F(LibraryEndToEndTest, ConnectionDroppedByTheAgentIsReported) {
  start({"--drop-after", "2"});
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_stop_discovery(service.get()), OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.initialized, 2));
  EXPECT_EQ(events.initialized[1], OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_INTERNAL_ERROR);
}

TEST_F(LibraryEndToEndTest, DelayedRepliesAreWaitedFor) {
  start({"--delay-ms", "200"});
  initialize();
  const oxa::test::Service service = createService(OXA_SERVICE_TYPE_1);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(200));
}

}  // namespace
