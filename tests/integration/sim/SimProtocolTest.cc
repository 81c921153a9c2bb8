// The simulated agent at the wire level: raw parcels in, raw parcels out, no library involved.
#include <gtest/gtest.h>
#include <oxa.h>

#include <sys/wait.h>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <utility>

#include "RawAgentClient.h"
#include "SimTest.h"

namespace {

using raw_agent::Command;
using raw_agent::Device;
using raw_agent::Event;
using raw_agent::Request;

enum MethodId {
  kRegisterService = 2,
  kUnregisterService,
  kGetServiceState,
  kRegisterServiceStateChangedEvent,
  kUnregisterServiceStateChangedEvent,
  kSendCommand,
  kRegisterCommandReceivedEvent,
  kUnregisterCommandReceivedEvent,
  kRegisterDeviceFoundEvent,
  kUnregisterDeviceFoundEvent,
  kRegisterDeviceLostEvent,
  kUnregisterDeviceLostEvent,
  kRegisterContextChangedEvent,
  kUnregisterContextChangedEvent,
  kStartDiscovery,
  kStopDiscovery,
  kGetFoundDeviceList,
  kGetMyDevice,
  kGetAdvRawData,
  kGetContext,
  kUpdateContext,
  kSetAppId,
  kUnregister,
};

constexpr char kAgent[] = OXA_AGENT_APPID;
constexpr int kService = 1;
constexpr char kTv[] = "A0:00:00:00:00:01";
constexpr char kEcho[] = "A0:00:00:00:00:02";
constexpr char kSensor[] = "A0:00:00:00:00:03";
constexpr char kFirstClient[] = "02:00:00:00:00:01";
constexpr char kSecondClient[] = "02:00:00:00:00:02";

const Device kTvDevice{kTv, 1, "TV"};
const Device kEchoDevice{kEcho, 3, "Echo"};
const Device kSensorDevice{kSensor, 4, "Sensor"};

constexpr char kStaticScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "TV", "adv_data": {"hex": "0201ff"},
     "contexts": [{"service": 1, "context": 2, "text": "on"}]},
    {"address": "A0:00:00:00:00:02", "type": 3, "name": "Echo", "echo": true},
    {"address": "A0:00:00:00:00:03", "type": 4, "name": "Sensor", "present": false}
  ]
})";

// The same world with a timeline, which starts with the first StartDiscovery.
constexpr char kScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "TV", "adv_data": {"hex": "0201ff"},
     "contexts": [{"service": 1, "context": 2, "text": "on"}]},
    {"address": "A0:00:00:00:00:02", "type": 3, "name": "Echo", "echo": true},
    {"address": "A0:00:00:00:00:03", "type": 4, "name": "Sensor", "present": false}
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

std::vector<unsigned char> bytesOf(const std::string &text) {
  return {text.begin(), text.end()};
}

class SimProtocolTest : public oxa::test::SimTest {
 protected:
  void startWithScenario(std::vector<std::string> args = {},
                         const char *scenario = kStaticScenario) {
    args.insert(args.end(), {"--scenario", writeScenario(scenario)});
    startSim(args);
  }

  std::unique_ptr<raw_agent::Client> connect() {
    auto client = std::make_unique<raw_agent::Client>(context());
    EXPECT_EQ(client->connect(kAgent), RPC_PORT_ERROR_NONE);
    EXPECT_TRUE(runUntil([&] { return client->connected() || client->rejected(); }));
    EXPECT_TRUE(client->connected());
    return client;
  }

  // A request whose reply is the result alone.
  int resultOf(raw_agent::Client &client, const Request &request) {
    raw_agent::Reply reply = client.call(request);
    const int result = reply.i32();
    EXPECT_TRUE(reply.exhausted());
    return result;
  }

  int registerDelegate(raw_agent::Client &client, int method, int delegateId, int seq,
                       int handlerId = kService) {
    return resultOf(client, Request(method).i32(handlerId).delegate(delegateId, seq));
  }

