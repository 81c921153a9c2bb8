// Two applications on one host, each with the library, meeting through the simulated agent.
#include <gtest/gtest.h>
#include <oxa.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "LibraryTest.h"

namespace {

using oxa::test::Bytes;
using oxa::test::CommandSeen;
using oxa::test::DeviceSeen;
using oxa::test::Events;
using oxa::test::MessageSeen;

constexpr char kPeerAppId[] = "org.example.peer";
constexpr char kPeerAddress[] = "02:00:00:00:00:01";
constexpr int kMessageCount = 10000;
// At most this many messages await their echo. The peer answers from inside its event callback
// with a synchronous send, and the agent writes events synchronously: a sender that outran the
// peer would fill the peer's event socket until the agent blocked on it.
constexpr size_t kWindow = 16;

Bytes indexBytes(int index) {
  return {static_cast<unsigned char>(index >> 24), static_cast<unsigned char>(index >> 16),
          static_cast<unsigned char>(index >> 8), static_cast<unsigned char>(index)};
}

int indexOf(const Bytes &data) {
  return data.size() != 4 ? -1 : (data[0] << 24) | (data[1] << 16) | (data[2] << 8) | data[3];
}

class TwoClientsTest : public oxa::test::LibraryTest {
 protected:
  void SetUp() override {
    // No scenery: the two applications are the only devices.
    startSim({"--scenario", writeScenario(R"({"devices": []})")});
    peer_ = std::make_unique<oxa::test::ChildProgram>(
        std::vector<std::string>{OXA_ECHOING_PEER_PATH},
        oxa::test::ChildProgram::Environment{{"RPC_PORT_APPID", kPeerAppId}});
    ASSERT_TRUE(peer_->waitForOutput("peer: ready\n")) << peer_->output();
    initialize();
    service_ = createService(OXA_SERVICE_TYPE_1);
    ASSERT_EQ(oxa_set_device_found_cb(service_.get(), &Events::onFound, &events), OXA_ERROR_NONE);
    ASSERT_EQ(
        oxa_set_simple_message_received_cb(service_.get(), &Events::onMessageReceived, &events),
        OXA_ERROR_NONE);
    ASSERT_EQ(oxa_start_discovery(service_.get()), OXA_ERROR_NONE);
    ASSERT_TRUE(runUntil([&] {
      for (const DeviceSeen &device : events.found) {
        if (device.name == kPeerAppId) {
          return true;
        }
      }
      return false;
    }));
  }

  std::unique_ptr<oxa::test::ChildProgram> peer_;
  oxa::test::Service service_;
};

TEST_F(TwoClientsTest, EachSeesTheOtherAsADeviceWithItsContext) {
  const DeviceSeen peer{kPeerAddress, kPeerAppId, OXA_DEVICE_TYPE_1};
  EXPECT_EQ(events.found.back(), peer);

  oxa_device_h raw = nullptr;
  ASSERT_EQ(oxa_get_my_device(service_.get(), kPeerAddress, &raw), OXA_ERROR_NONE);
  const oxa::test::Device device(raw);
  unsigned char *value = nullptr;
  int length = 0;
  ASSERT_EQ(
      oxa_device_get_context(device.get(), OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2, &value, &length),
      OXA_ERROR_NONE);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(value), static_cast<size_t>(length)),
            "peer context");
  std::free(value);
}

TEST_F(TwoClientsTest, MessagesAndCommandsTravelBothWays) {
  const oxa::test::Message message = createMessage(kPeerAddress, {'h', 'e', 'y'});
  ASSERT_EQ(oxa_send_simple_message(service_.get(), message.get(), &Events::onMessageSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.messagesReceived, 1));
  EXPECT_EQ(events.messagesReceived[0], (MessageSeen{kPeerAddress, {'h', 'e', 'y'}}));
  ASSERT_EQ(events.messagesSent.size(), 1U);
  EXPECT_EQ(events.messagesSent[0].result, OXA_ERROR_NONE);

  const oxa::test::Service commands = createService(OXA_SERVICE_TYPE_3);
  ASSERT_EQ(oxa_set_command_received_cb(commands.get(), &Events::onCommandReceived, &events),
            OXA_ERROR_NONE);
  const oxa::test::Command command = createCommand(kPeerAddress, OXA_COMMAND_TYPE_2, 12, {4, 5});
  ASSERT_EQ(oxa_send_command(commands.get(), command.get(), &Events::onCommandSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.commandsReceived, 1));
  EXPECT_EQ(events.commandsReceived[0],
            (CommandSeen{kPeerAddress, OXA_COMMAND_TYPE_2, 12, {4, 5}}));
  ASSERT_EQ(events.commandsSent.size(), 1U);
  EXPECT_EQ(events.commandsSent[0].handle, command.get());
  EXPECT_EQ(events.commandsSent[0].result, OXA_ERROR_NONE);
}

TEST_F(TwoClientsTest, TenThousandMessagesArriveExactlyOnce) {
  std::vector<oxa::test::Message> sent;
  sent.reserve(kMessageCount);
  for (int index = 0; index < kMessageCount; ++index) {
    sent.push_back(createMessage(kPeerAddress, indexBytes(index)));
    ASSERT_EQ(
        oxa_send_simple_message(service_.get(), sent.back().get(), &Events::onMessageSent, &events),
        OXA_ERROR_NONE);
    ASSERT_TRUE(runUntil([&] { return events.messagesReceived.size() + kWindow > sent.size(); }))
        << events.messagesReceived.size() << " echoes after " << sent.size() << " messages\n"
        << peer_->output();
  }
  ASSERT_TRUE(runUntil(
      [&] {
        return events.messagesReceived.size() >= kMessageCount &&
               events.messagesSent.size() >= kMessageCount;
      },
      std::chrono::seconds(60)))
      << events.messagesReceived.size() << " echoes, " << events.messagesSent.size()
      << " sent events\n"
      << peer_->output();

  std::vector<int> echoes(kMessageCount, 0);
  for (const MessageSeen &echo : events.messagesReceived) {
    ASSERT_EQ(echo.address, kPeerAddress);
    const int index = indexOf(echo.data);
    ASSERT_GE(index, 0);
    ASSERT_LT(index, kMessageCount);
    ++echoes[static_cast<size_t>(index)];
  }
  EXPECT_EQ(events.messagesReceived.size(), static_cast<size_t>(kMessageCount));
  EXPECT_EQ(std::count(echoes.begin(), echoes.end(), 1), kMessageCount);
  for (const auto &outcome : events.messagesSent) {
    EXPECT_EQ(outcome.result, OXA_ERROR_NONE);
  }
  EXPECT_EQ(events.messagesSent.size(), static_cast<size_t>(kMessageCount));
}

}  // namespace
