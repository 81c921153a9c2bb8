// A client that stops reading (SIGSTOP) while the agent owes it events must not slow anybody
// else down; once resumed it gets every event it is owed, in order, unless its backlog passed the
// transport's send-queue bound, in which case the agent has closed its connection.
#include <gtest/gtest.h>
#include <oxa.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "LoadSupport.h"
#include "ReportingChild.h"

namespace oxa::test {
namespace {

constexpr char kStoppedAppId[] = "org.example.stopped";
constexpr int kOwed = 100;
constexpr size_t kOwedSize = size_t{64} << 10;
constexpr int kRequests = 100;
constexpr auto kRequestBudget = std::chrono::seconds(1);
constexpr auto kReceiveWait = std::chrono::seconds(20);
constexpr char kSmallQueue[] = "1048576";

struct Received {
  std::vector<int> initialized;
  std::vector<int> ids;
  int wrong = 0;

  static void onInitialized(oxa_error_e result, void *data) {
    static_cast<Received *>(data)->initialized.push_back(result);
  }
  static void onCommand(oxa_command_h command, void *data) {
    auto &received = *static_cast<Received *>(data);
    const CommandSeen seen = readCommand(command);
    received.ids.push_back(seen.id);
    if (seen.type != OXA_COMMAND_TYPE_1 || seen.payload != payloadFor(seen.id, kOwedSize)) {
      ++received.wrong;
    }
  }
};

// The client that gets stopped: it subscribes to commands, publishes a context so the other
// client knows it is ready, and then takes commands until it has all it is owed or loses its
// connection.
std::string runStoppedClient() {
  ScopedMainContext context;
  Received received;
  oxa_initialize(&Received::onInitialized, &received);
  runUntil(context.get(), [&] { return !received.initialized.empty(); });
  oxa_service_h service = nullptr;
  oxa_service_create(OXA_SERVICE_TYPE_1, &service);
  oxa_set_command_received_cb(service, &Received::onCommand, &received);
  const unsigned char ready[] = {'r'};
  oxa_update_context(service, OXA_CONTEXT_TYPE_2, ready, sizeof ready);
  runUntil(
      context.get(),
      [&] { return received.ids.size() >= kOwed || received.initialized.size() > 1; },
      kReceiveWait);
  bool inOrder = true;
  for (size_t at = 0; at < received.ids.size(); ++at) {
    inOrder = inOrder && received.ids[at] == static_cast<int>(at);
  }
  std::string report;
  for (size_t at = 0; at < received.initialized.size(); ++at) {
    report += "initialized_" + std::to_string(at + 1) + " " +
              std::to_string(received.initialized[at]) + "\n";
  }
  report += "received " + std::to_string(received.ids.size()) + "\n";
  report += "in_order " + std::to_string(inOrder ? 1 : 0) + "\n";
  report += "wrong " + std::to_string(received.wrong) + "\n";
  return report;
}

class StoppedClientTest : public LibraryTest {
 protected:
  // Starts the simulator (with `environment`), this client, and the one that will be stopped;
  // returns once the latter is ready.
  void start(const ChildProgram::Environment &environment) {
    sim_ = std::make_unique<ChildProgram>(
        simCommand(runtimeDir(), {"--scenario", writeScenario(kLoadScenario)}), environment);
    ASSERT_TRUE(sim_->waitForOutput(kSimReadyLine)) << sim_->output();
    initialize();
    service_ = createService(OXA_SERVICE_TYPE_1);
    ASSERT_EQ(oxa_set_context_changed_cb(service_.get(), &Events::onContextChanged, &events),
              OXA_ERROR_NONE);
    stopped_->start();
    ASSERT_TRUE(waitForCount(events.contextChanged, 1));
    ASSERT_EQ(events.contextChanged[0].name, kStoppedAppId);
    stoppedAddress_ = events.contextChanged[0].address;
  }