  bool waitForEvents(raw_agent::Client &client, int delegateId, size_t count) {
    return runUntil([&] { return client.eventsOf(delegateId).size() >= count; });
  }

  // Sends a command to the echo peer and waits for its answer: every event the simulator sent
  // this client before then has arrived, since events travel in order on one port.
  void barrier(raw_agent::Client &client, int seq) {
    const size_t before = client.eventsOf(raw_agent::kCommandSent).size();
    Command ping{kEcho, kService, 1, 1, {0x42}, seq};
    ASSERT_EQ(resultOf(client, Request(kSendCommand)
                                   .i32(kService)
                                   .command(ping)
                                   .delegate(raw_agent::kCommandSent, 900 + seq)),
              0);
    ASSERT_TRUE(waitForEvents(client, raw_agent::kCommandSent, before + 1));
  }
};

TEST_F(SimProtocolTest, RegisterServiceAnswersOnlyWithItsEvent) {
  startWithScenario();
  auto client = connect();

  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 10)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kServiceRegistered, 1));
  const Event event = client->eventsOf(raw_agent::kServiceRegistered)[0];
  EXPECT_EQ(event.seq, 10);
  EXPECT_FALSE(event.once);
  EXPECT_EQ(event.result, 0);

  // The next reply on the main port belongs to the next request: RegisterService left none.
  raw_agent::Reply state = client->call(Request(kGetServiceState).i32(kService));
  EXPECT_TRUE(state.boolean());
  EXPECT_EQ(state.i32(), 0);
  EXPECT_TRUE(state.exhausted());

  raw_agent::Reply other = client->call(Request(kGetServiceState).i32(3));
  EXPECT_FALSE(other.boolean());
  EXPECT_EQ(other.i32(), 0);
}

TEST_F(SimProtocolTest, StateChangesFollowRegistrationAndUnregistration) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterServiceStateChangedEvent, 2, 5), 0);

  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 6)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kServiceStateChanged, 1));
  EXPECT_EQ(resultOf(*client, Request(kUnregisterService).i32(kService)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kServiceStateChanged, 2));

  const std::vector<Event> changes = client->eventsOf(raw_agent::kServiceStateChanged);
  EXPECT_EQ(changes[0].seq, 5);
  EXPECT_TRUE(changes[0].state);
  EXPECT_EQ(changes[1].seq, 5);
  EXPECT_FALSE(changes[1].state);
  EXPECT_EQ(resultOf(*client, Request(kUnregisterService).i32(kService)),
            OXA_ERROR_INVALID_OPERATION);

  EXPECT_EQ(resultOf(*client, Request(kUnregisterServiceStateChangedEvent).i32(kService)), 0);
  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 7)), 0);
  barrier(*client, 1);
  EXPECT_EQ(client->eventsOf(raw_agent::kServiceStateChanged).size(), 2U);
}

