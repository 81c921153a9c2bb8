// oxactl against a simulator whose world a tool changes through its control socket.
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>

#include "ControlClient.h"
#include "OxactlTest.h"

namespace {

using oxa::test::ControlClient;
using oxa::test::OxactlResult;

constexpr char kAddLamp[] =
    R"({"action":"add","device":{"address":"B0:00:00:00:00:01","name":"Added Lamp","type":2}})";
constexpr char kOk[] = R"({"ok": true})";

class OxactlControlTest : public oxa::test::OxactlTest {
 protected:
  void SetUp() override {
    startSim({"--control", controlPath_});
    tool_.emplace(controlPath_);
    ASSERT_TRUE(tool_->connected());
  }

  ControlClient &tool() { return *tool_; }

 private:
  const std::string controlPath_ = runtimeDir() + "/control.sock";
  std::optional<ControlClient> tool_;
};

TEST_F(OxactlControlTest, DevicesListsADeviceAddedThroughTheControlSocket) {
  EXPECT_EQ(tool().ask(kAddLamp), kOk);
  const OxactlResult result = run({"devices", "--timeout", "1"});
  EXPECT_EQ(result.output,
            "A0:00:00:00:00:01   1  Living Room TV   0201061aff75\n"
            "A0:00:00:00:00:02   2  Kitchen Speaker  020106\n"
            "A0:00:00:00:00:03   5  Echo Peer        6563686f\n"
            "B0:00:00:00:00:01   2  Added Lamp       -\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(OxactlControlTest, ScanSeesADeviceAddedAndRemovedWhileItRuns) {
  const auto scan = start({"--json", "scan"});
  // After the built-in timeline (its sensor leaves at 400 ms), nothing else happens meanwhile.
  ASSERT_TRUE(scan->waitForOutput(R"({"event":"lost","address":"A0:00:00:00:00:04")"))
      << scan->output();
  EXPECT_EQ(tool().ask(kAddLamp), kOk);
  const std::string found =
      R"({"event":"found","address":"B0:00:00:00:00:01","type":2,"name":"Added Lamp","adv_data":""})"
      "\n";
  ASSERT_TRUE(scan->waitForOutput(found)) << scan->output();
  EXPECT_EQ(tool().ask(R"({"action":"remove","address":"B0:00:00:00:00:01"})"), kOk);
  const std::string lost =
      R"({"event":"lost","address":"B0:00:00:00:00:01","type":2,"name":"Added Lamp"})"
      "\n";
  ASSERT_TRUE(scan->waitForOutput(found + lost)) << scan->output();
  scan->kill(SIGINT);
  EXPECT_EQ(finish(*scan).status, 0);
}

}  // namespace
