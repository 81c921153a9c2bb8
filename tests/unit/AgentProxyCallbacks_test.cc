// The callback classes on their own: what each OnReceived hands to its function, the table of
// sent commands, and the checks of a received simple message.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HandlerTest.h"

namespace {

using handlertest::apiLog;
using handlertest::kCallbacksSource;
using handlertest::sourceLine;
using Oxa::Capi::Command;
using Oxa::Capi::CommandRecord;
using Oxa::Capi::sentCommands;
using Oxa::Capi::SimpleMessage;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kAddress = "00:11:22:33:44:55";
using Bytes = std::vector<unsigned char>;

CommandRecord record(const std::string &address, const Bytes &payload, int seqId = 0) {
  CommandRecord command;
  command.address = address;
  command.handlerId = 1;
  command.id = 9;
  command.type = 2;
  command.payload = payload;
  command.seqId = seqId;
  return command;
}

// Sent-command bookkeeping and the plain callbacks work without a platform; the fake is reset
// for the log lines of the simple-message checks.
class CallbacksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake::Reset();
    sentCommands.clear();
  }
  void TearDown() override {
    EXPECT_THAT(fake::Faults(), IsEmpty());
    sentCommands.clear();
  }

  static fake::LogLine callbackLog(log_priority level, const std::string &needle,
                                   const std::string &message) {
    return apiLog(level, kCallbacksSource, "OnReceived", sourceLine(kCallbacksSource, needle),
                  message);
  }
};

TEST_F(CallbacksTest, SentCommandRecordCarriesTheCommandAndTheNextSequenceNumber) {
  Command first(kAddress, OXA_COMMAND_TYPE_3, 40, {1, 2});
  Command second(kAddress, OXA_COMMAND_TYPE_1, 41, {});
  const int next = Oxa::Capi::sentCommandCounter.load();
  const CommandRecord one = Oxa::Capi::toSentCommandRecord(6, &first);
  const CommandRecord two = Oxa::Capi::toSentCommandRecord(3, &second);
  EXPECT_EQ(one.address, kAddress);
  EXPECT_EQ(one.handlerId, 6);
  EXPECT_EQ(one.id, 40);
  EXPECT_EQ(one.type, 3);
  EXPECT_EQ(one.payload, (Bytes{1, 2}));
  EXPECT_EQ(one.seqId, next);
  EXPECT_EQ(two.seqId, next + 1);
  EXPECT_EQ(two.handlerId, 3);
  EXPECT_TRUE(two.payload.empty());
  EXPECT_EQ(sentCommands.size(), 2U);
  EXPECT_EQ(sentCommands.at(next), &first);
  EXPECT_EQ(sentCommands.at(next + 1), &second);
}

TEST_F(CallbacksTest, CommandSentFindsTheCommandBySequenceAndRemovesIt) {
  Command command(kAddress, OXA_COMMAND_TYPE_1, 1, {});
  const int seq = Oxa::Capi::toSentCommandRecord(1, &command).seqId;
  std::vector<std::pair<Command *, oxa_error_e>> reports;
  Oxa::Capi::OnCommandSentCallback callback(
      [&](Command *sent, oxa_error_e result) { reports.emplace_back(sent, result); });
  callback.OnReceived(OXA_ERROR_IO_ERROR, record(kAddress, {}, seq));
  callback.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].first, &command);
  EXPECT_EQ(reports[0].second, OXA_ERROR_IO_ERROR);
  // Taken out by the first report: a repeated or unknown sequence finds nothing.
  EXPECT_EQ(reports[1].first, nullptr);
  EXPECT_EQ(reports[1].second, OXA_ERROR_NONE);
  EXPECT_TRUE(sentCommands.empty());
  EXPECT_EQ(callback.GetId(), 3);
  EXPECT_FALSE(callback.IsOnce());
}

TEST_F(CallbacksTest, CommandSentWithoutFunctionLeavesTheEntry) {
  Command command(kAddress, OXA_COMMAND_TYPE_1, 1, {});
  const int seq = Oxa::Capi::toSentCommandRecord(1, &command).seqId;
  Oxa::Capi::OnCommandSentCallback callback(nullptr);
  callback.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  EXPECT_EQ(sentCommands.at(seq), &command);
}

// Enters a wrapper command in sentCommands as the handler does for a simple message.
int enterWrapper() {
  return Oxa::Capi::toSentCommandRecord(
             1, new Command(kAddress, OXA_COMMAND_TYPE_3, 3, {0, 0, 'h', 'i'}))
      .seqId;
}

