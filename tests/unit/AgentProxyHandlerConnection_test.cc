// The handler's connection lifecycle: Connect, Disconnect, the three connection events, and the
// exported oxa_initialize/oxa_deinitialize on top of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "HandlerTest.h"
#include "oxa.h"

namespace {

using handlertest::apiLog;
using handlertest::HandlerTest;
using handlertest::kHandlerSource;
using handlertest::reply;
using handlertest::sourceLine;
using rpc_port::AgentProxy::proxy::InvalidIDException;
using rpc_port::AgentProxy::proxy::NotConnectedSocketException;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConnectionTest : public HandlerTest {
 protected:
  static fake::LogLine handlerLog(log_priority level, const std::string &function,
                                  const std::string &message) {
    return apiLog(level, kHandlerSource, function,
                  sourceLine(kHandlerSource, "\"" + message + "\""), message);
  }

  static fake::LogLine versionLog() {
    return apiLog(DLOG_INFO, kHandlerSource, "Connect",
                  sourceLine(kHandlerSource, "OXA_LOGI(\"OXA CAPI %s\""), "OXA CAPI 3.0.5");
  }

  // Whether a request goes out to the agent (it only does when the handler is connected).
  bool requestsOpen() {
    const size_t before = fake::SentParcels().size();
    handler.StartDiscovery(1);
    return fake::SentParcels().size() > before;
  }
};

TEST_F(ConnectionTest, ConnectLogsTheVersionAndStartsAnAsynchronousConnection) {
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  EXPECT_THAT(logs(), ElementsAre(versionLog()));
  EXPECT_THAT(fake::ConnectCalls(),
              ElementsAre(fake::ConnectCall{false, OXA_AGENT_APPID, "OxaAgentInterface"}));
  EXPECT_EQ(fake::ProxiesCreated(), 1);
  EXPECT_THAT(initializedResults(), IsEmpty());
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(ConnectionTest, ConnectedEventReportsSuccessAndOpensRequests) {
  ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  mark();
  ASSERT_TRUE(fake::FireConnected());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_NONE));
  EXPECT_THAT(logs(),
              ElementsAre(handlerLog(DLOG_INFO, "OnConnected", "App is connected to OXA Agent")));
  EXPECT_TRUE(requestsOpen());
}

TEST_F(ConnectionTest, SecondConnectWhileConnectedKeepsTheFirstCallback) {
  connect();
  std::vector<oxa_error_e> second;
  EXPECT_EQ(handler.Connect([&second](oxa_error_e result) { second.push_back(result); }),
            OXA_ERROR_NONE);
  EXPECT_THAT(logs(),
              ElementsAre(versionLog(), handlerLog(DLOG_INFO, "Connect", "Already connected")));
  EXPECT_EQ(fake::ProxiesCreated(), 1);
  EXPECT_EQ(fake::ConnectCalls().size(), 1U);

  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_THAT(second, IsEmpty());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_INTERNAL_ERROR));
}

TEST_F(ConnectionTest, ConnectRefusedWithPermissionDeniedMarksTheClientDenied) {
  fake::SetResult(fake::Call::Connect, -13);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_TRUE(handler.IsConnectionFailed());
  EXPECT_THAT(initializedResults(), IsEmpty());
  // The completion function is gone: a late event finds nothing to call.
  EXPECT_THROW(fake::FireRejected(-13), std::bad_function_call);
}

TEST_F(ConnectionTest, ConnectFailingWithIoErrorIsNotADenial) {
  fake::SetResult(fake::Call::Connect, -5);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_IO_ERROR);
  EXPECT_FALSE(handler.IsConnectionFailed());
  EXPECT_FALSE(requestsOpen());
  EXPECT_THAT(initializedResults(), IsEmpty());
}

TEST_F(ConnectionTest, ProxyCreationFailureIsAnIoError) {
  fake::SetResult(fake::Call::ProxyCreate, -12);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_IO_ERROR);
  EXPECT_FALSE(handler.IsConnectionFailed());
  EXPECT_THAT(fake::ConnectCalls(), IsEmpty());
}

