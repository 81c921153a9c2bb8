// Sending a simple message through the handler: the command that carries it, the wrapper's life
// in the sent-command table, and the sent and received events through the proxy.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HandlerTest.h"

namespace {

using handlertest::apiLog;
using handlertest::appendCommand;
using handlertest::appendDelegate;
using handlertest::eventHeader;
using handlertest::HandlerTest;
using handlertest::kHandlerSource;
using handlertest::nextDelegateSeq;
using handlertest::notInitializedLog;
using handlertest::reply;
using handlertest::sourceLine;
using Oxa::Capi::sentCommands;
using Oxa::Capi::SimpleMessage;
using rpc_port::AgentProxy::proxy::NotConnectedSocketException;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kAddress = "00:11:22:33:44:55";

class SimpleMessageChannelTest : public HandlerTest {
 protected:
  std::vector<std::pair<SimpleMessage *, oxa_error_e>> reports;

  Oxa::Capi::SimpleMessageSentCallback reporter() {
    return [this](SimpleMessage *message, oxa_error_e result) {
      reports.emplace_back(message, result);
    };
  }
};

TEST_F(SimpleMessageChannelTest, MissingMessageIsRefusedBeforeTheStateCheck) {
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, nullptr, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(logs(), ElementsAre(apiLog(DLOG_ERROR, kHandlerSource, "SendSimpleMessage",
                                         sourceLine(kHandlerSource, "OXA_LOGE(\"No message\")"),
                                         "No message")));
}

TEST_F(SimpleMessageChannelTest, SendingBeforeConnectingFails) {
  SimpleMessage message(kAddress, {'a'});
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, nullptr), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(logs(), ElementsAre(notInitializedLog("SendSimpleMessage", "request(")));
  EXPECT_TRUE(sentCommands.empty());
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(SimpleMessageChannelTest, MessageTravelsAsCommandThreeWithTheAppIdHeader) {
  connect();
  SimpleMessage message(kAddress, {'h', 'i'});
  const int commandSeq = Oxa::Capi::sentCommandCounter.load();
  const int seq = nextDelegateSeq();
  fake::QueueReply(reply({fake::Int32(OXA_ERROR_NO_DEVICE)}));
  EXPECT_EQ(handler.SendSimpleMessage(6, 0x1234, &message, reporter()), OXA_ERROR_NO_DEVICE);

  fake::Values expected{fake::Int32(7), fake::Int32(6), fake::String(kAddress),
                        fake::Int32(6), fake::Int32(3), fake::Int32(3)};
  fake::AppendBytes(expected, {0x34, 0x00, 'h', 'i'});
  expected.push_back(fake::Int32(commandSeq));
  appendDelegate(expected, 3, seq);
  EXPECT_THAT(sent(), ElementsAre(fake::SentParcel{fake::Port::Main, expected}));
  ASSERT_EQ(sentCommands.count(commandSeq), 1U);
  const Oxa::Capi::Command *wrapper = sentCommands.at(commandSeq);
  EXPECT_EQ(wrapper->getAddress(), kAddress);
  EXPECT_EQ(wrapper->getType(), 3);
  EXPECT_EQ(wrapper->getId(), 3);
  EXPECT_EQ(wrapper->getPayload(), (std::vector<unsigned char>{0x34, 0, 'h', 'i'}));

  fake::Values event = eventHeader(3, seq);
  event.push_back(fake::Int32(OXA_ERROR_NONE));
  appendCommand(event, kAddress, 6, 3, 3, {0x34, 0, 'h', 'i'}, commandSeq);
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_TRUE(sentCommands.empty());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].first, &message);
  EXPECT_EQ(reports[0].second, OXA_ERROR_NONE);
}

TEST_F(SimpleMessageChannelTest, EmptyMessageCarriesOnlyTheHeader) {
  connect();
  SimpleMessage message(kAddress, {});
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, nullptr), OXA_ERROR_NONE);
  const auto all = sent();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].values[6], fake::Count(2));
  EXPECT_EQ(all[0].values[7], fake::Byte(0));
  EXPECT_EQ(all[0].values[8], fake::Byte(0));
  // The sent event of this message releases the wrapper even without a function.
  fake::Values event = eventHeader(3, handlertest::delegateSeq(all[0]));
  event.push_back(fake::Int32(0));
  appendCommand(event, kAddress, 1, 3, 3, {0, 0}, static_cast<int>(all[0].values[9].integer));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_TRUE(sentCommands.empty());
}

TEST_F(SimpleMessageChannelTest, FailedSendTakesTheWrapperBack) {
  connect();
  SimpleMessage message(kAddress, {'x'});
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, reporter()), OXA_ERROR_IO_ERROR);
  EXPECT_TRUE(sentCommands.empty());
  EXPECT_THAT(reports, IsEmpty());

  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, reporter()), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(sentCommands.empty());
  EXPECT_THAT(logs(),
              ElementsAre(apiLog(
                  DLOG_ERROR, kHandlerSource, "SendSimpleMessage",
                  sourceLine(kHandlerSource, "AgentProxyHandler::SendSimpleMessage(", "request("),
                  "InvalidProtocolException")));
}

TEST_F(SimpleMessageChannelTest, ExceptionLeavingTheHandlerTakesTheWrapperBackToo) {
  ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_NONE);
  // Connected as far as the handler knows, but the proxy never got its port.
  handler.OnConnected();
  SimpleMessage message(kAddress, {'x'});
  EXPECT_THROW(handler.SendSimpleMessage(1, 0, &message, reporter()), NotConnectedSocketException);
  EXPECT_TRUE(sentCommands.empty());
  ASSERT_TRUE(fake::FireConnected());
}

TEST_F(SimpleMessageChannelTest, LostConnectionReleasesWrappersStillWaiting) {
  connect();
  SimpleMessage message(kAddress, {'x'});
  fake::QueueReply(reply({fake::Int32(0)}));
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, reporter()), OXA_ERROR_NONE);
  EXPECT_EQ(handler.SendSimpleMessage(1, 0, &message, reporter()), OXA_ERROR_NONE);
  EXPECT_EQ(sentCommands.size(), 2U);
  // The proxy drops its delegates; no sent event can come for these messages any more.
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_TRUE(sentCommands.empty());
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(SimpleMessageChannelTest, ReceivedMessageArrivesWithoutItsHeader) {
  connect();
  std::vector<std::string> messages;
  fake::QueueReply(reply({fake::Int32(0)}));
  ASSERT_EQ(handler.RegisterSimpleMessageReceivedEvent(
                1,
                [&](const char *address, unsigned char *data, int length) {
                  messages.push_back(std::string(address) + "=" +
                                     (data != nullptr
                                          ? std::string(reinterpret_cast<char *>(data), length)
                                          : std::string("(none)")));
                }),
            OXA_ERROR_NONE);
  const int seq = handlertest::delegateSeq(sent().back());
  for (const std::vector<unsigned char> &payload :
       {std::vector<unsigned char>{9, 0, 'o', 'k'}, std::vector<unsigned char>{9, 0},
        std::vector<unsigned char>{9}}) {
    fake::Values event = eventHeader(4, seq);
    appendCommand(event, kAddress, 1, 3, 3, payload, 0);
    ASSERT_TRUE(fake::FireReceived(event));
  }
  EXPECT_THAT(messages,
              ElementsAre(std::string(kAddress) + "=ok", std::string(kAddress) + "=(none)"));
}

}  // namespace