TEST_F(CallbacksTest, SimpleMessageSentReleasesTheWrapperFirstAndReportsTheMessage) {
  SimpleMessage message(kAddress, {'h', 'i'});
  const int seq = enterWrapper();
  std::vector<std::pair<SimpleMessage *, oxa_error_e>> reports;
  Oxa::Capi::OnSimpleMessageSentCallback callback(
      [&](SimpleMessage *sent, oxa_error_e result) {
        EXPECT_TRUE(sentCommands.empty()) << "the wrapper is still listed during the call";
        reports.emplace_back(sent, result);
      },
      &message, seq);
  callback.OnReceived(OXA_ERROR_NO_DEVICE, record(kAddress, {}, seq));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].first, &message);
  EXPECT_EQ(reports[0].second, OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(callback.GetId(), 3);
  EXPECT_FALSE(callback.IsOnce());
}

TEST_F(CallbacksTest, SimpleMessageSentWithoutFunctionStillReleasesTheWrapper) {
  const int seq = enterWrapper();
  Oxa::Capi::OnSimpleMessageSentCallback callback(nullptr, nullptr, seq);
  callback.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  EXPECT_TRUE(sentCommands.empty());
}

TEST_F(CallbacksTest, SimpleMessageSentReleasesTheEntryItsRecordNames) {
  SimpleMessage message(kAddress, {'h', 'i'});
  const int own = enterWrapper();
  const int named = enterWrapper();
  std::vector<SimpleMessage *> reports;
  {
    Oxa::Capi::OnSimpleMessageSentCallback callback(
        [&](SimpleMessage *sent, oxa_error_e) { reports.push_back(sent); }, &message, own);
    callback.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, named));
    EXPECT_THAT(reports, ElementsAre(&message));
    EXPECT_EQ(sentCommands.count(named), 0U);
    EXPECT_EQ(sentCommands.count(own), 1U);
  }
  // Its own wrapper goes with the delegate, which no event can reach any more.
  EXPECT_TRUE(sentCommands.empty());
}

// An agent that names a simple message's wrapper in a command's sent event gets no command
// handed to the application, which would never free it; the wrapper waits for its own event.
TEST_F(CallbacksTest, CommandSentNamingAMessageWrapperReportsNoCommand) {
  auto *wrapper =
      new Command(kAddress, OXA_COMMAND_TYPE_3, 3, {0, 0, 'h', 'i'}, Command::Owner::Library);
  const int seq = Oxa::Capi::toSentCommandRecord(1, wrapper).seqId;
  std::vector<std::pair<Command *, oxa_error_e>> reports;
  Oxa::Capi::OnCommandSentCallback commandSent(
      [&](Command *sent, oxa_error_e result) { reports.emplace_back(sent, result); });
  commandSent.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].first, nullptr);
  EXPECT_EQ(reports[0].second, OXA_ERROR_NONE);
  EXPECT_EQ(sentCommands.at(seq), wrapper);

  Oxa::Capi::OnSimpleMessageSentCallback messageSent(nullptr, nullptr, seq);
  messageSent.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  EXPECT_TRUE(sentCommands.empty());
}

// The other way round: a simple message's sent event that names an application's command leaves
// it to the application and to that command's own sent event.
TEST_F(CallbacksTest, SimpleMessageSentNamingAnApplicationCommandLeavesIt) {
  Command command(kAddress, OXA_COMMAND_TYPE_1, 1, {}, Command::Owner::Application);
  const int seq = Oxa::Capi::toSentCommandRecord(1, &command).seqId;
  const int own = enterWrapper();
  std::vector<SimpleMessage *> reports;
  SimpleMessage message(kAddress, {'h', 'i'});
  {
    Oxa::Capi::OnSimpleMessageSentCallback messageSent(
        [&](SimpleMessage *sent, oxa_error_e) { reports.push_back(sent); }, &message, own);
    messageSent.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
    EXPECT_THAT(reports, ElementsAre(&message));
    EXPECT_EQ(sentCommands.at(seq), &command);
  }
  std::vector<Command *> sent;
  Oxa::Capi::OnCommandSentCallback commandSent(
      [&](Command *taken, oxa_error_e) { sent.push_back(taken); });
  commandSent.OnReceived(OXA_ERROR_NONE, record(kAddress, {}, seq));
  EXPECT_THAT(sent, ElementsAre(&command));
  EXPECT_TRUE(sentCommands.empty());
}

TEST_F(CallbacksTest, SimpleMessageSentDelegateReleasesAPendingWrapperWhenDestroyed) {
  const int seq = enterWrapper();
  { Oxa::Capi::OnSimpleMessageSentCallback callback(nullptr, nullptr, seq); }
  EXPECT_TRUE(sentCommands.empty());
}

struct Received {
  std::string address;
  bool data;
  Bytes bytes;
  int length;
};

class SimpleMessageReceivedTest : public CallbacksTest {
 protected:
  std::vector<Received> received;
  Oxa::Capi::OnSimpleMessageReceivedCallback callback{
      [this](const char *address, unsigned char *data, int length) {
        received.push_back({address, data != nullptr,
                            data != nullptr ? Bytes(data, data + length) : Bytes{}, length});
      }};
};

