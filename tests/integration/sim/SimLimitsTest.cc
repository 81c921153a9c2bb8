// The simulator's bounds: a request that claims more bytes than it holds costs nothing and
// closes only its own connection.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "RawAgentClient.h"
#include "SimTest.h"

namespace {

using raw_agent::Request;

constexpr int kSendCommand = 7;
constexpr int kUpdateContext = 22;
constexpr int kStartDiscovery = 16;
constexpr int kGetFoundDeviceList = 18;
constexpr int kSetAppId = 23;
constexpr int kClaimedBytes = 0x7fffffff;
constexpr long kMaxPeakGrowthKb = 64 * 1024;

// The peak virtual size of process `pid`, in KiB; -1 if unreadable.
long vmPeakKb(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string key;
  long value = -1;
  while (status >> key) {
    if (key == "VmPeak:") {
      status >> value;
      return value;
    }
    status.ignore(4096, '\n');
  }
  return -1;
}

class SimLimitsTest : public oxa::test::SimTest {
 protected:
  // Each thread of the simulator reserves a malloc arena of 64 MiB the first time it allocates,
  // whenever that is; one arena keeps its peak figure to what the requests themselves cost.
  SimLimitsTest() { setenv("MALLOC_ARENA_MAX", "1", 1); }
  ~SimLimitsTest() override { unsetenv("MALLOC_ARENA_MAX"); }

  // A client makes a request and reads its reply: the simulator serves it.
  static void expectServed(raw_agent::Client &client) {
    raw_agent::Reply reply = client.call(Request(kSetAppId).i32(1));
    ASSERT_TRUE(reply.valid());
    EXPECT_EQ(reply.i32(), 0);
    EXPECT_TRUE(reply.exhausted());
  }
};

TEST_F(SimLimitsTest, ByteCountBeyondTheParcelClosesOnlyThatConnection) {
  setenv("RPC_PORT_APPID", "org.example.liar", 1);
  startSim({"--trace"});
  const long peakBefore = vmPeakKb(sim().pid());
  ASSERT_GT(peakBefore, 0);
  auto bystander = connectRaw();
  auto liar = connectRaw();
  ASSERT_NE(bystander, nullptr);
  ASSERT_NE(liar, nullptr);

  // UpdateContext: handlerId, context type, then a byte array that claims 2 GiB and holds none.
  ASSERT_EQ(liar->send(Request(kUpdateContext).i32(1).i32(2).i32(kClaimedBytes)), 0);
  ASSERT_TRUE(runUntil([&] { return liar->disconnected(); }));
  EXPECT_TRUE(
      sim().waitForOutput("trace: -- [02:00:00:00:00:02 org.example.liar] unreadable "
                          "request, closing the connection\n"))
      << sim().output();
  expectServed(*bystander);
  EXPECT_LT(vmPeakKb(sim().pid()) - peakBefore, kMaxPeakGrowthKb);
}

TEST_F(SimLimitsTest, PayloadCountBeyondTheParcelClosesOnlyThatConnection) {
  startSim();
  const long peakBefore = vmPeakKb(sim().pid());
  auto bystander = connectRaw();
  auto liar = connectRaw();
  ASSERT_NE(bystander, nullptr);
  ASSERT_NE(liar, nullptr);

  // SendCommand: a command record whose payload claims 2 GiB, followed by three real bytes.
  ASSERT_EQ(liar->send(Request(kSendCommand)
                           .i32(1)
                           .string("A0:00:00:00:00:03")
                           .i32(1)
                           .i32(1)
                           .i32(1)
                           .i32(kClaimedBytes)
                           .i32(0x00414243)),
            0);
  ASSERT_TRUE(runUntil([&] { return liar->disconnected(); }));
  expectServed(*bystander);
  auto next = connectRaw();
  ASSERT_NE(next, nullptr);
  expectServed(*next);
  EXPECT_LT(vmPeakKb(sim().pid()) - peakBefore, kMaxPeakGrowthKb);
}

TEST_F(SimLimitsTest, ByteArrayOfTheRightSizeIsStillRead) {
  startSim({"--trace"});
  auto client = connectRaw();
  ASSERT_NE(client, nullptr);
  // Over the first 4 KiB of room, so the array grows while it is read.
  const std::vector<unsigned char> data(10003, 0xab);
  raw_agent::Reply reply = client->call(Request(kUpdateContext).i32(1).i32(2).bytes(data));
  ASSERT_TRUE(reply.valid());
  EXPECT_EQ(reply.i32(), 0);
  std::string hex;
  for (size_t i = 0; i < data.size(); ++i) {
    hex += i == 0 ? "ab" : " ab";
  }
  EXPECT_TRUE(sim().waitForOutput("UpdateContext handlerId=1 contextType=2 data=[" + hex + "]\n"))
      << sim().output().substr(0, 2000);
}

TEST_F(SimLimitsTest, ClosedConnectionsLeaveNoDeviceBehind) {
  constexpr char kScenario[] = R"({"devices": [{"address": "A0:00:00:00:00:01", "name": "TV"}]})";
  setenv("RPC_PORT_APPID", "org.example.cycler", 1);
  startSim({"--scenario", writeScenario(kScenario)});
  constexpr int kCycles = 200;
  for (int i = 0; i < kCycles; ++i) {
    auto client = connectRaw();
    ASSERT_NE(client, nullptr);
    expectServed(*client);
  }
  auto watcher = connectRaw();
  ASSERT_NE(watcher, nullptr);
  auto other = connectRaw();
  ASSERT_NE(other, nullptr);
  ASSERT_EQ(watcher->call(Request(kStartDiscovery).i32(1)).i32(), 0);
  raw_agent::Reply reply = watcher->call(Request(kGetFoundDeviceList).i32(1));
  // Only the scenario's device and the one other client still connected, which got the next
  // address after the watcher's.
  EXPECT_EQ(reply.devices(),
            (std::vector<raw_agent::Device>{{"A0:00:00:00:00:01", 99, "TV"},
                                            {"02:00:00:00:00:CA", 1, "org.example.cycler"}}));
  EXPECT_EQ(reply.i32(), 0);
}

}  // namespace
