#ifndef OXA_TESTS_UNIT_HANDLER_TEST_H_
#define OXA_TESTS_UNIT_HANDLER_TEST_H_

// Shared pieces of the tests of the agent handler, the service object and the callback classes:
// a fixture that gives every test a fresh fake platform and a handler singleton in a known
// state, source line lookup for exact log lines, and builders of agent parcels.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "AgentProxyCallbacks.h"
#include "AgentProxyHandler.h"
#include "FakePlatform.h"

namespace handlertest {

// The 1-based number of the first line of `file` (relative to the source tree) that contains
// `needle` at or after the first line that contains `anchor`. Fails the test and returns 0 when
// there is none.
inline int sourceLine(const std::string &file, const std::string &anchor,
                      const std::string &needle) {
  std::ifstream in(std::string(OXA_SOURCE_DIR) + "/" + file);
  std::string text;
  bool anchored = false;
  for (int number = 1; std::getline(in, text); ++number) {
    anchored = anchored || text.find(anchor) != std::string::npos;
    if (anchored && text.find(needle) != std::string::npos) {
      return number;
    }
  }
  ADD_FAILURE() << "no line with \"" << needle << "\" after \"" << anchor << "\" in " << file;
  return 0;
}

// The line of `file` that contains `needle`, which must occur exactly once.
inline int sourceLine(const std::string &file, const std::string &needle) {
  std::ifstream in(std::string(OXA_SOURCE_DIR) + "/" + file);
  std::string text;
  int found = 0;
  int matches = 0;
  for (int number = 1; std::getline(in, text); ++number) {
    if (text.find(needle) != std::string::npos) {
      found = number;
      ++matches;
    }
  }
  EXPECT_EQ(matches, 1) << "\"" << needle << "\" in " << file;
  return found;
}

// A log line of the library as the platform log receives it.
inline fake::LogLine apiLog(log_priority level, const std::string &file,
                            const std::string &function, int line, const std::string &message) {
  return {level, "OXA_API", "%s",
          file + ": " + function + "(" + std::to_string(line) + ") > " + message};
}

constexpr const char *kHandlerSource = "src/AgentProxyHandler.cc";
constexpr const char *kServiceSource = "src/Service.cc";
constexpr const char *kCallbacksSource = "src/AgentProxyCallbacks.cc";

// The log line a handler request writes when it is made while not connected; `method` is the
// handler method, whose definition holds the one call that checks the state.
inline fake::LogLine notInitializedLog(const std::string &method, const std::string &checkCall) {
  return apiLog(DLOG_ERROR, kHandlerSource, method,
                sourceLine(kHandlerSource, "AgentProxyHandler::" + method + "(", checkCall),
                "AgentProxyHandler is not initialized");
}

// A reply parcel of the agent: command id 0, then `fields`.
inline fake::Values reply(const fake::Values &fields) {
  fake::Values values{fake::Int32(0)};
  values.insert(values.end(), fields.begin(), fields.end());
  return values;
}

// The head of a callback parcel for the delegate (id, seq).
inline fake::Values eventHeader(int delegateId, int seqId) {
  return {fake::Int32(1), fake::Int32(delegateId), fake::Int32(seqId), fake::Bool(false)};
}

inline void appendDevice(fake::Values &values, const std::string &address, int type,
                         const std::string &name) {
  values.insert(values.end(), {fake::String(address), fake::Int32(type), fake::String(name)});
}

inline void appendCommand(fake::Values &values, const std::string &address, int handlerId, int id,
                          int type, const std::vector<unsigned char> &payload, int seqId) {
  values.insert(values.end(), {fake::String(address), fake::Int32(handlerId), fake::Int32(id),
                               fake::Int32(type)});
  fake::AppendBytes(values, payload);
  values.push_back(fake::Int32(seqId));
}

// The sequence number of the delegate written last into `parcel` (id, sequence, once flag).
inline int delegateSeq(const fake::SentParcel &parcel) {
  return static_cast<int>(parcel.values.at(parcel.values.size() - 2).integer);
}

// The delegate fields the handler writes last into a request.
inline void appendDelegate(fake::Values &values, int delegateId, int seqId) {
  values.insert(values.end(), {fake::Int32(delegateId), fake::Int32(seqId), fake::Bool(false)});
}

// The sequence number that the next delegate created in the process will get.
inline int nextDelegateSeq() {
  // A probe delegate takes one number; the next one is one higher.
  return Oxa::Capi::AgentInterface::OnDeviceFoundEvent(5, false).GetSeqId() + 1;
}

// Every test starts with a fresh fake and a handler that is not connected, and ends with the
// handler not connected, whatever it did in between.
class HandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake::Reset();
    Oxa::Capi::sentCommands.clear();
    initializedResults().clear();
  }

  void TearDown() override {
    if (!expectFaults) {
      EXPECT_THAT(faults(), ::testing::IsEmpty()) << "the code under test misused the platform";
    }
    EXPECT_EQ(fake::PendingReplies(), 0U) << "scripted replies were not read";
    EXPECT_EQ(fake::PendingCallbacks(), 0U) << "scripted events were not delivered";
    fake::SetResult(fake::Call::Send, 0);
    handler.Disconnect();
    Oxa::Capi::sentCommands.clear();
  }

  // Results that the completion function given by connect() or recorder() received. Kept
  // outside the fixture object because the singleton keeps the function after the test.
  static std::vector<oxa_error_e> &initializedResults() {
    static std::vector<oxa_error_e> results;
    return results;
  }

  static Oxa::Capi::RegisteredCallback recorder() {
    return [](oxa_error_e result) { initializedResults().push_back(result); };
  }

  // Brings the handler to its connected state on a fresh proxy; logs and sent parcels before
  // this point are left out of logs() and sent().
  void connect() {
    ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
    ASSERT_TRUE(fake::FireConnected());
    ASSERT_THAT(initializedResults(), ::testing::ElementsAre(OXA_ERROR_NONE));
    initializedResults().clear();
    mark();
  }

  void mark() {
    logMark = fake::Logs().size();
    sentMark = fake::SentParcels().size();
  }

  // The library's own log lines since mark(); the proxy's lines are its tests' business.
  std::vector<fake::LogLine> logs() const {
    auto all = fake::Logs();
    std::vector<fake::LogLine> own;
    for (size_t index = logMark; index < all.size(); ++index) {
      if (all[index].tag == "OXA_API") {
        own.push_back(all[index]);
      }
    }
    return own;
  }

  std::vector<fake::SentParcel> sent() const {
    auto all = fake::SentParcels();
    return {all.begin() + static_cast<std::ptrdiff_t>(std::min(sentMark, all.size())), all.end()};
  }

  // The fake forgets its proxies on Reset while the singleton keeps the one of the previous
  // test until the first Connect of this test replaces it; the fake reports destroying that
  // handle. The fault is the fixture's own making and is left out when it comes first.
  static std::vector<std::string> faults() {
    auto all = fake::Faults();
    if (!all.empty() && all.front() == "destroy on an unknown proxy") {
      all.erase(all.begin());
    }
    return all;
  }

  // The fake's state is built before the singleton, so that it still exists at exit when the
  // singleton destroys its proxy.
  static Oxa::Capi::AgentProxyHandler &handlerAfterPlatform() {
    fake::Reset();
    return Oxa::Capi::AgentProxyHandler::GetInstance();
  }

  Oxa::Capi::AgentProxyHandler &handler = handlerAfterPlatform();
  bool expectFaults = false;
  size_t logMark = 0;
  size_t sentMark = 0;
};

}  // namespace handlertest

#endif  // OXA_TESTS_UNIT_HANDLER_TEST_H_