TEST_F(SimProtocolTest, DiscoveryReportsTheWorldAndPlaysTheTimeline) {
  startWithScenario({}, kScenario);
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 1), 0);
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceLostEvent, 6, 2), 0);
  ASSERT_EQ(registerDelegate(*client, kRegisterContextChangedEvent, 7, 3), 0);
  ASSERT_EQ(registerDelegate(*client, kRegisterCommandReceivedEvent, 4, 4), 0);

  raw_agent::Reply before = client->call(Request(kGetFoundDeviceList).i32(kService));
  EXPECT_TRUE(before.devices().empty());
  EXPECT_EQ(before.i32(), 0);

  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kDeviceLost, 1));

  std::vector<Device> found;
  for (const Event &event : client->eventsOf(raw_agent::kDeviceFound)) {
    EXPECT_EQ(event.seq, 1);
    found.push_back(event.device);
  }
  EXPECT_EQ(found, (std::vector<Device>{kTvDevice, kEchoDevice, kSensorDevice}));

  const std::vector<Event> contexts = client->eventsOf(raw_agent::kContextChanged);
  ASSERT_EQ(contexts.size(), 1U);
  EXPECT_EQ(contexts[0].seq, 3);
  EXPECT_EQ(contexts[0].device, kTvDevice);

  const std::vector<Event> commands = client->eventsOf(raw_agent::kCommandReceived);
  ASSERT_EQ(commands.size(), 2U);
  EXPECT_EQ(commands[0].seq, 4);
  EXPECT_EQ(commands[0].command, (Command{kTv, kService, 9, 2, {0xab, 0xcd}, 0}));
  EXPECT_EQ(commands[1].command, (Command{kTv, kService, 3, 3, {0, 0, 'h', 'i'}, 1}));

  const std::vector<Event> lost = client->eventsOf(raw_agent::kDeviceLost);
  EXPECT_EQ(lost[0].seq, 2);
  EXPECT_EQ(lost[0].device, kSensorDevice);

  raw_agent::Reply after = client->call(Request(kGetFoundDeviceList).i32(kService));
  EXPECT_EQ(after.devices(), (std::vector<Device>{kTvDevice, kEchoDevice}));
  EXPECT_EQ(after.i32(), 0);
  EXPECT_TRUE(after.exhausted());

  raw_agent::Reply context = client->call(Request(kGetContext).string(kTv).i32(kService).i32(2));
  EXPECT_EQ(context.bytes(), bytesOf("off"));
  EXPECT_EQ(context.i32(), 0);
}

TEST_F(SimProtocolTest, EventsGoOnlyToTheDelegatesOfTheirHandlerId) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 1, 3), 0);
  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  barrier(*client, 1);
  EXPECT_TRUE(client->eventsOf(raw_agent::kDeviceFound).empty());

  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 2, kService), 0);
  ASSERT_EQ(resultOf(*client, Request(kStopDiscovery).i32(kService)), 0);
  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(3)), 0);
  barrier(*client, 2);
  const std::vector<Event> found = client->eventsOf(raw_agent::kDeviceFound);
  ASSERT_EQ(found.size(), 2U);  // TV and echo peer, for handlerId 3 only
  EXPECT_EQ(found[0].seq, 1);
  EXPECT_EQ(found[0].device, kTvDevice);
}

TEST_F(SimProtocolTest, EveryRegistrationGetsTheEventsUntilUnregistered) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 1), 0);
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 8), 0);
  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kDeviceFound, 4));
  std::vector<std::pair<int, std::string>> found;
  for (const Event &event : client->eventsOf(raw_agent::kDeviceFound)) {
    found.emplace_back(event.seq, event.device.address);
  }
  EXPECT_EQ(found,
            (std::vector<std::pair<int, std::string>>{{1, kTv}, {8, kTv}, {1, kEcho}, {8, kEcho}}));

  EXPECT_EQ(resultOf(*client, Request(kUnregisterDeviceFoundEvent).i32(kService)), 0);
  EXPECT_EQ(resultOf(*client, Request(kUnregisterDeviceLostEvent).i32(kService)), 0);
  EXPECT_EQ(resultOf(*client, Request(kUnregisterContextChangedEvent).i32(kService)), 0);
  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  barrier(*client, 1);
  EXPECT_EQ(client->eventsOf(raw_agent::kDeviceFound).size(), 4U);
}

