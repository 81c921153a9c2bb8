// The proxy's construction, connect call, port events and destruction.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ProxyTestSupport.h"

namespace proxytest {
namespace {

using rpc_port::AgentProxy::proxy::InvalidIDException;
using rpc_port::AgentProxy::proxy::InvalidIOException;
using rpc_port::AgentProxy::proxy::NotConnectedSocketException;
using rpc_port::AgentProxy::proxy::PermissionDeniedException;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AgentProxyConnectionTest : public ProxyTest {};

TEST_F(AgentProxyConnectionTest, ConstructorCreatesOneProxyAndRegistersTheFourCallbacks) {
  EXPECT_EQ(fake::ProxiesCreated(), 1);
  EXPECT_THAT(fake::ConnectCalls(), IsEmpty());
  EXPECT_THAT(fake::Logs(), IsEmpty());
  EXPECT_TRUE(fake::FireConnected());
  EXPECT_TRUE(fake::FireRejected(0));
  EXPECT_TRUE(fake::FireDisconnected());
  EXPECT_TRUE(fake::FireReceived({fake::Int32(7)}));
  EXPECT_EQ(listener.connected, 1);
  EXPECT_EQ(listener.rejected, 1);
  EXPECT_EQ(listener.disconnected, 1);
}

TEST_F(AgentProxyConnectionTest, FailedPlatformProxyCreationLogsAndThrowsInvalidIO) {
  fake::SetResult(fake::Call::ProxyCreate, -12, fake::Mode::Once);
  RecordingListener other{observed};
  EXPECT_THROW(std::make_unique<OxaAgentInterface>(&other, kAgentAppId), InvalidIOException);
  EXPECT_THAT(fake::Logs(), ElementsAre(ProxyLog("OxaAgentInterface", "Failed to create proxy")));
  EXPECT_EQ(fake::ProxiesCreated(), 1);
  EXPECT_EQ(fake::ProxiesDestroyed(), 0);
}

TEST_F(AgentProxyConnectionTest, AsyncConnectTargetsTheAgentPort) {
  proxy->Connect(false);
  EXPECT_THAT(fake::ConnectCalls(),
              ElementsAre(fake::ConnectCall{false, kAgentAppId, "OxaAgentInterface"}));
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyConnectionTest, SyncConnectUsesConnectSync) {
  proxy->Connect(true);
  EXPECT_THAT(fake::ConnectCalls(),
              ElementsAre(fake::ConnectCall{true, kAgentAppId, "OxaAgentInterface"}));
}

TEST_F(AgentProxyConnectionTest, ConnectResultMinus5ThrowsInvalidIO) {
  fake::SetResult(fake::Call::Connect, -5, fake::Mode::Once);
  EXPECT_THROW(proxy->Connect(false), InvalidIOException);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(ProxyLog("Connect", "Failed to connect OxaAgentInterface")));
}

TEST_F(AgentProxyConnectionTest, ConnectResultMinus22ThrowsInvalidID) {
  fake::SetResult(fake::Call::ConnectSync, -22, fake::Mode::Once);
  EXPECT_THROW(proxy->Connect(true), InvalidIDException);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(ProxyLog("Connect", "Failed to connect OxaAgentInterface")));
}

TEST_F(AgentProxyConnectionTest, ConnectResultMinus13ThrowsPermissionDenied) {
  fake::SetResult(fake::Call::Connect, -13, fake::Mode::Once);
  EXPECT_THROW(proxy->Connect(false), PermissionDeniedException);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(ProxyLog("Connect", "Failed to connect OxaAgentInterface")));
}

TEST_F(AgentProxyConnectionTest, OtherConnectFailuresAreLoggedAndReturnNormally) {
  for (int result : {-1, -38, -111}) {
    proxy.reset();
    fake::Reset();
    proxy = std::make_unique<OxaAgentInterface>(&listener, kAgentAppId);
    fake::SetResult(fake::Call::Connect, result, fake::Mode::Once);
    EXPECT_NO_THROW(proxy->Connect(false)) << result;
    EXPECT_THAT(fake::Logs(),
                ElementsAre(ProxyLog("Connect", "Failed to connect OxaAgentInterface")))
        << result;
  }
}

TEST_F(AgentProxyConnectionTest, ConnectedEventStoresPortsAndTellsTheListener) {
  proxy->Connect(false);
  ASSERT_TRUE(fake::FireConnected());
  EXPECT_EQ(listener.connected, 1);
  EXPECT_THAT(fake::GetPortCalls(), ElementsAre(RPC_PORT_PORT_CALLBACK));
  fake::QueueReply(Reply({fake::Int32(3)}));
  EXPECT_EQ(proxy->Unregister(), 3);
  EXPECT_THAT(fake::SentParcels(),
              ElementsAre(fake::SentParcel{fake::Port::Main, {fake::Int32(24)}}));
  // The callback port fetched on connect is the one events are read from.
  const int seqId = RegisterDeviceFound();
  ASSERT_TRUE(fake::FireReceived(Callback(5, seqId, false, DeviceValues({"a", 1, "n"}))));
  EXPECT_EQ(observed.events.size(), 1U);
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyConnectionTest, DisconnectDestroysAllDelegatesThenTellsTheListenerOnce) {
  ConnectProxy();
  const int first = RegisterDeviceFound();
  const int second = RegisterDeviceFound();
  const int third = RegisterDeviceFound();
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_THAT(observed.destroyedSeqIds, ElementsAre(first, second, third));
  EXPECT_EQ(listener.disconnected, 1);
  EXPECT_EQ(listener.delegatesDestroyedBeforeDisconnected, 3);
  ASSERT_TRUE(fake::FireReceived(Callback(5, second, false, DeviceValues({"a", 1, "n"}))));
  EXPECT_THAT(observed.events, IsEmpty());
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyConnectionTest, PortStaysSetAfterDisconnect) {
  ConnectProxy();
  ASSERT_TRUE(fake::FireDisconnected());
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_THROW(proxy->StartDiscovery(1), InvalidIOException);
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->StartDiscovery(1), 0);
}

TEST_F(AgentProxyConnectionTest, RejectCallsOnRejectedAndLeavesPortUnset) {
  proxy->Connect(false);
  ASSERT_TRUE(fake::FireRejected(-13));
  EXPECT_EQ(listener.rejected, 1);
  EXPECT_EQ(listener.lastResultOnReject, -13);
  EXPECT_EQ(listener.connected, 0);
  EXPECT_THROW(proxy->Unregister(), NotConnectedSocketException);
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(AgentProxyConnectionTest, DestructorDestroysThePlatformProxyOnceAndThePendingDelegates) {
  ConnectProxy();
  const int first = RegisterDeviceFound();
  const int second = RegisterDeviceFound();
  proxy.reset();
  EXPECT_EQ(fake::ProxiesDestroyed(), 1);
  EXPECT_THAT(observed.destroyedSeqIds, ElementsAre(first, second));
  EXPECT_EQ(listener.disconnected, 0);
}

}  // namespace
}  // namespace proxytest
