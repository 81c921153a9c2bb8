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

// The log line of an event adapter that is handed no object.
fake::LogLine missingObjectLog(const std::string &message) {
  return apiLog(DLOG_ERROR, "src/oxa.cc", "callApplication",
                sourceLine("src/oxa.cc", "void callApplication(Object", "missingObjectMessage("),
                message);
}

void countSentCommand(oxa_command_h /*command*/, oxa_error_e /*result*/, void *calls) {
  ++*static_cast<int *>(calls);
}

void countSentMessage(oxa_simple_message_h /*message*/, oxa_error_e /*result*/, void *calls) {
  ++*static_cast<int *>(calls);
}

void countState(oxa_service_h /*service*/, int /*state*/, void *calls) {
  ++*static_cast<int *>(calls);
}

// The sent event the agent sends for the last request sent: delegate and command record taken
// from that request.
fake::Values sentEventFor(const fake::SentParcel &request) {
  const fake::Values &values = request.values;
  fake::Values event = eventHeader(3, handlertest::delegateSeq(request));
  event.push_back(fake::Int32(OXA_ERROR_NONE));
  // The request carries method id and handler id, then the command record, then the delegate.
  event.insert(event.end(), values.begin() + 2, values.end() - 3);
  return event;
}

class DestroyedHandleTest : public HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    connect();
    ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_1, &service), OXA_ERROR_NONE);
  }
  void TearDown() override {
    oxa_service_destroy(service);
    HandlerTest::TearDown();
  }

  oxa_service_h service = nullptr;
  int calls = 0;
};

TEST_F(DestroyedHandleTest, CommandDestroyedBeforeItsSentEventIsNotHandedBack) {
  oxa_command_h command = nullptr;
  const unsigned char payload[] = {1, 2};
  ASSERT_EQ(oxa_command_create("00:11:22:33:44:55", OXA_COMMAND_TYPE_1, 4, payload, sizeof(payload),
                               &command),
            OXA_ERROR_NONE);
  fake::QueueReply(reply({fake::Int32(0)}));
  ASSERT_EQ(oxa_send_command(service, command, countSentCommand, &calls), OXA_ERROR_NONE);
  const fake::Values event = sentEventFor(sent().back());
  ASSERT_EQ(oxa_command_destroy(command), OXA_ERROR_NONE);
  EXPECT_TRUE(Oxa::Capi::sentCommands.empty());
  mark();
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(logs(), ElementsAre(missingObjectLog("No command")));
}

TEST_F(DestroyedHandleTest, MessageDestroyedBeforeItsSentEventIsNotHandedBack) {
  oxa_simple_message_h message = nullptr;
  const unsigned char data[] = {'h', 'i'};
  ASSERT_EQ(oxa_simple_message_create("00:11:22:33:44:55", data, sizeof(data), &message),
            OXA_ERROR_NONE);
  fake::QueueReply(reply({fake::Int32(0)}));
  ASSERT_EQ(oxa_send_simple_message(service, message, countSentMessage, &calls), OXA_ERROR_NONE);
  const fake::Values event = sentEventFor(sent().back());
  ASSERT_EQ(oxa_simple_message_destroy(message), OXA_ERROR_NONE);
  mark();
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(logs(), ElementsAre(missingObjectLog("No message")));
  // The wrapper command went with the event.
  EXPECT_TRUE(Oxa::Capi::sentCommands.empty());
}

TEST_F(DestroyedHandleTest, StateChangeAfterServiceDestroyCallsNothing) {
  oxa_service_h other = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_3, &other), OXA_ERROR_NONE);
  const int seqId = nextDelegateSeq();
  fake::QueueReply(reply({fake::Int32(0)}));
  ASSERT_EQ(oxa_service_set_state_changed_cb(other, countState, &calls), OXA_ERROR_NONE);
  fake::Values event = eventHeader(2, seqId);
  event.push_back(fake::Bool(true));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 1);
  ASSERT_EQ(oxa_service_destroy(other), OXA_ERROR_NONE);
  mark();
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(logs(), IsEmpty());
}

}  // namespace
