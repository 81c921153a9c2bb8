// Objects that an event is still using while the application removes or destroys them: a
// delegate removed during its own call, a proxy replaced from inside one of its events, and a
// service destroyed before the agent answered its registration. Each is freed only once nothing
// uses it any more (run under AddressSanitizer, a use after free fails these tests).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "HandlerTest.h"
#include "ProxyTestSupport.h"
#include "Service.h"

namespace {

using handlertest::apiLog;
using handlertest::appendDevice;
using handlertest::eventHeader;
using handlertest::HandlerTest;
using handlertest::kServiceSource;
using handlertest::nextDelegateSeq;
using handlertest::reply;
using handlertest::sourceLine;
using Oxa::Capi::Service;
using proxytest::DeviceValues;
using proxytest::OxaAgentInterface;
using proxytest::ProxyTest;
using rpc_port::AgentProxy::DeviceRecord;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A device-found delegate that runs `action` during its own call and then reads one of its own
// members, which would be a use after free had the action freed it.
class SelfRemovingDelegate : public OxaAgentInterface::OnDeviceFoundEvent {
 public:
  SelfRemovingDelegate(std::function<void(SelfRemovingDelegate &)> action,
                       std::vector<std::string> &trace, bool once = false)
      : OnDeviceFoundEvent(5, once), action(std::move(action)), trace(trace) {}
  ~SelfRemovingDelegate() override { trace.push_back("destroyed"); }
  SelfRemovingDelegate(const SelfRemovingDelegate &) = delete;
  SelfRemovingDelegate &operator=(const SelfRemovingDelegate &) = delete;

  void OnReceived(const DeviceRecord & /*device*/) override {
    trace.push_back("called");
    action(*this);
    trace.push_back(marker);
  }

 private:
  std::function<void(SelfRemovingDelegate &)> action;
  std::vector<std::string> &trace;
  std::string marker = "returned";
};

class DelegateLifetimeTest : public ProxyTest {
 protected:
  int registerSelfRemoving(std::function<void(SelfRemovingDelegate &)> action) {
    auto delegate = std::make_unique<SelfRemovingDelegate>(std::move(action), trace);
    const int seqId = delegate->GetSeqId();
    fake::QueueReply(proxytest::Reply({fake::Int32(0)}));
    std::unique_ptr<OxaAgentInterface::OnDeviceFoundEvent> owned = std::move(delegate);
    EXPECT_EQ(proxy->RegisterDeviceFoundEvent(1, std::move(owned)), 0);
    return seqId;
  }

  static fake::Values found(int seqId) {
    return proxytest::Callback(5, seqId, false, DeviceValues({"a", 1, "n"}));
  }

  std::vector<std::string> trace;
};

TEST_F(DelegateLifetimeTest, DelegateRemovedDuringItsOwnCallIsFreedAfterTheCall) {
  ConnectProxy();
  const int seqId = registerSelfRemoving(
      [this](SelfRemovingDelegate &self) { proxy->DisposeCallback(self.GetTag()); });
  ASSERT_TRUE(fake::FireReceived(found(seqId)));
  EXPECT_THAT(trace, ElementsAre("called", "returned", "destroyed"));
  // Gone from the list: its next event reaches nobody.
  ASSERT_TRUE(fake::FireReceived(found(seqId)));
  EXPECT_EQ(trace.size(), 3U);
}

TEST_F(DelegateLifetimeTest, DisconnectionDuringADelegatesCallFreesItAfterTheCall) {
  ConnectProxy();
  const int other = RegisterDeviceFound();
  const int seqId =
      registerSelfRemoving([](SelfRemovingDelegate & /*self*/) { fake::FireDisconnected(); });
  ASSERT_TRUE(fake::FireReceived(found(seqId)));
  EXPECT_THAT(trace, ElementsAre("called", "returned", "destroyed"));
  // The other delegate went at once, before the listener heard of the loss.
  EXPECT_THAT(observed.destroyedSeqIds, ElementsAre(other));
  EXPECT_EQ(listener.disconnected, 1);
  EXPECT_EQ(listener.delegatesDestroyedBeforeDisconnected, 1);
}

TEST_F(DelegateLifetimeTest, OnceDelegateRemovedDuringItsCallIsFreedOnce) {
  ConnectProxy();
  auto delegate = std::make_unique<SelfRemovingDelegate>(
      [this](SelfRemovingDelegate &self) { proxy->DisposeCallback(self.GetTag()); }, trace, true);
  const int seqId = delegate->GetSeqId();
  std::unique_ptr<OxaAgentInterface::OnDeviceFoundEvent> owned = std::move(delegate);
  fake::QueueReply(proxytest::Reply({fake::Int32(0)}));
  ASSERT_EQ(proxy->RegisterDeviceFoundEvent(1, std::move(owned)), 0);
  ASSERT_TRUE(fake::FireReceived(found(seqId)));
  EXPECT_THAT(trace, ElementsAre("called", "returned", "destroyed"));
}

class HandlerLifetimeTest : public HandlerTest {};

TEST_F(HandlerLifetimeTest, RegistrationAnswerAfterServiceDestroyOnlyLogs) {
  connect();
  auto service = std::make_unique<Service>(OXA_SERVICE_TYPE_3);
  int calls = 0;
  const int seqId = nextDelegateSeq();
  ASSERT_EQ(service->registerService([&calls](oxa_error_e /*result*/) { ++calls; }),
            OXA_ERROR_NONE);
  fake::QueueReply(reply({fake::Int32(0)}));  // the UnregisterService of the destruction
  service.reset();
  mark();

  fake::Values event = eventHeader(1, seqId);
  event.push_back(fake::Int32(OXA_ERROR_NONE));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(logs(), ElementsAre(apiLog(DLOG_INFO, kServiceSource, "onRegistered",
                                         sourceLine(kServiceSource, "Service::onRegistered(",
                                                    "\"Service is registered. result[%d]\""),
                                         "Service is registered. result[0]")));
}

TEST_F(HandlerLifetimeTest, ProxyReplacedFromInsideItsEventGoesAfterTheEvent) {
  connect();
  int calls = 0;
  int destroyedDuringCall = -1;
  const int seqId = nextDelegateSeq();
  fake::QueueReply(reply({fake::Int32(0)}));
  ASSERT_EQ(handler.RegisterDeviceFoundEvent(1,
                                             [&](Oxa::Capi::Device * /*device*/) {
                                               ++calls;
                                               fake::QueueReply(reply({fake::Int32(0)}));
                                               handler.Disconnect();
                                               handler.Connect(recorder());
                                               destroyedDuringCall = fake::ProxiesDestroyed();
                                             }),
            OXA_ERROR_NONE);
  fake::Values event = eventHeader(5, seqId);
  appendDevice(event, "00:11:22:33:44:55", 1, "n");
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(destroyedDuringCall, 0);
  EXPECT_EQ(fake::ProxiesCreated(), 2);
  EXPECT_EQ(fake::ProxiesDestroyed(), 1);
  // The new proxy is the handler's: its connection reaches the completion function.
  ASSERT_TRUE(fake::FireConnected());
  EXPECT_THAT(initializedResults(), ElementsAre(OXA_ERROR_NONE));
}

}  // namespace