  // Stops the other client and sends it the commands it will be owed, one at a time, each
  // until its sent callback; then times 100 plain requests. The sent results, in order.
  std::vector<int> floodTheStoppedClient() {
    stopped_->kill(SIGSTOP);
    EXPECT_TRUE(waitStopped(stopped_->pid()));
    for (int id = 0; id < kOwed; ++id) {
      const Command command =
          createCommand(stoppedAddress_.c_str(), OXA_COMMAND_TYPE_1, id, payloadFor(id, kOwedSize));
      EXPECT_EQ(oxa_send_command(service_.get(), command.get(), &Events::onCommandSent, &events),
                OXA_ERROR_NONE)
          << "command " << id;
      EXPECT_TRUE(waitForCount(events.commandsSent, static_cast<size_t>(id) + 1)) << id;
    }
    const auto start = Clock::now();
    for (int request = 0; request < kRequests; ++request) {
      EXPECT_EQ(oxa_stop_discovery(service_.get()), OXA_ERROR_NONE) << request;
    }
    const std::chrono::milliseconds took = elapsedSince(start);
    EXPECT_LT(took, kRequestBudget);
    RecordProperty("requests_ms", std::to_string(took.count()));
    std::vector<int> results;
    for (const auto &sent : events.commandsSent) {
      results.push_back(sent.result);
    }
    return results;
  }

  Report resume() {
    stopped_->kill(SIGCONT);
    auto report = stopped_->waitReport(context(), kReceiveWait + std::chrono::seconds(5));
    EXPECT_TRUE(report.has_value());
    return report.value_or(Report{});
  }

  std::unique_ptr<ReportingChild> stopped_ = std::make_unique<ReportingChild>(
      runStoppedClient, ReportingChild::Environment{{"RPC_PORT_APPID", kStoppedAppId}});
  std::unique_ptr<ChildProgram> sim_;
  Service service_;
  std::string stoppedAddress_;
};

TEST_F(StoppedClientTest, OthersAreServedAndTheResumedClientGetsEverythingInOrder) {
  start({});
  EXPECT_EQ(floodTheStoppedClient(), std::vector<int>(kOwed, OXA_ERROR_NONE));
  const Report report = resume();
  EXPECT_EQ(valueOf(report, "initialized_1"), OXA_ERROR_NONE);
  EXPECT_EQ(report.count("initialized_2"), 0U);
  EXPECT_EQ(valueOf(report, "received"), kOwed);
  EXPECT_EQ(valueOf(report, "in_order"), 1);
  EXPECT_EQ(valueOf(report, "wrong"), 0);
  EXPECT_EQ(events.initialized, std::vector<int>{OXA_ERROR_NONE});
}

TEST_F(StoppedClientTest, ABacklogPastTheQueueBoundClosesOnlyThatConnection) {
  start({{"RPC_PORT_SEND_QUEUE_MAX", kSmallQueue}});
  // Accepted while the stopped client was still connected; after its connection was closed,
  // the agent no longer knows its address.
  const std::vector<int> results = floodTheStoppedClient();
  const auto firstRefused = std::find(results.begin(), results.end(), OXA_ERROR_NO_DEVICE);
  EXPECT_NE(firstRefused, results.begin());
  EXPECT_NE(firstRefused, results.end());
  EXPECT_TRUE(
      std::all_of(results.begin(), firstRefused, [](int r) { return r == OXA_ERROR_NONE; }));
  EXPECT_TRUE(
      std::all_of(firstRefused, results.end(), [](int r) { return r == OXA_ERROR_NO_DEVICE; }));
  const Report report = resume();
  EXPECT_EQ(valueOf(report, "initialized_1"), OXA_ERROR_NONE);
  EXPECT_EQ(valueOf(report, "initialized_2"), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(report.count("initialized_3"), 0U);
  EXPECT_LT(valueOf(report, "received"), kOwed);
  EXPECT_EQ(valueOf(report, "in_order"), 1);
  EXPECT_EQ(valueOf(report, "wrong"), 0);
  // This client was never affected.
  EXPECT_EQ(oxa_stop_discovery(service_.get()), OXA_ERROR_NONE);
  EXPECT_EQ(events.initialized, std::vector<int>{OXA_ERROR_NONE});
}

}  // namespace
}  // namespace oxa::test
