// The call frame every agent method runs: its failures, their log lines and what they leave.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>

#include "ProxyTestSupport.h"

namespace proxytest {
namespace {

using rpc_port::AgentProxy::proxy::InvalidIOException;
using rpc_port::AgentProxy::proxy::InvalidProtocolException;
using rpc_port::AgentProxy::proxy::NotConnectedSocketException;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using CallbackBase = OxaAgentInterface::CallbackBase;

// Calls one method; a delegate that the method did not take is handed back in `leftover`.
using Invoke =
    std::function<void(OxaAgentInterface &, Observed &, std::unique_ptr<CallbackBase> &)>;

struct MethodCase {
  const char *name;
  bool waitsForReply;
  bool hasDelegate;
  Invoke invoke;
};

std::ostream &operator<<(std::ostream &out, const MethodCase &method) {
  return out << method.name;
}

Invoke plain(std::function<void(OxaAgentInterface &)> call) {
  return [call](OxaAgentInterface &proxy, Observed &, std::unique_ptr<CallbackBase> &) {
    call(proxy);
  };
}

// The delegate is held as the proxy's own event type, as callers must hold it: a unique pointer
// of a derived type would be converted into a temporary, which takes ownership at the call.
template <typename ProbeType>
Invoke withDelegate(
    int delegateId,
    std::function<void(OxaAgentInterface &, std::unique_ptr<typename ProbeType::EventClass> &&)>
        call) {
  return [delegateId, call](OxaAgentInterface &proxy, Observed &observed,
                            std::unique_ptr<CallbackBase> &leftover) {
    std::unique_ptr<typename ProbeType::EventClass> probe =
        std::make_unique<ProbeType>(delegateId, false, observed);
    try {
      call(proxy, std::move(probe));
    } catch (...) {
      leftover = std::move(probe);
      throw;
    }
  };
}

std::vector<MethodCase> allMethods() {
  using P = OxaAgentInterface;
  std::vector<unsigned char> bytes;
  bool state = false;
  std::vector<DeviceRecord> devices;
  DeviceRecord device;
  return {
      {"RegisterService", false, true,
       withDelegate<ServiceRegisteredProbe>(
           1, [](P &p, auto &&d) { p.RegisterService(1, std::move(d)); })},
      {"UnregisterService", true, false, plain([](P &p) { p.UnregisterService(1); })},
      {"GetServiceState", true, false,
       plain([state](P &p) mutable { p.GetServiceState(1, state); })},
      {"RegisterServiceStateChangedEvent", true, true,
       withDelegate<ServiceStateChangedProbe>(
           2, [](P &p, auto &&d) { p.RegisterServiceStateChangedEvent(1, std::move(d)); })},
      {"UnregisterServiceStateChangedEvent", true, false,
       plain([](P &p) { p.UnregisterServiceStateChangedEvent(1); })},
      {"SendCommand", true, true,
       withDelegate<CommandSentProbe>(
           3, [](P &p, auto &&d) { p.SendCommand(1, CommandRecord{}, std::move(d)); })},
      {"RegisterCommandReceivedEvent", true, true,
       withDelegate<CommandReceivedProbe>(
           4, [](P &p, auto &&d) { p.RegisterCommandReceivedEvent(1, std::move(d)); })},
      {"UnregisterCommandReceivedEvent", true, false,
       plain([](P &p) { p.UnregisterCommandReceivedEvent(1); })},
      {"RegisterDeviceFoundEvent", true, true,
       withDelegate<DeviceFoundProbe>(
           5, [](P &p, auto &&d) { p.RegisterDeviceFoundEvent(1, std::move(d)); })},
      {"UnregisterDeviceFoundEvent", true, false,
       plain([](P &p) { p.UnregisterDeviceFoundEvent(1); })},
      {"RegisterDeviceLostEvent", true, true,
       withDelegate<DeviceLostProbe>(
           6, [](P &p, auto &&d) { p.RegisterDeviceLostEvent(1, std::move(d)); })},
      {"UnregisterDeviceLostEvent", true, false,
       plain([](P &p) { p.UnregisterDeviceLostEvent(1); })},
      {"RegisterContextChangedEvent", true, true,
       withDelegate<ContextChangedProbe>(
           7, [](P &p, auto &&d) { p.RegisterContextChangedEvent(1, std::move(d)); })},
      {"UnregisterContextChangedEvent", true, false,
       plain([](P &p) { p.UnregisterContextChangedEvent(1); })},
      {"StartDiscovery", true, false, plain([](P &p) { p.StartDiscovery(1); })},
      {"StopDiscovery", true, false, plain([](P &p) { p.StopDiscovery(1); })},
      {"GetFoundDeviceList", true, false,
       plain([devices](P &p) mutable { p.GetFoundDeviceList(1, devices); })},
      {"GetMyDevice", true, false,
       plain([device](P &p) mutable { p.GetMyDevice(1, "address", device); })},
      {"GetAdvRawData", true, false,
       plain([bytes](P &p) mutable { p.GetAdvRawData("address", bytes); })},
      {"GetContext", true, false,
       plain([bytes](P &p) mutable { p.GetContext("address", 1, 1, bytes); })},
      {"UpdateContext", true, false, plain([bytes](P &p) { p.UpdateContext(1, 1, bytes); })},
      {"SetAppId", true, false, plain([](P &p) { p.SetAppId(1); })},
      {"Unregister", true, false, plain([](P &p) { p.Unregister(); })},
  };
}

class AgentProxyCallFrameTest : public ProxyTest, public ::testing::WithParamInterface<MethodCase> {
 protected:
  void Invoke() { GetParam().invoke(*proxy, observed, leftover); }

