// Event registrations of the handler: what each register and unregister method sends, what it
// returns, and how the agent's events reach the stored functions through the proxy's dispatch.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "HandlerTest.h"

namespace {

using handlertest::appendCommand;
using handlertest::appendDelegate;
using handlertest::appendDevice;
using handlertest::delegateSeq;
using handlertest::eventHeader;
using handlertest::HandlerTest;
using handlertest::nextDelegateSeq;
using handlertest::notInitializedLog;
using handlertest::reply;
using Oxa::Capi::AgentProxyHandler;
using Oxa::Capi::Command;
using Oxa::Capi::Device;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kAddress = "00:11:22:33:44:55";
using Bytes = std::vector<unsigned char>;

fake::SentParcel request(const fake::Values &values) {
  return {fake::Port::Main, values};
}

struct Registration {
  std::string method;
  std::string stateCheck;
  int methodId;
  int delegateId;
  std::function<int(AgentProxyHandler &, int handlerId)> call;
};

std::vector<Registration> everyRegistration() {
  return {
      {"RegisterServiceStateChangedEvent", "request(", 5, 2,
       [](AgentProxyHandler &h, int id) {
         return h.RegisterServiceStateChangedEvent(id, nullptr);
       }},
      {"RegisterCommandReceivedEvent", "registerEvent<", 8, 4,
       [](AgentProxyHandler &h, int id) { return h.RegisterCommandReceivedEvent(id, nullptr); }},
      {"RegisterSimpleMessageReceivedEvent", "registerEvent<", 8, 4,
       [](AgentProxyHandler &h, int id) {
         return h.RegisterSimpleMessageReceivedEvent(id, nullptr);
       }},
      {"RegisterDeviceFoundEvent", "registerEvent<", 10, 5,
       [](AgentProxyHandler &h, int id) { return h.RegisterDeviceFoundEvent(id, nullptr); }},
      {"RegisterDeviceLostEvent", "registerEvent<", 12, 6,
       [](AgentProxyHandler &h, int id) { return h.RegisterDeviceLostEvent(id, nullptr); }},
      {"RegisterContextChangedEvent", "registerEvent<", 14, 7,
       [](AgentProxyHandler &h, int id) { return h.RegisterContextChangedEvent(id, nullptr); }},
  };
}

struct Unregistration {
  std::string method;
  int methodId;
  std::function<int(AgentProxyHandler &, int handlerId)> call;
};

std::vector<Unregistration> everyUnregistration() {
  return {
      {"UnregisterServiceStateChangedEvent", 6,
       [](AgentProxyHandler &h, int id) { return h.UnregisterServiceStateChangedEvent(id); }},
      {"UnregisterCommandReceivedEvent", 9,
       [](AgentProxyHandler &h, int id) { return h.UnregisterCommandReceivedEvent(id); }},
      {"UnregisterSimpleMessageReceivedEvent", 9,
       [](AgentProxyHandler &h, int id) { return h.UnregisterSimpleMessageReceivedEvent(id); }},
      {"UnregisterDeviceFoundEvent", 11,
       [](AgentProxyHandler &h, int id) { return h.UnregisterDeviceFoundEvent(id); }},
      {"UnregisterDeviceLostEvent", 13,
       [](AgentProxyHandler &h, int id) { return h.UnregisterDeviceLostEvent(id); }},
      {"UnregisterContextChangedEvent", 15,
       [](AgentProxyHandler &h, int id) { return h.UnregisterContextChangedEvent(id); }},
  };
}

class EventTest : public HandlerTest {
 protected:
  // Registers through `call` with an agent answering `result`; returns the delegate's sequence.
  int registered(const std::function<int()> &call, int expectedResult = OXA_ERROR_NONE) {
    fake::QueueReply(reply({fake::Int32(expectedResult)}));
    const size_t before = fake::SentParcels().size();
    EXPECT_EQ(call(), expectedResult);
    const auto all = fake::SentParcels();
    if (all.size() != before + 1) {
      ADD_FAILURE() << "the registration sent " << all.size() - before << " parcels";
      return -1;
    }
    return delegateSeq(all.back());
  }

