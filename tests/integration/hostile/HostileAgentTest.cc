// The library against an agent that misbehaves: counts and strings that claim far more than the
// parcel holds, events cut short or addressed to nobody, parcels with the wrong command id, a flood
// of events, a reply that never comes. The application (a child process, so that its peak memory
// is its own) must keep running within bounded memory, see every call end, and still receive the
// valid event that follows.

#include <gtest/gtest.h>
#include <oxa.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include "HostileAgent.h"
#include "ProbeApplication.h"
#include "ReportingChild.h"
#include "RuntimeDir.h"
#include "Wire.h"

namespace oxa::test {
namespace {

// Sanitizer runtimes add shadow memory and keep freed blocks in quarantine; their builds check
// a looser bound (still far below the gigabytes that a trusted count would cost).
constexpr long kPeakRssLimitKb = OXA_TEST_PEAK_RSS_LIMIT_MB * 1024L;
constexpr long kOneSecondMs = 1000;
constexpr int kBillion = 1000000000;
constexpr int kTwoGiB = INT_MAX;
constexpr char kAddress[] = "A0:00:00:00:00:09";
constexpr int kBurst = 100000;

Body marker(const HostileAgent &agent) {
  return Wire::event(kDeviceFound, agent.seqOf(kDeviceFound))
      .device("A0:00:00:00:00:0F", 1, kMarkerName)
      .body();
}

// A command-received event whose command record is written up to its payload count.
Wire commandUpToPayload(int seq) {
  return Wire::event(kCommandReceived, seq).string(kAddress).int32(1).int32(5).int32(1);
}

using Hostile = std::function<std::vector<Body>(const HostileAgent &agent)>;

// Answers the first StartDiscovery with result 0, then sends `hostile` and the marker event.
HostileAgent::Script afterDiscovery(Hostile hostile) {
  return [hostile](const HostileAgent &agent, const HostileAgent::Request &request) {
    if (request.method != kStartDiscovery || request.number != 1) {
      return HostileAgent::defaultAnswer(request);
    }
    HostileAgent::Answer answer{{Wire::reply().int32(0).body()}, hostile(agent)};
    answer.events.push_back(marker(agent));
    return answer;
  };
}

class HostileAgentTest : public PlatformTest {
 protected:
  HostileAgentTest() {
    setenv("RPC_PORT_APPID", OXA_AGENT_APPID, 1);
    setenv("DLOG_FILE", (runtimeDir() + "/dlog.txt").c_str(), 1);
  }
  ~HostileAgentTest() override {
    unsetenv("DLOG_FILE");
    unsetenv("RPC_PORT_APPID");
  }

  // Runs the probe application against an agent following `script`; its report.
  Report probe(const HostileAgent::Script &script,
               const ReportingChild::Environment &environment = {}) {
    ReportingChild client(runProbeApplication, environment);
    HostileAgent agent(script);
    EXPECT_EQ(agent.listenResult(), 0);
    client.start();
    auto report = client.waitReport(context());
    EXPECT_TRUE(report.has_value()) << "the application did not report";
    // The measured figures (peak RSS, milliseconds) go into --gtest_output reports.
    for (const auto &[key, value] : report.value_or(Report{})) {
      RecordProperty(key, std::to_string(value));
    }
    return report.value_or(Report{});
  }

  // The application connected once, stayed connected, and received the marker.
  static void expectSurvived(const Report &report) {
    EXPECT_EQ(valueOf(report, "initialized_1"), OXA_ERROR_NONE);
    EXPECT_EQ(report.count("initialized_2"), 0U) << "the connection was lost";
    EXPECT_GE(valueOf(report, "marker_ms"), 0)
        << "the valid event after the hostile ones never came";
    EXPECT_LT(valueOf(report, "peak_rss_kb"), kPeakRssLimitKb);
  }
};

TEST_F(HostileAgentTest, CommandEventClaimingABillionPayloadBytes) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    return std::vector<Body>{
        commandUpToPayload(agent.seqsOf(kCommandReceived).front()).int32(kBillion).body()};
  }));
  expectSurvived(report);
  EXPECT_LT(valueOf(report, "marker_ms"), kOneSecondMs);
  // The record is read as far as it goes (no payload) and still delivered.
  EXPECT_EQ(valueOf(report, "commands"), 1);
}