TEST_F(SimProtocolTest, DeviceQueriesAnswerFromTheWorld) {
  startWithScenario();
  auto client = connect();

  raw_agent::Reply mine = client->call(Request(kGetMyDevice).i32(kService).string(""));
  EXPECT_EQ(mine.device().address, kFirstClient);
  EXPECT_EQ(mine.i32(), 0);
  EXPECT_TRUE(mine.exhausted());

  raw_agent::Reply tv = client->call(Request(kGetMyDevice).i32(kService).string(kTv));
  EXPECT_EQ(tv.device(), kTvDevice);
  EXPECT_EQ(tv.i32(), 0);

  // Unknown, and not present yet: both are no device, with an empty record.
  for (const char *address : {"FF:FF:FF:FF:FF:FF", kSensor}) {
    raw_agent::Reply none = client->call(Request(kGetMyDevice).i32(kService).string(address));
    EXPECT_EQ(none.device(), Device{});
    EXPECT_EQ(none.i32(), OXA_ERROR_NO_DEVICE);
  }

  raw_agent::Reply adv = client->call(Request(kGetAdvRawData).string(kTv));
  EXPECT_EQ(adv.bytes(), (std::vector<unsigned char>{0x02, 0x01, 0xff}));
  EXPECT_EQ(adv.i32(), 0);
  EXPECT_TRUE(adv.exhausted());
  raw_agent::Reply noAdv = client->call(Request(kGetAdvRawData).string("FF:FF:FF:FF:FF:FF"));
  EXPECT_TRUE(noAdv.bytes().empty());
  EXPECT_EQ(noAdv.i32(), OXA_ERROR_NO_DEVICE);

  raw_agent::Reply context = client->call(Request(kGetContext).string(kTv).i32(kService).i32(2));
  EXPECT_EQ(context.bytes(), bytesOf("on"));
  EXPECT_EQ(context.i32(), 0);
  EXPECT_TRUE(context.exhausted());
  raw_agent::Reply noData = client->call(Request(kGetContext).string(kTv).i32(kService).i32(3));
  EXPECT_TRUE(noData.bytes().empty());
  EXPECT_EQ(noData.i32(), OXA_ERROR_NO_DATA);
  raw_agent::Reply noDevice =
      client->call(Request(kGetContext).string("FF:FF:FF:FF:FF:FF").i32(kService).i32(2));
  EXPECT_TRUE(noDevice.bytes().empty());
  EXPECT_EQ(noDevice.i32(), OXA_ERROR_NO_DEVICE);

  EXPECT_EQ(resultOf(*client, Request(kSetAppId).i32(77)), 0);
}

TEST_F(SimProtocolTest, TwoClientsSeeEachOtherAndExchangeCommandsAndContext) {
  startWithScenario();
  auto first = connect();
  ASSERT_EQ(registerDelegate(*first, kRegisterDeviceFoundEvent, 5, 1), 0);
  ASSERT_EQ(registerDelegate(*first, kRegisterDeviceLostEvent, 6, 2), 0);
  ASSERT_EQ(registerDelegate(*first, kRegisterContextChangedEvent, 7, 3), 0);
  ASSERT_EQ(resultOf(*first, Request(kStartDiscovery).i32(kService)), 0);

  auto second = connect();
  ASSERT_EQ(registerDelegate(*second, kRegisterCommandReceivedEvent, 4, 11), 0);
  ASSERT_TRUE(runUntil([&] {
    for (const Event &event : first->eventsOf(raw_agent::kDeviceFound)) {
      if (event.device.address == kSecondClient) {
        return true;
      }
    }
    return false;
  }));

  ASSERT_EQ(resultOf(*second, Request(kUpdateContext).i32(kService).i32(1).bytes({7, 8})), 0);
  ASSERT_TRUE(waitForEvents(*first, raw_agent::kContextChanged, 1));
  const Event changed = first->eventsOf(raw_agent::kContextChanged).back();
  EXPECT_EQ(changed.device.address, kSecondClient);
  raw_agent::Reply published =
      first->call(Request(kGetContext).string(kSecondClient).i32(kService).i32(1));
  EXPECT_EQ(published.bytes(), (std::vector<unsigned char>{7, 8}));
  EXPECT_EQ(published.i32(), 0);

  const Command command{kSecondClient, kService, 5, 2, {1, 2, 3}, 41};
  ASSERT_EQ(resultOf(*first, Request(kSendCommand).i32(kService).command(command).delegate(3, 12)),
            0);
  ASSERT_TRUE(waitForEvents(*first, raw_agent::kCommandSent, 1));
  const Event sent = first->eventsOf(raw_agent::kCommandSent)[0];
  EXPECT_EQ(sent.seq, 12);
  EXPECT_EQ(sent.result, 0);
  EXPECT_EQ(sent.command, command);
  ASSERT_TRUE(waitForEvents(*second, raw_agent::kCommandReceived, 1));
  const Event received = second->eventsOf(raw_agent::kCommandReceived)[0];
  EXPECT_EQ(received.seq, 11);
  EXPECT_EQ(received.command, (Command{kFirstClient, kService, 5, 2, {1, 2, 3}, 41}));

  second.reset();
  ASSERT_TRUE(waitForEvents(*first, raw_agent::kDeviceLost, 1));
  EXPECT_EQ(first->eventsOf(raw_agent::kDeviceLost)[0].device.address, kSecondClient);
}

