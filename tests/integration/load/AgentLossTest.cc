// The agent dies (SIGKILL) or freezes (SIGSTOP, past the read timeout) in the middle of an
// application's request loop: every call still returns within the timeout, the application
// hears of the loss once, and initializing again reconnects once the agent is back.
#include <gtest/gtest.h>
#include <oxa.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "LoadSupport.h"

namespace oxa::test {
namespace {

constexpr int kTimeoutMs = 500;
// Scheduling on a loaded 2-core machine, on top of the timeout itself.
constexpr std::chrono::milliseconds kCallBound{kTimeoutMs + 500};
constexpr int kCallsBefore = 10;
constexpr int kCallsAfter = 10;

struct Call {
  int result = 0;
  std::chrono::milliseconds took{0};
};

class AgentLossTest : public LibraryTest {
 protected:
  AgentLossTest() {
    setenv("RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
    setenv("OXA_CALL_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
  }
  ~AgentLossTest() override {
    unsetenv("RPC_PORT_READ_TIMEOUT_MS");
    unsetenv("OXA_CALL_TIMEOUT_MS");
  }

  void SetUp() override {
    startSim({"--scenario", writeScenario(kLoadScenario)});
    initialize();
    service_ = createService(OXA_SERVICE_TYPE_1);
  }

  // Runs the request loop; `interrupt` hits the agent after kCallsBefore calls.
  std::vector<Call> requestLoop(const std::function<void()> &interrupt) {
    std::vector<Call> calls;
    for (int call = 0; call < kCallsBefore + kCallsAfter; ++call) {
      if (call == kCallsBefore) {
        interrupt();
      }
      const auto start = Clock::now();
      const int result = oxa_stop_discovery(service_.get());
      calls.push_back({result, elapsedSince(start)});
    }
    return calls;
  }

  // The calls before the interruption succeeded, every call ended in time, the later ones failed,
  // and the application heard of the loss exactly once.
  void expectLossHandled(const std::vector<Call> &calls) {
    for (size_t call = 0; call < calls.size(); ++call) {
      EXPECT_LT(calls[call].took, kCallBound) << "call " << call;
      if (call < kCallsBefore) {
        EXPECT_EQ(calls[call].result, OXA_ERROR_NONE) << "call " << call;
      } else {
        EXPECT_NE(calls[call].result, OXA_ERROR_NONE) << "call " << call;
      }
    }
    ASSERT_TRUE(waitForCount(events.initialized, 2));
    // Anything more would arrive with the pending events; there is none.
    runUntil([] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(events.initialized, (std::vector<int>{OXA_ERROR_NONE, OXA_ERROR_INTERNAL_ERROR}));
  }

  void expectReconnects() {
    initialize();
    EXPECT_EQ(events.initialized,
              (std::vector<int>{OXA_ERROR_NONE, OXA_ERROR_INTERNAL_ERROR, OXA_ERROR_NONE}));
    int state = -1;
    EXPECT_EQ(oxa_service_get_state(service_.get(), &state), OXA_ERROR_NONE);
    EXPECT_EQ(oxa_start_discovery(service_.get()), OXA_ERROR_NONE);
  }

  Service service_;
};

TEST_F(AgentLossTest, AgentKilledInARequestLoop) {
  const std::vector<Call> calls = requestLoop([&] {
    sim().kill(SIGKILL);
    sim().waitExit();
  });
  expectLossHandled(calls);
  startSim({"--scenario", writeScenario(kLoadScenario)});
  expectReconnects();
}

TEST_F(AgentLossTest, AgentStoppedPastTheReadTimeoutInARequestLoop) {
  const std::vector<Call> calls = requestLoop([&] {
    sim().kill(SIGSTOP);
    ASSERT_TRUE(waitStopped(sim().pid()));
  });
  expectLossHandled(calls);
  sim().kill(SIGCONT);
  expectReconnects();
}

}  // namespace
}  // namespace oxa::test