TEST_F(ConnectionTest, ConnectRefusedWithInvalidIdLeavesConnect) {
  fake::SetResult(fake::Call::Connect, -22);
  EXPECT_THROW(handler.Connect(recorder()), InvalidIDException);
  EXPECT_THROW(oxa_initialize(nullptr, nullptr), InvalidIDException);
  EXPECT_FALSE(handler.IsConnectionFailed());
}

TEST_F(ConnectionTest, OtherConnectFailuresWaitForAnEvent) {
  for (int code : {-1, -38}) {
    fake::SetResult(fake::Call::Connect, code, fake::Mode::Once);
    EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE) << code;
    EXPECT_FALSE(handler.IsConnectionFailed());
    ASSERT_TRUE(fake::FireRejected(code));
  }
  EXPECT_THAT(initializedResults(),
              ElementsAre(OXA_ERROR_INTERNAL_ERROR, OXA_ERROR_INVALID_OPERATION));
}

TEST_F(ConnectionTest, ConnectAfterAFailureBuildsAFreshProxy) {
  fake::SetResult(fake::Call::Connect, -5, fake::Mode::Once);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_IO_ERROR);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  EXPECT_EQ(fake::ProxiesCreated(), 2);
  EXPECT_EQ(fake::ProxiesDestroyed(), 1);
  ASSERT_TRUE(fake::FireConnected());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_NONE));
}

TEST_F(ConnectionTest, DisconnectedEventReportsAnInternalErrorAndClosesRequests) {
  connect();
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_INTERNAL_ERROR));
  EXPECT_THAT(logs(),
              ElementsAre(handlerLog(DLOG_ERROR, "OnDisconnected", "Connection is disconnected")));
  EXPECT_FALSE(requestsOpen());
}

TEST_F(ConnectionTest, RejectionPassesActionableCodesAndHidesTheRest) {
  ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  mark();
  const int line = sourceLine(kHandlerSource, "Connection is rejected. error[%d]");
  std::vector<fake::LogLine> expected;
  for (int code : {0, -5, -13, -38, -111, -22, 1}) {
    ASSERT_TRUE(fake::FireRejected(code));
    expected.push_back(apiLog(DLOG_ERROR, kHandlerSource, "OnRejected", line,
                              "Connection is rejected. error[" + std::to_string(code) + "]"));
  }
  EXPECT_THAT(initializedResults(),
              ElementsAre(OXA_ERROR_NONE, OXA_ERROR_IO_ERROR, OXA_ERROR_PERMISSION_DENIED,
                          OXA_ERROR_INVALID_OPERATION, OXA_ERROR_INTERNAL_ERROR,
                          OXA_ERROR_INTERNAL_ERROR, OXA_ERROR_INTERNAL_ERROR));
  EXPECT_EQ(logs(), expected);
}

TEST_F(ConnectionTest, RejectionLeavesTheStateAsItWas) {
  ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  ASSERT_TRUE(fake::FireRejected(-13));
  EXPECT_FALSE(handler.IsConnectionFailed());
  EXPECT_FALSE(requestsOpen());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_PERMISSION_DENIED));
  initializedResults().clear();

  connect();
  ASSERT_TRUE(fake::FireRejected(-111));
  EXPECT_TRUE(requestsOpen());
}

TEST_F(ConnectionTest, DisconnectBeforeAnyConnectionSendsNothing) {
  EXPECT_EQ(handler.Disconnect(), OXA_ERROR_NONE);
  EXPECT_THAT(logs(), ElementsAre(handlerLog(DLOG_INFO, "Disconnect", "Already disconnected")));
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(ConnectionTest, DisconnectSendsUnregisterAndIgnoresItsResult) {
  connect();
  fake::QueueReply(reply({fake::Int32(-61)}));
  EXPECT_EQ(handler.Disconnect(), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(fake::SentParcel{fake::Port::Main, {fake::Int32(24)}}));
  EXPECT_THAT(logs(), IsEmpty());
  EXPECT_FALSE(requestsOpen());
  // The connection itself stays open: its loss still reaches the completion function.
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_INTERNAL_ERROR));
  EXPECT_EQ(fake::ProxiesDestroyed(), 0);
}