TEST_F(HostileAgentTest, FoundDeviceListClaimingABillionRecords) {
  const Report report = probe([](const HostileAgent &agent, const HostileAgent::Request &request) {
    if (request.method == kGetFoundDeviceList) {
      return HostileAgent::Answer{{Wire::reply().int32(kBillion).body()}, {}};
    }
    return afterDiscovery([](const HostileAgent &) { return std::vector<Body>{}; })(agent, request);
  });
  expectSurvived(report);
  EXPECT_LT(valueOf(report, "list_ms"), kOneSecondMs);
  EXPECT_EQ(valueOf(report, "listed"), 0);
  // No record fits and the result that should follow is missing, so it reads as 0.
  EXPECT_EQ(valueOf(report, "list_result"), OXA_ERROR_NONE);
  EXPECT_EQ(valueOf(report, "discovery_result"), OXA_ERROR_NONE);
}

TEST_F(HostileAgentTest, StringsClaimingTwoGiB) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    return std::vector<Body>{
        Wire::event(kDeviceFound, agent.seqOf(kDeviceFound)).int32(kTwoGiB).body(),
        Wire::event(kDeviceLost, agent.seqOf(kDeviceLost))
            .string(kAddress)
            .int32(1)
            .int32(kTwoGiB)
            .body(),
        Wire::event(kCommandReceived, agent.seqsOf(kCommandReceived).front())
            .int32(kTwoGiB)
            .body()};
  }));
  expectSurvived(report);
  EXPECT_LT(valueOf(report, "marker_ms"), kOneSecondMs);
  EXPECT_EQ(valueOf(report, "found"), 1);
  EXPECT_EQ(valueOf(report, "lost"), 1);
  EXPECT_EQ(valueOf(report, "commands"), 1);
}

TEST_F(HostileAgentTest, EventsCutAfterTheDelegateHeader) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    std::vector<Body> cut;
    for (int id : {kServiceStateChanged, kDeviceFound, kDeviceLost, kContextChanged}) {
      cut.push_back(Wire::event(id, agent.seqOf(id)).body());
    }
    cut.push_back(Wire::event(kCommandReceived, agent.seqsOf(kCommandReceived).front()).body());
    return cut;
  }));
  expectSurvived(report);
  // Every decoder reads what is there, defaults the rest, and delivers.
  EXPECT_EQ(valueOf(report, "states"), 1);
  EXPECT_EQ(valueOf(report, "found"), 1);
  EXPECT_EQ(valueOf(report, "lost"), 1);
  EXPECT_EQ(valueOf(report, "context"), 1);
  EXPECT_EQ(valueOf(report, "commands"), 1);
}

TEST_F(HostileAgentTest, EventsForUnknownDelegatesAreDropped) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    const int found = agent.seqOf(kDeviceFound);
    std::vector<Body> unknown;
    for (auto [id, seq] : std::vector<std::pair<int, int>>{
             {99, found}, {kDeviceFound, found + 1000}, {0, 0}, {-1, -1}, {kDeviceLost, found}}) {
      unknown.push_back(Wire::event(id, seq).device(kAddress, 1, "nobody").body());
    }
    return unknown;
  }));
  expectSurvived(report);
  EXPECT_EQ(valueOf(report, "found"), 0);
  EXPECT_EQ(valueOf(report, "lost"), 0);
}

TEST_F(HostileAgentTest, CallbackParcelsWithWrongCommandIdsAreDropped) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    std::vector<Body> wrong;
    for (int commandId : {0, 2, -1, INT_MAX}) {
      wrong.push_back(Wire()
                          .int32(commandId)
                          .int32(kDeviceFound)
                          .int32(agent.seqOf(kDeviceFound))
                          .boolean(false)
                          .device(kAddress, 1, "wrong")
                          .body());
    }
    return wrong;
  }));
  expectSurvived(report);
  EXPECT_EQ(valueOf(report, "found"), 0);
}