TEST_F(SimpleMessageReceivedTest, DeliversTheBytesAfterTheTwoHeaderBytes) {
  callback.OnReceived(record(kAddress, {0x34, 0, 'h', 'e', 'y'}));
  ASSERT_EQ(received.size(), 1U);
  EXPECT_EQ(received[0].address, kAddress);
  EXPECT_TRUE(received[0].data);
  EXPECT_EQ(received[0].bytes, (Bytes{'h', 'e', 'y'}));
  EXPECT_EQ(received[0].length, 3);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_INFO, "\"Data length[%d]\"", "Data length[3]")));
  EXPECT_EQ(callback.GetId(), 4);
}

TEST_F(SimpleMessageReceivedTest, TwoBytePayloadIsAnEmptyMessageWithoutData) {
  callback.OnReceived(record(kAddress, {1, 2}));
  ASSERT_EQ(received.size(), 1U);
  EXPECT_FALSE(received[0].data);
  EXPECT_EQ(received[0].length, 0);
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_INFO, "\"Data length[%d]\"", "Data length[0]")));
}

TEST_F(SimpleMessageReceivedTest, PayloadShorterThanTheHeaderIsDropped) {
  callback.OnReceived(record(kAddress, {1}));
  callback.OnReceived(record(kAddress, {}));
  EXPECT_THAT(received, IsEmpty());
  const std::string needle = "\"Invalid data. payload size[%d]\"";
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_ERROR, needle, "Invalid data. payload size[1]"),
                          callbackLog(DLOG_ERROR, needle, "Invalid data. payload size[0]")));
}

TEST_F(SimpleMessageReceivedTest, AddressOfAnyLengthButSeventeenIsDropped) {
  callback.OnReceived(record("00:11:22:33:44:5", {0, 0, 'a'}));
  callback.OnReceived(record("00:11:22:33:44:555", {0, 0, 'a'}));
  callback.OnReceived(record("", {0, 0, 'a'}));
  EXPECT_THAT(received, IsEmpty());
  const std::string needle = "\"Invalid MAC address length[%d]\"";
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_ERROR, needle, "Invalid MAC address length[16]"),
                          callbackLog(DLOG_ERROR, needle, "Invalid MAC address length[18]"),
                          callbackLog(DLOG_ERROR, needle, "Invalid MAC address length[0]")));
}

TEST_F(SimpleMessageReceivedTest, AddressIsCheckedBeforeThePayload) {
  callback.OnReceived(record("short", {}));
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_ERROR, "\"Invalid MAC address length[%d]\"",
                                      "Invalid MAC address length[5]")));
}

TEST_F(CallbacksTest, SimpleMessageReceivedWithoutFunctionIsDropped) {
  Oxa::Capi::OnSimpleMessageReceivedCallback callback(nullptr);
  callback.OnReceived(record(kAddress, {0, 0, 'a', 'b'}));
  EXPECT_THAT(fake::Logs(),
              ElementsAre(callbackLog(DLOG_INFO, "\"Data length[%d]\"", "Data length[2]")));
}

TEST_F(CallbacksTest, PlainValueCallbacksPassTheirValue) {
  std::vector<int> values;
  Oxa::Capi::OnServiceRegisteredCallback registered(
      [&](oxa_error_e result) { values.push_back(result); });
  Oxa::Capi::OnServiceStateChangedCallback changed([&](int state) { values.push_back(state); });
  registered.OnReceived(-13);
  changed.OnReceived(true);
  changed.OnReceived(false);
  EXPECT_THAT(values, ElementsAre(-13, 1, 0));
  EXPECT_EQ(registered.GetId(), 1);
  EXPECT_EQ(changed.GetId(), 2);

  Oxa::Capi::OnServiceRegisteredCallback silentRegistered(nullptr);
  Oxa::Capi::OnServiceStateChangedCallback silentChanged(nullptr);
  silentRegistered.OnReceived(0);
  silentChanged.OnReceived(true);
}

TEST_F(CallbacksTest, ObjectCallbacksLendABuiltObject) {
  std::vector<std::string> seen;
  Oxa::Capi::OnDeviceFoundCallback found([&](Oxa::Capi::Device *device) {
    seen.push_back(device->getName().str() + ":" + std::to_string(device->getType()));
  });
  Oxa::Capi::OnCommandReceivedCallback command([&](Command *received) {
    seen.push_back(received->getAddress().str() + ":" + std::to_string(received->getType()) + ":" +
                   std::to_string(received->getId()));
  });
  found.OnReceived({kAddress, 42, "tv"});
  command.OnReceived(record(kAddress, {1}));
  EXPECT_THAT(seen, ElementsAre("tv:99", std::string(kAddress) + ":2:9"));
  EXPECT_EQ(found.GetId(), 5);
  EXPECT_EQ(command.GetId(), 4);
  EXPECT_EQ(Oxa::Capi::OnDeviceLostCallback(nullptr).GetId(), 6);
  EXPECT_EQ(Oxa::Capi::OnContextChangedCallback(nullptr).GetId(), 7);
}

}  // namespace