  static fake::Values deviceEvent(int delegateId, int seq, int type) {
    fake::Values event = eventHeader(delegateId, seq);
    appendDevice(event, kAddress, type, "lamp");
    return event;
  }
};

TEST_F(EventTest, EveryRegistrationBeforeConnectingFailsAndCreatesNoDelegate) {
  for (const Registration &each : everyRegistration()) {
    mark();
    const int seqBefore = nextDelegateSeq();
    EXPECT_EQ(each.call(handler, 1), OXA_ERROR_INTERNAL_ERROR) << each.method;
    EXPECT_EQ(nextDelegateSeq(), seqBefore + 1) << each.method << " made a delegate";
    EXPECT_THAT(logs(), ElementsAre(notInitializedLog(each.method, each.stateCheck)));
  }
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(EventTest, EveryUnregistrationBeforeConnectingFails) {
  for (const Unregistration &each : everyUnregistration()) {
    mark();
    EXPECT_EQ(each.call(handler, 1), OXA_ERROR_INTERNAL_ERROR) << each.method;
    EXPECT_THAT(logs(), ElementsAre(notInitializedLog(each.method, "request(")));
  }
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(EventTest, EveryRegistrationSendsItsDelegateAndPassesTheAgentsResult) {
  connect();
  for (const Registration &each : everyRegistration()) {
    mark();
    const int seq = nextDelegateSeq();
    fake::QueueReply(reply({fake::Int32(OXA_ERROR_NO_DATA)}));
    const int result = each.call(handler, 6);
    fake::Values expected{fake::Int32(each.methodId), fake::Int32(6)};
    appendDelegate(expected, each.delegateId, seq);
    EXPECT_THAT(sent(), ElementsAre(request(expected))) << each.method;
    // The state-change registration reports success whatever the agent said.
    EXPECT_EQ(result, each.delegateId == 2 ? OXA_ERROR_NONE : OXA_ERROR_NO_DATA) << each.method;
    EXPECT_THAT(logs(), IsEmpty());
  }
}

TEST_F(EventTest, StateChangeRegistrationRefusedByTheAgentStillSucceeds) {
  connect();
  fake::QueueReply(reply({fake::Int32(OXA_ERROR_INVALID_PARAMETER)}));
  EXPECT_EQ(handler.RegisterServiceStateChangedEvent(1, nullptr), OXA_ERROR_NONE);
}

TEST_F(EventTest, DeviceFoundRegistrationDeniedByTheAgentReportsTheDenial) {
  connect();
  fake::QueueReply(reply({fake::Int32(OXA_ERROR_PERMISSION_DENIED)}));
  EXPECT_EQ(handler.RegisterDeviceFoundEvent(1, nullptr), OXA_ERROR_PERMISSION_DENIED);
}

TEST_F(EventTest, RegistrationFailuresAreMappedLikeEveryRequest) {
  connect();
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_EQ(handler.RegisterServiceStateChangedEvent(1, nullptr), OXA_ERROR_IO_ERROR);
  EXPECT_EQ(handler.RegisterDeviceLostEvent(1, nullptr), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(logs(), ElementsAre(handlertest::apiLog(
                          DLOG_ERROR, handlertest::kHandlerSource, "RegisterDeviceLostEvent",
                          handlertest::sourceLine(handlertest::kHandlerSource,
                                                  "AgentProxyHandler::RegisterDeviceLostEvent(",
                                                  "registerEvent<"),
                          "InvalidProtocolException")));
}

TEST_F(EventTest, EveryUnregistrationSendsTheHandlerIdAndPassesTheAgentsResult) {
  connect();
  for (const Unregistration &each : everyUnregistration()) {
    mark();
    fake::QueueReply(reply({fake::Int32(OXA_ERROR_INVALID_OPERATION)}));
    EXPECT_EQ(each.call(handler, 3), OXA_ERROR_INVALID_OPERATION) << each.method;
    EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(each.methodId), fake::Int32(3)})))
        << each.method;
  }
}

TEST_F(EventTest, StateChangesArriveAsZeroOrOne) {
  connect();
  std::vector<int> states;
  const int seq = registered([&] {
    return handler.RegisterServiceStateChangedEvent(1, [&](int state) { states.push_back(state); });
  });
  for (bool state : {true, false, true}) {
    fake::Values event = eventHeader(2, seq);
    event.push_back(fake::Bool(state));
    ASSERT_TRUE(fake::FireReceived(event));
  }
  EXPECT_THAT(states, ElementsAre(1, 0, 1));
}

TEST_F(EventTest, ReceivedCommandIsBuiltTypeFirstAndLentForTheCall) {
  connect();
  struct Seen {
    std::string address;
    int type;
    int id;
    Bytes payload;
  };
  std::vector<Seen> seen;
  const int seq = registered([&] {
    return handler.RegisterCommandReceivedEvent(3, [&](Command *command) {
      seen.push_back({command->getAddress().str(), command->getType(), command->getId(),
                      command->getPayload()});
    });
  });
  fake::Values event = eventHeader(4, seq);
  appendCommand(event, kAddress, 3, 12, 2, {7, 8, 9}, 55);
  ASSERT_TRUE(fake::FireReceived(event));
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].address, kAddress);
  EXPECT_EQ(seen[0].type, 2);
  EXPECT_EQ(seen[0].id, 12);
  EXPECT_EQ(seen[0].payload, (Bytes{7, 8, 9}));
}

