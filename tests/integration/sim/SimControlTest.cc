// The simulator's control socket: each action as a client of the library sees it, and lines
// that are refused without disturbing the simulator.
#include <gtest/gtest.h>
#include <oxa.h>

#include <string>
#include <vector>

#include "ControlClient.h"
#include "LibraryTest.h"

namespace {

using oxa::test::Bytes;
using oxa::test::CommandSeen;
using oxa::test::ControlClient;
using oxa::test::DeviceSeen;
using oxa::test::Events;
using oxa::test::MessageSeen;

constexpr char kOk[] = R"({"ok": true})";
constexpr char kLamp[] = "A0:00:00:00:00:01";
constexpr char kHidden[] = "A0:00:00:00:00:02";
constexpr char kAdded[] = "B0:00:00:00:00:01";

constexpr char kScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 2, "name": "Lamp"},
    {"address": "A0:00:00:00:00:02", "type": 4, "name": "Hidden", "present": false}
  ]
})";

const DeviceSeen kLampDevice{kLamp, "Lamp", OXA_DEVICE_TYPE_2};
const DeviceSeen kHiddenDevice{kHidden, "Hidden", OXA_DEVICE_TYPE_4};
const DeviceSeen kAddedDevice{kAdded, "Added Lamp", OXA_DEVICE_TYPE_2};

std::string refused(const std::string &reason) {
  return R"({"ok": false, "error": ")" + reason + "\"}";
}

class SimControlTest : public oxa::test::LibraryTest {
 protected:
  std::string controlPath() const { return runtimeDir() + "/control.sock"; }

  // The simulator with the test's world and a control socket; this process connected through
  // the library with a discovering service of type 1 that records every event.
  void startDiscovering() {
    startSim({"--control", controlPath(), "--scenario", writeScenario(kScenario)});
    initialize();
    service_ = createService(OXA_SERVICE_TYPE_1);
    oxa_service_h service = service_.get();
    ASSERT_EQ(oxa_set_device_found_cb(service, &Events::onFound, &events), OXA_ERROR_NONE);
    ASSERT_EQ(oxa_set_device_lost_cb(service, &Events::onLost, &events), OXA_ERROR_NONE);
    ASSERT_EQ(oxa_set_context_changed_cb(service, &Events::onContextChanged, &events),
              OXA_ERROR_NONE);
    ASSERT_EQ(oxa_set_command_received_cb(service, &Events::onCommandReceived, &events),
              OXA_ERROR_NONE);
    ASSERT_EQ(oxa_set_simple_message_received_cb(service, &Events::onMessageReceived, &events),
              OXA_ERROR_NONE);
    ASSERT_EQ(oxa_start_discovery(service), OXA_ERROR_NONE);
    ASSERT_TRUE(waitForCount(events.found, 1));
    ASSERT_EQ(events.found, std::vector<DeviceSeen>{kLampDevice});
  }

  std::vector<DeviceSeen> foundDevices() const {
    std::vector<DeviceSeen> seen;
    EXPECT_EQ(oxa_foreach_found_device(
                  service_.get(),
                  [](oxa_device_h device, void *data) {
                    static_cast<std::vector<DeviceSeen> *>(data)->push_back(
                        oxa::test::readDevice(device));
                    return true;
                  },
                  &seen),
              OXA_ERROR_NONE);
    return seen;
  }

  oxa::test::Service service_;
};

TEST_F(SimControlTest, AddedDeviceIsFoundAndListed) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_TRUE(control.connected());
  EXPECT_EQ(
      control.ask(
          R"({"action":"add","device":{"address":"B0:00:00:00:00:01","name":"Added Lamp","type":2}})"),
      kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
  EXPECT_EQ(events.found[1], kAddedDevice);
  EXPECT_EQ(foundDevices(), (std::vector<DeviceSeen>{kLampDevice, kAddedDevice}));
}