  std::unique_ptr<CallbackBase> leftover;
};

TEST_P(AgentProxyCallFrameTest, NotConnectedThrowsBeforeWritingAnything) {
  EXPECT_THROW(Invoke(), NotConnectedSocketException);
  EXPECT_THAT(fake::Logs(), ElementsAre(ProxyLog(GetParam().name, "Not connected")));
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
  EXPECT_EQ(fake::ParcelsCreated(), 0U);
  EXPECT_EQ(leftover != nullptr, GetParam().hasDelegate) << "the caller keeps its delegate";
  EXPECT_THAT(observed.destroyedSeqIds, IsEmpty());
}

TEST_P(AgentProxyCallFrameTest, SendFailureLogsDestroysTheRequestAndKeepsTheDelegate) {
  ConnectProxy();
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_THROW(Invoke(), InvalidIOException);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(ProxyLog(GetParam().name, "Failed to send parcel. result(%d)",
                                   "Failed to send parcel. result(-5)")));
  EXPECT_EQ(fake::SentParcels().size(), 1U);
  EXPECT_EQ(fake::LiveParcels(), 0U);
  EXPECT_EQ(leftover, nullptr);
  EXPECT_THAT(observed.destroyedSeqIds, IsEmpty());
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_EQ(observed.destroyedSeqIds.size(), GetParam().hasDelegate ? 1U : 0U);
}

// Every method but RegisterService, which does not wait for a reply.
class AgentProxyWaitingCallFrameTest : public AgentProxyCallFrameTest {};

std::vector<MethodCase> waitingMethods() {
  std::vector<MethodCase> methods;
  for (const MethodCase &method : allMethods()) {
    if (method.waitsForReply) {
      methods.push_back(method);
    }
  }
  return methods;
}

TEST_P(AgentProxyWaitingCallFrameTest, MissingReplyLogsInvalidProtocolAndLeavesTheRequest) {
  ConnectProxy();
  EXPECT_THROW(Invoke(), InvalidProtocolException);
  EXPECT_THAT(fake::Logs(), ElementsAre(ProxyLog(GetParam().name, "Invalid protocol")));
  EXPECT_EQ(fake::SentParcels().size(), 1U);
  EXPECT_EQ(fake::LiveParcels(), 1U) << "the request parcel is deliberately not destroyed";
  EXPECT_EQ(leftover, nullptr);
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_EQ(observed.destroyedSeqIds.size(), GetParam().hasDelegate ? 1U : 0U);
}

std::string methodName(const ::testing::TestParamInfo<MethodCase> &info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(AllMethods, AgentProxyCallFrameTest, ::testing::ValuesIn(allMethods()),
                         methodName);
INSTANTIATE_TEST_SUITE_P(WaitingMethods, AgentProxyWaitingCallFrameTest,
                         ::testing::ValuesIn(waitingMethods()), methodName);

class AgentProxyReplyTest : public ProxyTest {
 protected:
  void SetUp() override {
    ProxyTest::SetUp();
    ConnectProxy();
  }
};

TEST_F(AgentProxyReplyTest, ParcelsWithANonZeroCommandIdAreSkipped) {
  fake::QueueReply({fake::Int32(1), fake::Int32(5), fake::Int32(0), fake::Bool(false)});
  fake::QueueReply({fake::Int32(-1)});
  fake::QueueReply({fake::Int32(0), fake::Int32(42)});
  fake::QueueReply({fake::Int32(0), fake::Int32(43)});
  EXPECT_EQ(proxy->StartDiscovery(1), 42);
  EXPECT_EQ(fake::PendingReplies(), 1U);
  EXPECT_EQ(fake::LiveParcels(), 0U);
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyReplyTest, OnlySkippedParcelsMeansInvalidProtocol) {
  fake::QueueReply({fake::Int32(1)});
  fake::QueueReply({fake::Int32(2)});
  EXPECT_THROW(proxy->Unregister(), InvalidProtocolException);
  EXPECT_EQ(fake::PendingReplies(), 0U);
  EXPECT_EQ(fake::LiveParcels(), 1U);
}

TEST_F(AgentProxyReplyTest, AFailedReadFromThePortIsInvalidProtocol) {
  fake::QueueReply({fake::Int32(0), fake::Int32(0)});
  fake::SetResult(fake::Call::CreateFromPort, -5, fake::Mode::Once);
  EXPECT_THROW(proxy->Unregister(), InvalidProtocolException);
  EXPECT_THAT(fake::Logs(), ElementsAre(ProxyLog("Unregister", "Invalid protocol")));
  EXPECT_EQ(fake::PendingReplies(), 1U);
}

TEST_F(AgentProxyReplyTest, TheLockIsReleasedAfterEachFailure) {
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_THROW(proxy->Unregister(), InvalidIOException);
  EXPECT_THROW(proxy->Unregister(), InvalidProtocolException);
  fake::QueueReply({fake::Int32(0), fake::Int32(8)});
  // Another thread can take the call lock: a lock left held would block it.
  auto other = std::async(std::launch::async, [this] { return proxy->Unregister(); });
  ASSERT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(other.get(), 8);
}

TEST_F(AgentProxyReplyTest, RegisterServiceDoesNotReadFromThePort) {
  fake::QueueReply({fake::Int32(0), fake::Int32(0)});
  proxy->RegisterService(1, MakeProbe<ServiceRegisteredProbe>(1));
  EXPECT_EQ(fake::PendingReplies(), 1U);
  EXPECT_EQ(fake::ParcelsCreated(), 1U);
  EXPECT_EQ(fake::LiveParcels(), 0U);
}

}  // namespace
}  // namespace proxytest
