// A proxy destroyed on an application thread: while the loop thread is delivering its event, the
// event in progress finishes, nothing else is delivered, and neither thread touches the other's
// state unsynchronised; while no loop runs, the connection ends.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "PlatformHarness.h"

namespace oxa::test {
namespace {

using Clock = std::chrono::steady_clock;

// Spins until `flag` is set or five seconds pass. Relaxed on purpose: the test must not add an
// ordering between the threads that the library itself does not provide.
bool awaitFlag(const std::atomic<bool> &flag) {
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  while (!flag.load(std::memory_order_relaxed)) {
    if (Clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

// A stub and a proxy connected to it on this test's loop.
class CrossThreadTest : public TransportTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, stub.listen());
    instance = connect(stub, proxy);
    ASSERT_FALSE(instance.empty());
  }

  TestStub stub;
  TestProxy proxy;
  std::string instance;
};

TEST_F(CrossThreadTest, DestroyOnAnotherThreadDuringAnEventEndsDelivery) {
  std::atomic<bool> inEvent{false};
  std::atomic<bool> destroyed{false};
  std::atomic<int> deliveries{0};
  proxy.onReceived = [&] {
    deliveries.fetch_add(1, std::memory_order_relaxed);
    inEvent.store(true, std::memory_order_relaxed);
    EXPECT_TRUE(awaitFlag(destroyed));
  };
  std::thread application([&] {
    if (awaitFlag(inEvent)) {
      proxy.destroy();
    }
    destroyed.store(true, std::memory_order_relaxed);
  });
  for (int value : {1, 2, 3}) {
    ASSERT_EQ(0, stub.sendEvent(instance, value));
  }
  const bool ended = runUntil([&] { return destroyed.load(std::memory_order_relaxed); });
  application.join();
  ASSERT_TRUE(ended);
  EXPECT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  EXPECT_EQ(1, deliveries.load());
  EXPECT_EQ(0, proxy.disconnectedCount);
}

TEST_F(CrossThreadTest, DestroyOnAnotherThreadWhileNoLoopRunsEndsTheConnection) {
  ASSERT_EQ(0, stub.sendEvent(instance, 1));

  std::thread([&] { proxy.destroy(); }).join();
  EXPECT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  EXPECT_TRUE(proxy.events.empty());
  EXPECT_EQ(0, proxy.disconnectedCount);
}

}  // namespace
}  // namespace oxa::test