TEST_F(EventTest, DeviceEventsNormaliseTheType) {
  connect();
  using Register = int (AgentProxyHandler::*)(int, Oxa::Capi::DeviceCallback);
  const std::vector<std::pair<Register, int>> kinds{
      {&AgentProxyHandler::RegisterDeviceFoundEvent, 5},
      {&AgentProxyHandler::RegisterDeviceLostEvent, 6},
      {&AgentProxyHandler::RegisterContextChangedEvent, 7}};
  for (const auto &[method, delegateId] : kinds) {
    std::vector<int> types;
    std::vector<std::string> names;
    const int seq = registered([&, method = method] {
      return (handler.*method)(1, [&](Device *device) {
        types.push_back(device->getType());
        names.push_back(device->getName().str() + "@" + device->getAddress().str());
      });
    });
    for (int type : {0, 6, -1, 5, 1}) {
      ASSERT_TRUE(fake::FireReceived(deviceEvent(delegateId, seq, type)));
    }
    EXPECT_THAT(types, ElementsAre(99, 99, 99, 5, 1)) << delegateId;
    EXPECT_EQ(names.size(), 5U);
    EXPECT_EQ(names.front(), std::string("lamp@") + kAddress);
  }
}

TEST_F(EventTest, DeviceFoundWithoutFunctionIsDropped) {
  connect();
  const int seq = registered([&] { return handler.RegisterDeviceFoundEvent(1, nullptr); });
  ASSERT_TRUE(fake::FireReceived(deviceEvent(5, seq, 2)));
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(EventTest, SecondRegistrationAddsASecondDelegate) {
  connect();
  std::vector<std::string> calls;
  const int first = registered([&] {
    return handler.RegisterDeviceFoundEvent(1, [&](Device *) { calls.emplace_back("first"); });
  });
  const int second = registered([&] {
    return handler.RegisterDeviceFoundEvent(1, [&](Device *) { calls.emplace_back("second"); });
  });
  EXPECT_NE(first, second);
  ASSERT_TRUE(fake::FireReceived(deviceEvent(5, second, 1)));
  ASSERT_TRUE(fake::FireReceived(deviceEvent(5, first, 1)));
  EXPECT_THAT(calls, ElementsAre("second", "first"));
}

TEST_F(EventTest, CommandAndSimpleMessageDelegatesShareIdFourAndAreToldApartBySequence) {
  connect();
  std::vector<int> commandIds;
  std::vector<std::string> messages;
  const int commandSeq = registered([&] {
    return handler.RegisterCommandReceivedEvent(
        1, [&](Command *command) { commandIds.push_back(command->getId()); });
  });
  const int messageSeq = registered([&] {
    return handler.RegisterSimpleMessageReceivedEvent(
        1, [&](const char *address, unsigned char *data, int length) {
          messages.push_back(std::string(address) + "=" +
                             std::string(reinterpret_cast<char *>(data), length));
        });
  });
  const auto all = fake::SentParcels();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].values[2], fake::Int32(4));
  EXPECT_EQ(all[1].values[2], fake::Int32(4));

  fake::Values toCommand = eventHeader(4, commandSeq);
  appendCommand(toCommand, kAddress, 1, 21, 1, {'x', 'y', 'o', 'k'}, 0);
  ASSERT_TRUE(fake::FireReceived(toCommand));
  // The simple-message side decodes whatever command it is given.
  fake::Values toMessage = eventHeader(4, messageSeq);
  appendCommand(toMessage, kAddress, 1, 21, 1, {'x', 'y', 'o', 'k'}, 0);
  ASSERT_TRUE(fake::FireReceived(toMessage));

  EXPECT_THAT(commandIds, ElementsAre(21));
  EXPECT_THAT(messages, ElementsAre(std::string(kAddress) + "=ok"));
}

TEST_F(EventTest, EventForAnUnknownSequenceReachesNoFunction) {
  connect();
  int calls = 0;
  const int seq =
      registered([&] { return handler.RegisterDeviceLostEvent(1, [&](Device *) { ++calls; }); });
  ASSERT_TRUE(fake::FireReceived(deviceEvent(6, seq + 1000, 1)));
  EXPECT_EQ(calls, 0);
}

TEST_F(EventTest, SimpleMessageUnregistrationEndsCommandDeliveryToo) {
  connect();
  fake::QueueReply(reply({fake::Int32(0)}));
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(handler.UnregisterSimpleMessageReceivedEvent(6), OXA_ERROR_NONE);
  EXPECT_EQ(handler.UnregisterCommandReceivedEvent(6), OXA_ERROR_NONE);
  // Both ask the agent to stop the same event of the service.
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(9), fake::Int32(6)}),
                                  request({fake::Int32(9), fake::Int32(6)})));
}

}  // namespace
