// oxactl scan and monitor: live events from the simulator's timeline, and a clean end on a signal.
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "OxactlTest.h"

namespace {

using oxa::test::OxactlResult;

// The built-in world once discovery runs: three devices at once, then its timeline (the sensor
// comes at 100 ms, the TV's context changes at 200 ms, the TV sends a message at 300 ms, the
// sensor leaves at 400 ms).
constexpr char kFoundText[] =
    "found            A0:00:00:00:00:01   1  Living Room TV    0201061aff75\n"
    "found            A0:00:00:00:00:02   2  Kitchen Speaker   020106\n"
    "found            A0:00:00:00:00:03   5  Echo Peer         6563686f\n"
    "found            A0:00:00:00:00:04   4  Garden Sensor     -\n"
    "context_changed  A0:00:00:00:00:01   1  Living Room TV    -\n";
constexpr char kLostText[] = "lost             A0:00:00:00:00:04   4  Garden Sensor     -\n";
// "hello from the TV" behind the two header bytes of a simple message.
constexpr char kReceivedText[] =
    "command          A0:00:00:00:00:01  type 3  id 3  000068656c6c6f2066726f6d20746865205456\n"
    "message          A0:00:00:00:00:01  68656c6c6f2066726f6d20746865205456\n";

// Long enough for the whole timeline, also on a loaded machine.
constexpr char kTimelineTimeout[] = "1.5";

class OxactlEventsTest : public oxa::test::OxactlTest {};

TEST_F(OxactlEventsTest, ScanPrintsFoundLostAndContextChangedUntilTheTimeout) {
  startSim();
  const OxactlResult result = run({"scan", "--timeout", kTimelineTimeout});
  EXPECT_EQ(result.output, std::string(kFoundText) + kLostText);
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlEventsTest, ScanAsJson) {
  startSim();
  const OxactlResult result = run({"--json", "--timeout", kTimelineTimeout, "scan"});
  EXPECT_EQ(
      result.output,
      R"({"event":"found","address":"A0:00:00:00:00:01","type":1,"name":"Living Room TV","adv_data":"0201061aff75"})"
      "\n"
      R"({"event":"found","address":"A0:00:00:00:00:02","type":2,"name":"Kitchen Speaker","adv_data":"020106"})"
      "\n"
      R"({"event":"found","address":"A0:00:00:00:00:03","type":5,"name":"Echo Peer","adv_data":"6563686f"})"
      "\n"
      R"({"event":"found","address":"A0:00:00:00:00:04","type":4,"name":"Garden Sensor","adv_data":""})"
      "\n"
      R"({"event":"context_changed","address":"A0:00:00:00:00:01","type":1,"name":"Living Room TV"})"
      "\n"
      R"({"event":"lost","address":"A0:00:00:00:00:04","type":4,"name":"Garden Sensor"})"
      "\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlEventsTest, CtrlCEndsScanCleanly) {
  startSim({"--trace"});
  const auto scan = start({"scan"});
  ASSERT_TRUE(scan->waitForOutput(kLostText)) << scan->output();
  scan->kill(SIGINT);
  const OxactlResult result = finish(*scan);
  EXPECT_EQ(result.output, std::string(kFoundText) + kLostText);
  EXPECT_EQ(result.status, 0);

  // Discovery stopped, subscriptions ended, service unregistered, client gone: in this order.
  const std::string client = "<- [02:00:00:00:00:01 org.example.oxactl] ";
  for (const char *request : {"StopDiscovery handlerId=1", "UnregisterContextChangedEvent",
                              "UnregisterService handlerId=1", "Unregister\n"}) {
    ASSERT_TRUE(sim().waitForOutput(client + request)) << request << "\n" << sim().output();
  }
  const std::string &trace = sim().output();
  EXPECT_LT(trace.find(client + "StopDiscovery"), trace.find(client + "UnregisterService"));
  EXPECT_LT(trace.find(client + "UnregisterService"), trace.find(client + "Unregister\n"));
}

TEST_F(OxactlEventsTest, MonitorWithScanPrintsEveryKindOfEvent) {
  startSim();
  const OxactlResult result = run({"monitor", "--scan", "--timeout", kTimelineTimeout});
  EXPECT_EQ(result.output,
            std::string("state            1\n") + kFoundText + kReceivedText + kLostText);
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlEventsTest, MonitorAsJson) {
  startSim();
  const OxactlResult result =
      run({"monitor", "--json", "--scan", "--timeout", kTimelineTimeout, "--service", "1"});
  const std::string expectedStart =
      R"({"event":"state","state":1})"
      "\n"
      R"({"event":"found","address":"A0:00:00:00:00:01","type":1,"name":"Living Room TV","adv_data":"0201061aff75"})"
      "\n";
  const std::string expectedReceived =
      R"({"event":"command","address":"A0:00:00:00:00:01","type":3,"id":3,"payload":"000068656c6c6f2066726f6d20746865205456"})"
      "\n"
      R"({"event":"message","address":"A0:00:00:00:00:01","data":"68656c6c6f2066726f6d20746865205456"})"
      "\n";
  EXPECT_EQ(result.output.substr(0, expectedStart.size()), expectedStart);
  EXPECT_NE(result.output.find(expectedReceived), std::string::npos) << result.output;
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlEventsTest, MonitorSeesAnotherClientPublishAndEndsOnCtrlC) {
  startSim({"--trace"});
  const auto monitor = start({"monitor"}, "org.example.monitor");
  ASSERT_TRUE(monitor->waitForOutput("state            1\n")) << monitor->output();

  const OxactlResult publish = run({"publish", "2", "--text", "on"});
  EXPECT_EQ(publish.output, "published context 2: OXA_ERROR_NONE\n");
  EXPECT_EQ(publish.status, 0);
  ASSERT_TRUE(monitor->waitForOutput("context_changed")) << monitor->output();
  EXPECT_TRUE(
      sim().waitForOutput("<- [02:00:00:00:00:02 org.example.oxactl] UpdateContext handlerId=1 "
                          "contextType=2 data=[6f 6e]"))
      << sim().output();

  monitor->kill(SIGTERM);
  const OxactlResult result = finish(*monitor);
  EXPECT_EQ(result.output,
            "state            1\n"
            "context_changed  02:00:00:00:00:02   1  org.example.oxactl  -\n");
  EXPECT_EQ(result.status, 0);
}

}  // namespace