TEST_F(HostileAgentTest, NegativeCounts) {
  const Report report = probe([](const HostileAgent &agent, const HostileAgent::Request &request) {
    if (request.method == kGetFoundDeviceList) {
      return HostileAgent::Answer{{Wire::reply().int32(-5).int32(0).body()}, {}};
    }
    return afterDiscovery([](const HostileAgent &events) {
      return std::vector<Body>{
          commandUpToPayload(events.seqsOf(kCommandReceived).front()).int32(-1).int32(7).body()};
    })(agent, request);
  });
  expectSurvived(report);
  EXPECT_EQ(valueOf(report, "list_result"), OXA_ERROR_NONE);
  EXPECT_EQ(valueOf(report, "listed"), 0);
  EXPECT_EQ(valueOf(report, "commands"), 1);
}

TEST_F(HostileAgentTest, ParcelsBeforeTheReplyWithWrongCommandIdsAreSkipped) {
  const Report report = probe([](const HostileAgent &agent, const HostileAgent::Request &request) {
    HostileAgent::Answer answer =
        afterDiscovery([](const HostileAgent &) { return std::vector<Body>{}; })(agent, request);
    if (request.method == kStartDiscovery) {
      std::vector<Body> replies;
      for (int commandId : {1, 2, -1, INT_MAX}) {
        replies.push_back(Wire().int32(commandId).int32(OXA_ERROR_NO_DATA).body());
      }
      replies.insert(replies.end(), answer.replies.begin(), answer.replies.end());
      answer.replies = replies;
    }
    return answer;
  });
  expectSurvived(report);
  EXPECT_EQ(valueOf(report, "discovery_result"), OXA_ERROR_NONE);
}

TEST_F(HostileAgentTest, BurstOfAHundredThousandEvents) {
  const Report report = probe(afterDiscovery([](const HostileAgent &agent) {
    const Body event =
        Wire::event(kDeviceFound, agent.seqOf(kDeviceFound)).device(kAddress, 1, "burst").body();
    return std::vector<Body>(kBurst, event);
  }));
  expectSurvived(report);
  EXPECT_EQ(valueOf(report, "found"), kBurst);
}

TEST_F(HostileAgentTest, AReplyThatNeverComesEndsTheCallAndTheConnection) {
  constexpr long kTimeoutMs = 500;
  const Report report = probe(
      [](const HostileAgent &agent, const HostileAgent::Request &request) {
        if (request.method == kStartDiscovery && request.number == 1) {
          return HostileAgent::Answer{};
        }
        if (request.method == kStartDiscovery) {
          return HostileAgent::Answer{{Wire::reply().int32(0).body()}, {marker(agent)}};
        }
        return HostileAgent::defaultAnswer(request);
      },
      {{"RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs)},
       {"OXA_CALL_TIMEOUT_MS", std::to_string(kTimeoutMs)}});
  EXPECT_EQ(valueOf(report, "discovery_result"), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_GE(valueOf(report, "discovery_ms"), kTimeoutMs - 10);
  EXPECT_LT(valueOf(report, "discovery_ms"), kTimeoutMs + kOneSecondMs);
  // The connection ends with the call, reported once; initializing again reconnects.
  EXPECT_EQ(valueOf(report, "initialized_1"), OXA_ERROR_NONE);
  EXPECT_EQ(valueOf(report, "initialized_2"), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(valueOf(report, "initialized_3"), OXA_ERROR_NONE);
  EXPECT_EQ(report.count("initialized_4"), 0U);
  EXPECT_EQ(valueOf(report, "rediscovery_result"), OXA_ERROR_NONE);
  EXPECT_GE(valueOf(report, "marker_ms"), 0);
  EXPECT_LT(valueOf(report, "peak_rss_kb"), kPeakRssLimitKb);
}

}  // namespace
}  // namespace oxa::test