TEST_F(SimProtocolTest, CommandToAnUnknownAddressFailsInItsSentEvent) {
  startWithScenario();
  auto client = connect();
  const Command command{"FF:FF:FF:FF:FF:FF", kService, 5, 1, {9}, 3};
  ASSERT_EQ(resultOf(*client, Request(kSendCommand).i32(kService).command(command).delegate(3, 4)),
            0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kCommandSent, 1));
  const Event sent = client->eventsOf(raw_agent::kCommandSent)[0];
  EXPECT_EQ(sent.result, OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(sent.command, command);
}

TEST_F(SimProtocolTest, EchoPeerSendsTheCommandBack) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterCommandReceivedEvent, 4, 2), 0);
  const Command message{kEcho, kService, 3, 3, {5, 0, 'y', 'o'}, 17};
  ASSERT_EQ(resultOf(*client, Request(kSendCommand).i32(kService).command(message).delegate(3, 9)),
            0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kCommandReceived, 1));
  EXPECT_EQ(client->eventsOf(raw_agent::kCommandReceived)[0].command,
            (Command{kEcho, kService, 3, 3, {5, 0, 'y', 'o'}, 17}));
  const std::vector<Event> sent = client->eventsOf(raw_agent::kCommandSent);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].result, 0);
}

TEST_F(SimProtocolTest, UnregisterForgetsTheClientsRegistrations) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterCommandReceivedEvent, 4, 2), 0);
  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 3)), 0);
  raw_agent::Reply reply = client->call(Request(kUnregister));
  EXPECT_EQ(reply.i32(), 0);
  EXPECT_TRUE(reply.exhausted());

  raw_agent::Reply state = client->call(Request(kGetServiceState).i32(kService));
  EXPECT_FALSE(state.boolean());
  barrier(*client, 1);
  EXPECT_TRUE(client->eventsOf(raw_agent::kCommandReceived).empty());
}

TEST_F(SimProtocolTest, FailSwitchAnswersTheGivenResultAndDoesNothing) {
  startWithScenario({"--fail", "StartDiscovery=-13", "--fail", "RegisterService=-38"});
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 1), 0);
  EXPECT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), -13);
  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 2)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kServiceRegistered, 1));
  EXPECT_EQ(client->eventsOf(raw_agent::kServiceRegistered)[0].result, -38);
  raw_agent::Reply state = client->call(Request(kGetServiceState).i32(kService));
  EXPECT_FALSE(state.boolean());
  EXPECT_TRUE(client->eventsOf(raw_agent::kDeviceFound).empty());
}

TEST_F(SimProtocolTest, RefusedStateChangedRegistrationAnswersNotSupported) {
  startWithScenario({"--refuse-state-changed"});
  auto client = connect();
  EXPECT_EQ(registerDelegate(*client, kRegisterServiceStateChangedEvent, 2, 1),
            OXA_ERROR_NOT_SUPPORTED);
  ASSERT_EQ(client->send(Request(kRegisterService).i32(kService).delegate(1, 2)), 0);
  barrier(*client, 1);
  EXPECT_TRUE(client->eventsOf(raw_agent::kServiceStateChanged).empty());
}