TEST_F(SimControlTest, AddedDeviceAnswersWithItsDataAndContexts) {
  startDiscovering();
  ControlClient control(controlPath());
  // One line: a newline would end the action.
  ASSERT_EQ(control.ask(R"({"action": "add", "device": {"address": "B0:00:00:00:00:01", )"
                        R"("name": "Added Lamp", "type": 2, "adv_data": {"hex": "0201ff"}, )"
                        R"("contexts": [{"service": 1, "context": 2, "text": "on"}]}})"),
            kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
  const oxa::test::Device device = [&] {
    oxa_device_h handle = nullptr;
    EXPECT_EQ(oxa_get_my_device(service_.get(), kAdded, &handle), OXA_ERROR_NONE);
    return oxa::test::Device(handle);
  }();
  ASSERT_NE(device, nullptr);
  unsigned char *value = nullptr;
  int length = 0;
  ASSERT_EQ(oxa_device_get_raw_context(device.get(), &value, &length), OXA_ERROR_NONE);
  EXPECT_EQ(Bytes(value, value + length), (Bytes{0x02, 0x01, 0xff}));
  std::free(value);
  ASSERT_EQ(
      oxa_device_get_context(device.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2, &value, &length),
      OXA_ERROR_NONE);
  EXPECT_EQ(Bytes(value, value + length), (Bytes{'o', 'n'}));
  std::free(value);
}

TEST_F(SimControlTest, AddedAbsentDeviceIsNotFoundUntilItAppears) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(control.ask(R"({"action": "add", "device": {"address": "B0:00:00:00:00:01", )"
                        R"("name": "Added Lamp", "type": 2, "present": false}})"),
            kOk);
  EXPECT_EQ(foundDevices(), std::vector<DeviceSeen>{kLampDevice});
  ASSERT_EQ(control.ask(R"({"action": "appear", "address": "B0:00:00:00:00:01"})"), kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
  EXPECT_EQ(events.found[1], kAddedDevice);
}

TEST_F(SimControlTest, RemovedDeviceIsLostAndNoLongerListed) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(control.ask(R"({"action": "remove", "address": "A0:00:00:00:00:01"})"), kOk);
  ASSERT_TRUE(waitForCount(events.lost, 1));
  EXPECT_EQ(events.lost, std::vector<DeviceSeen>{kLampDevice});
  EXPECT_EQ(foundDevices(), std::vector<DeviceSeen>{});
  EXPECT_EQ(control.ask(R"({"action": "remove", "address": "A0:00:00:00:00:01"})"),
            refused("unknown device A0:00:00:00:00:01"));
}

TEST_F(SimControlTest, AppearAndDisappearAreFoundAndLost) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(control.ask(R"({"action": "appear", "address": "A0:00:00:00:00:02"})"), kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
  EXPECT_EQ(events.found[1], kHiddenDevice);
  ASSERT_EQ(control.ask(R"({"action": "disappear", "address": "A0:00:00:00:00:02"})"), kOk);
  ASSERT_TRUE(waitForCount(events.lost, 1));
  EXPECT_EQ(events.lost, std::vector<DeviceSeen>{kHiddenDevice});
  EXPECT_EQ(foundDevices(), std::vector<DeviceSeen>{kLampDevice});
}

TEST_F(SimControlTest, ContextActionStoresAndReportsTheData) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(
      control.ask(
          R"({"action": "context", "address": "A0:00:00:00:00:01", "service": 1, "context": 3, "hex": "0a0b"})"),
      kOk);
  ASSERT_TRUE(waitForCount(events.contextChanged, 1));
  EXPECT_EQ(events.contextChanged, std::vector<DeviceSeen>{kLampDevice});
  oxa_device_h handle = nullptr;
  ASSERT_EQ(oxa_get_my_device(service_.get(), kLamp, &handle), OXA_ERROR_NONE);
  const oxa::test::Device lamp(handle);
  unsigned char *value = nullptr;
  int length = 0;
  ASSERT_EQ(
      oxa_device_get_context(lamp.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_3, &value, &length),
      OXA_ERROR_NONE);
  EXPECT_EQ(Bytes(value, value + length), (Bytes{0x0a, 0x0b}));
  std::free(value);
}

TEST_F(SimControlTest, CommandActionIsReceivedFromTheDevice) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(
      control.ask(
          R"({"action": "command", "address": "A0:00:00:00:00:01", "service": 1, "id": 9, "type": 2, "hex": "abcd"})"),
      kOk);
  ASSERT_TRUE(waitForCount(events.commandsReceived, 1));
  EXPECT_EQ(events.commandsReceived,
            (std::vector<CommandSeen>{{kLamp, OXA_COMMAND_TYPE_2, 9, {0xab, 0xcd}}}));
}

TEST_F(SimControlTest, MessageActionIsReceivedAsASimpleMessage) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_EQ(
      control.ask(
          R"({"action": "message", "address": "A0:00:00:00:00:01", "service": 1, "text": "hi"})"),
      kOk);
  ASSERT_TRUE(waitForCount(events.messagesReceived, 1));
  EXPECT_EQ(events.messagesReceived, (std::vector<MessageSeen>{{kLamp, {'h', 'i'}}}));
}