TEST_F(ConnectionTest, DisconnectFailingToSendIsAnIoError) {
  connect();
  fake::SetResult(fake::Call::Send, -5);
  EXPECT_EQ(handler.Disconnect(), OXA_ERROR_IO_ERROR);
  EXPECT_FALSE(handler.IsConnectionFailed());
  fake::SetResult(fake::Call::Send, 0);
  EXPECT_FALSE(requestsOpen());
  EXPECT_EQ(handler.Disconnect(), OXA_ERROR_NONE);
}

TEST_F(ConnectionTest, DisconnectWithoutReplyIsAProtocolError) {
  connect();
  EXPECT_EQ(handler.Disconnect(), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(
      logs(),
      ElementsAre(apiLog(DLOG_ERROR, kHandlerSource, "Disconnect",
                         sourceLine(kHandlerSource, "AgentProxyHandler::Disconnect(", "callProxy("),
                         "InvalidProtocolException")));
  EXPECT_FALSE(requestsOpen());
}

// A connected event that arrives before the proxy could be stored is the one case the handler
// reports with "No AgentProxyHandler"; that needs a handler that never had a proxy, so it is
// shown in AgentProxyHandlerFirstEvent_test. Here: a connected state whose proxy never got its
// port lets the proxy's not-connected exception through to the caller.
TEST_F(ConnectionTest, RequestOnAProxyWithoutPortLetsNotConnectedThrough) {
  ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  handler.OnConnected();
  EXPECT_THROW(handler.StartDiscovery(1), NotConnectedSocketException);
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
  ASSERT_TRUE(fake::FireConnected());
}

TEST_F(ConnectionTest, InitializeWithoutCallbackConnectsAndDropsEvents) {
  EXPECT_EQ(oxa_initialize(nullptr, nullptr), OXA_ERROR_NONE);
  ASSERT_TRUE(fake::FireConnected());
  ASSERT_TRUE(fake::FireRejected(-13));
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_EQ(logs().front(),
            apiLog(DLOG_DEBUG, "src/oxa.cc", "oxa_initialize",
                   sourceLine("src/oxa.cc", "oxa_initialize(", "OXA_LOGD(\"+\")"), "+"));
  EXPECT_EQ(logs().size(), 5U);
}

TEST_F(ConnectionTest, InitializeReportsThroughTheCallbackWithUserData) {
  struct Seen {
    std::vector<oxa_error_e> results;
  } seen;
  auto callback = [](oxa_error_e result, void *userData) {
    static_cast<Seen *>(userData)->results.push_back(result);
  };
  EXPECT_EQ(oxa_initialize(callback, &seen), OXA_ERROR_NONE);
  ASSERT_TRUE(fake::FireConnected());
  EXPECT_THAT(seen.results, ElementsAre(OXA_ERROR_NONE));
  // The singleton keeps this callback; hand it a function that outlives the test.
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
}

TEST_F(ConnectionTest, DeinitializeBeforeConnectingLogsAndSendsNothing) {
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_THAT(
      logs(),
      ElementsAre(
          apiLog(DLOG_DEBUG, "src/oxa.cc", "oxa_deinitialize",
                 sourceLine("src/oxa.cc", "oxa_deinitialize(void)", "OXA_LOGD(\"+\")"), "+"),
          handlerLog(DLOG_INFO, "Disconnect", "Already disconnected")));
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(ConnectionTest, DeinitializeSendsUnregisterWhenConnected) {
  connect();
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(fake::SentParcel{fake::Port::Main, {fake::Int32(24)}}));
}

}  // namespace