TEST_F(SimProtocolTest, RequiredPrivilegeRejectsClientsWithoutIt) {
  startWithScenario({"--require-privilege", "http://oxa.org/privilege/agent"});
  raw_agent::Client client(context());
  ASSERT_EQ(client.connect(kAgent), 0);
  ASSERT_TRUE(runUntil([&] { return client.rejected() || client.connected(); }));
  EXPECT_TRUE(client.rejected());
  EXPECT_EQ(client.rejectError(), RPC_PORT_ERROR_PERMISSION_DENIED);

  setenv("RPC_PORT_PRIVILEGES", "http://oxa.org/privilege/other,http://oxa.org/privilege/agent", 1);
  raw_agent::Client privileged(context());
  ASSERT_EQ(privileged.connect(kAgent), 0);
  ASSERT_TRUE(runUntil([&] { return privileged.rejected() || privileged.connected(); }));
  EXPECT_TRUE(privileged.connected());
  unsetenv("RPC_PORT_PRIVILEGES");
}

TEST_F(SimProtocolTest, DelaySwitchHoldsEveryReply) {
  startWithScenario({"--delay-ms", "300"});
  auto client = connect();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(resultOf(*client, Request(kSetAppId).i32(1)), 0);
  EXPECT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));
}

TEST_F(SimProtocolTest, DropSwitchClosesTheConnectionAfterThatManyRequests) {
  startWithScenario({"--drop-after", "2"});
  auto client = connect();
  EXPECT_EQ(resultOf(*client, Request(kSetAppId).i32(1)), 0);
  EXPECT_EQ(resultOf(*client, Request(kSetAppId).i32(2)), 0);
  ASSERT_TRUE(runUntil([&] { return client->disconnected(); }));
}

TEST_F(SimProtocolTest, UnknownMethodClosesTheConnection) {
  startWithScenario();
  auto client = connect();
  ASSERT_EQ(client->send(Request(99)), 0);
  ASSERT_TRUE(runUntil([&] { return client->disconnected(); }));
}

TEST_F(SimProtocolTest, TracePrintsEachParcelAsOneLine) {
  setenv("RPC_PORT_APPID", "org.example.tracer", 1);
  startWithScenario({"--trace"});
  auto client = connect();
  const Command command{kEcho, kService, 3, 3, {0, 0, 'h'}, 5};
  ASSERT_EQ(resultOf(*client, Request(kSendCommand).i32(kService).command(command).delegate(3, 9)),
            0);
  client->call(Request(kGetMyDevice).i32(kService).string(kTv));
  const std::string peer = "[02:00:00:00:00:01 org.example.tracer] ";
  EXPECT_TRUE(sim().waitForOutput(
      "trace: <- " + peer +
      "SendCommand handlerId=1 command={address=A0:00:00:00:00:02 handlerId=1 id=3 type=3 "
      "payload=[00 00 68] seq=5} delegate={id=3 seq=9 once=0}\n"
      "trace: -> " +
      peer + "SendCommand reply result=0\n" + "trace: => " + peer +
      "CommandSent event delegate={id=3 seq=9 once=0} result=0 command={address=A0:00:00:00:00:02 "
      "handlerId=1 id=3 type=3 payload=[00 00 68] seq=5}\n"))
      << sim().output();
  EXPECT_TRUE(sim().waitForOutput("trace: -> " + peer +
                                  "GetMyDevice reply device={address=A0:00:00:00:00:01 type=1 "
                                  "name=\"TV\"} result=0\n"))
      << sim().output();
}