TEST_F(SimControlTest, MalformedLinesAreRefusedWithTheirReason) {
  startDiscovering();
  ControlClient control(controlPath());
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"([1, 2])", "a control line must be a JSON object"},
      {R"({"address": "A0:00:00:00:00:01"})", R"(field \"action\" is missing)"},
      {R"({"action": 5})", R"(field \"action\" must be a string)"},
      {R"({"action": "explode", "address": "A0:00:00:00:00:01"})",
       R"(unknown action \"explode\" (expected add, remove, appear, disappear, context, command, message))"},
      {R"({"action": "appear"})", R"(field \"address\" is missing)"},
      {R"({"action": "appear", "address": "C0:00:00:00:00:09"})",
       "unknown device C0:00:00:00:00:09"},
      {R"({"action": "appear", "address": "02:00:00:00:00:01"})",
       "02:00:00:00:00:01 is a connected client, not a simulated device"},
      {R"({"action": "context", "address": "A0:00:00:00:00:01", "service": 1, "text": "x"})",
       R"(field \"context\" is missing)"},
      {R"({"action": "command", "address": "A0:00:00:00:00:01", "service": "1", "id": 1, "type": 1})",
       R"(field \"service\" must be an integer)"},
      {R"({"action": "message", "address": "A0:00:00:00:00:01", "service": 1, "hex": "abc"})",
       R"(hex data \"abc\" has an odd number of digits)"},
      {R"({"action": "message", "address": "A0:00:00:00:00:01", "service": 1, "hex": "zz"})",
       "invalid hex digit 'z'"},
      {R"({"action": "message", "address": "A0:00:00:00:00:01", "service": 4294967296})",
       R"(field \"service\" is out of the range of a 32-bit integer)"},
      {R"({"action": "add"})", R"(field \"device\" is missing)"},
      {R"({"action": "add", "device": {"name": "x"}})", R"(field \"address\" is missing)"},
      {R"({"action": "add", "device": {"address": "B0:00:00:00:00:01", "type": 2.5}})",
       R"(field \"type\" must be an integer)"},
      {R"({"action": "add", "device": {"address": "B0:00:00:00:00:01", "echo": 1}})",
       R"(field \"echo\" must be true or false)"},
      {R"({"action": "add", "device": {"address": "A0:00:00:00:00:01"}})",
       "device A0:00:00:00:00:01 already exists"},
      {R"({"action": "remove", "address": "02:00:00:00:00:01"})",
       "02:00:00:00:00:01 is a connected client, not a simulated device"},
  };
  for (const auto &[line, reason] : cases) {
    EXPECT_EQ(control.ask(line), refused(reason)) << line;
  }
  // Not JSON at all: the parser's reason follows the prefix.
  const std::optional<std::string> answer = control.ask("appear A0:00:00:00:00:01");
  ASSERT_TRUE(answer.has_value());
  EXPECT_EQ(answer->rfind(R"({"ok": false, "error": "invalid JSON: )", 0), 0U) << *answer;
  // Nothing was changed, and the simulator goes on.
  EXPECT_EQ(events.found, std::vector<DeviceSeen>{kLampDevice});
  EXPECT_EQ(events.lost, std::vector<DeviceSeen>{});
  EXPECT_EQ(control.ask(R"({"action": "appear", "address": "A0:00:00:00:00:02"})"), kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
  EXPECT_EQ(events.found[1], kHiddenDevice);
}

TEST_F(SimControlTest, SeveralLinesInOneWriteGetOneAnswerEachInOrder) {
  startDiscovering();
  ControlClient control(controlPath());
  ASSERT_TRUE(
      control.write("{\"action\": \"appear\", \"address\": \"A0:00:00:00:00:02\"}\r\n"
                    "nonsense\n"
                    "{\"action\": \"disappear\", \"address\": \"A0:00:00:00:00:02\"}\n"));
  EXPECT_EQ(control.readLine(), kOk);
  const std::optional<std::string> second = control.readLine();
  ASSERT_TRUE(second.has_value());
  EXPECT_EQ(second->rfind(R"({"ok": false, "error": "invalid JSON: )", 0), 0U) << *second;
  EXPECT_EQ(control.readLine(), kOk);
  ASSERT_TRUE(waitForCount(events.lost, 1));
  EXPECT_EQ(events.lost, std::vector<DeviceSeen>{kHiddenDevice});
}

TEST_F(SimControlTest, OverlongLineDropsThatToolOnly) {
  startDiscovering();
  ControlClient greedy(controlPath());
  ControlClient polite(controlPath());
  // More than any line may hold, without a newline.
  const std::string flood(512 * 1024, 'x');
  greedy.write(flood, std::chrono::seconds(2));
  EXPECT_TRUE(greedy.closedBySimulator());
  EXPECT_EQ(polite.ask(R"({"action": "appear", "address": "A0:00:00:00:00:02"})"), kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
}

TEST_F(SimControlTest, ToolThatNeverReadsItsAnswersIsDropped) {
  startDiscovering();
  ControlClient deaf(controlPath());
  // A context of a service type nobody subscribed to: no events, only answers.
  const std::string line =
      R"({"action": "context", "address": "A0:00:00:00:00:01", "service": 6, "context": 1})"
      "\n";
  std::string batch;
  for (int i = 0; i < 1000; ++i) {
    batch += line;
  }
  // Its answers fill the socket and then the simulator's bounded queue; the writes fail once the
  // simulator has closed the connection. 100 batches are far more than both can hold.
  bool dropped = false;
  for (int i = 0; i < 100 && !dropped; ++i) {
    dropped = !deaf.write(batch);
  }
  EXPECT_TRUE(dropped);
  EXPECT_TRUE(deaf.closedBySimulator());
  ControlClient next(controlPath());
  EXPECT_EQ(next.ask(R"({"action": "appear", "address": "A0:00:00:00:00:02"})"), kOk);
  ASSERT_TRUE(waitForCount(events.found, 2));
}

}  // namespace