TEST_F(SimProtocolTest, StopsCleanlyOnSigterm) {
  startWithScenario();
  auto client = connect();
  sim().kill(SIGTERM);
  const std::optional<int> status = sim().waitExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 0);
  EXPECT_NE(sim().output().find("oxa-agent-sim: stopped\n"), std::string::npos);
  ASSERT_TRUE(runUntil([&] { return client->disconnected(); }));
}

TEST_F(SimProtocolTest, BadScenarioIsRefusedWithItsReason) {
  const std::string path = writeScenario(
      R"({"devices": [], "timeline": [{"at_ms": 1, "action": "appear", "address": "X"}]})");
  oxa::test::ChildProgram sim(oxa::test::simCommand(runtimeDir(), {"--scenario", path}));
  const std::optional<int> status = sim.waitExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(WEXITSTATUS(*status), 1);
  EXPECT_NE(sim.output().find("oxa-agent-sim: timeline names unknown device X\n"),
            std::string::npos)
      << sim.output();
}

TEST_F(SimProtocolTest, BuiltInWorldHasItsDevicesAndAnEchoPeer) {
  startSim();
  auto client = connect();
  ASSERT_EQ(registerDelegate(*client, kRegisterDeviceFoundEvent, 5, 1), 0);
  ASSERT_EQ(registerDelegate(*client, kRegisterCommandReceivedEvent, 4, 2), 0);
  ASSERT_EQ(resultOf(*client, Request(kStartDiscovery).i32(kService)), 0);
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kDeviceFound, 3));
  std::vector<Device> found;
  for (const Event &event : client->eventsOf(raw_agent::kDeviceFound)) {
    found.push_back(event.device);
  }
  EXPECT_EQ(found, (std::vector<Device>{{"A0:00:00:00:00:01", 1, "Living Room TV"},
                                        {"A0:00:00:00:00:02", 2, "Kitchen Speaker"},
                                        {"A0:00:00:00:00:03", 5, "Echo Peer"}}));

  const Command ping{"A0:00:00:00:00:03", kService, 3, 3, {0, 0, 'x'}, 1};
  ASSERT_EQ(resultOf(*client, Request(kSendCommand).i32(kService).command(ping).delegate(3, 3)), 0);
  // The echo, then (from 100 ms on) the timeline's sensor and the TV's message.
  ASSERT_TRUE(waitForEvents(*client, raw_agent::kCommandReceived, 2));
  const std::vector<Event> received = client->eventsOf(raw_agent::kCommandReceived);
  EXPECT_EQ(received[0].command, (Command{"A0:00:00:00:00:03", kService, 3, 3, {0, 0, 'x'}, 1}));
  EXPECT_EQ(received[1].command.address, "A0:00:00:00:00:01");
  EXPECT_EQ(received[1].command.payload, bytesOf(std::string("\0\0hello from the TV", 19)));
  EXPECT_EQ(client->eventsOf(raw_agent::kDeviceFound).back().device,
            (Device{"A0:00:00:00:00:04", 4, "Garden Sensor"}));
}

TEST_F(SimProtocolTest, ListensUnderTheGivenAppId) {
  startSim({"--appid", "org.example.other-agent"});
  EXPECT_NE(sim().output().find(
                "oxa-agent-sim: listening on org.example.other-agent/OxaAgentInterface\n"),
            std::string::npos);
  raw_agent::Client client(context());
  ASSERT_EQ(client.connect("org.example.other-agent"), 0);
  ASSERT_TRUE(runUntil([&] { return client.connected() || client.rejected(); }));
  EXPECT_TRUE(client.connected());
}

TEST_F(SimProtocolTest, PrintsTheBuiltInScenario) {
  oxa::test::ChildProgram sim(oxa::test::simCommand(runtimeDir(), {"--print-scenario"}));
  const std::optional<int> status = sim.waitExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(WEXITSTATUS(*status), 0);
  EXPECT_NE(sim.output().find(R"("name": "Echo Peer", "echo": true)"), std::string::npos)
      << sim.output();
}

}  // namespace
