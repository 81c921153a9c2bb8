// Large commands through the library and the simulator: a burst sent from inside one callback,
// and commands just under and just over the transport's 16 MiB frame limit.
#include <gtest/gtest.h>
#include <oxa.h>

#include <chrono>
#include <cstdlib>
#include <vector>

#include "LibraryTest.h"
#include "LoadSupport.h"

namespace oxa::test {
namespace {

constexpr int kBurst = 100;
// 1 MiB; smaller in sanitizer builds (see CMakeLists.txt).
constexpr size_t kBurstCommandBytes = OXA_TEST_BURST_COMMAND_BYTES;
constexpr auto kBurstWait = std::chrono::seconds(25);

// The 100 commands and what became of them. The sends all happen inside the registered
// callback, without returning to the main loop in between.
struct Burst {
  oxa_service_h service = nullptr;
  std::vector<Command> commands;
  std::vector<int> sendResults;
  std::vector<Outcome<oxa_command_h>> sent;
  std::vector<int> echoedIds;
  int wrongEchoes = 0;

  static void onRegistered(oxa_service_h service, oxa_error_e result, void *data) {
    auto &burst = *static_cast<Burst *>(data);
    if (result != OXA_ERROR_NONE) {
      return;
    }
    for (const Command &command : burst.commands) {
      burst.sendResults.push_back(oxa_send_command(service, command.get(), onSent, data));
    }
  }

  static void onSent(oxa_command_h command, oxa_error_e result, void *data) {
    static_cast<Burst *>(data)->sent.push_back({command, result});
  }

  static void onEcho(oxa_command_h command, void *data) {
    auto &burst = *static_cast<Burst *>(data);
    const CommandSeen seen = readCommand(command);
    burst.echoedIds.push_back(seen.id);
    if (!(seen == CommandSeen{kEchoAddress, OXA_COMMAND_TYPE_2, seen.id,
                              payloadFor(seen.id, kBurstCommandBytes)})) {
      ++burst.wrongEchoes;
    }
  }
};

class CommandLoadTest : public LibraryTest {
 protected:
  void SetUp() override {
    startSim({"--scenario", writeScenario(kLoadScenario)});
    initialize();
  }
};

TEST_F(CommandLoadTest, HundredCommandsOfOneMiBSentFromOneCallbackAllComeBack) {
  const Service service = createService(OXA_SERVICE_TYPE_1);
  Burst burst;
  for (int id = 0; id < kBurst; ++id) {
    burst.commands.push_back(
        createCommand(kEchoAddress, OXA_COMMAND_TYPE_2, id, payloadFor(id, kBurstCommandBytes)));
  }
  ASSERT_EQ(oxa_set_command_received_cb(service.get(), &Burst::onEcho, &burst), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service.get(), &Burst::onRegistered, &burst), OXA_ERROR_NONE);

  ASSERT_TRUE(runUntil(
      [&] { return burst.sent.size() >= kBurst && burst.echoedIds.size() >= kBurst; }, kBurstWait))
      << burst.sendResults.size() << " sends, " << burst.sent.size() << " sent callbacks, "
      << burst.echoedIds.size() << " echoes";
  EXPECT_EQ(burst.sendResults, std::vector<int>(kBurst, OXA_ERROR_NONE));
  ASSERT_EQ(burst.sent.size(), static_cast<size_t>(kBurst));
  std::vector<int> ids;
  for (int id = 0; id < kBurst; ++id) {
    EXPECT_EQ(burst.sent[id].handle, burst.commands[id].get()) << id;
    EXPECT_EQ(burst.sent[id].result, OXA_ERROR_NONE) << id;
    ids.push_back(id);
  }
  EXPECT_EQ(burst.echoedIds, ids);
  EXPECT_EQ(burst.wrongEchoes, 0);
}

// A command's request is its payload and 59 bytes around it (method, handler, record, delegate),
// and so is its sent event.
constexpr size_t kFrameLimit = size_t{16} << 20;
constexpr size_t kCommandOverhead = 59;

TEST_F(CommandLoadTest, CommandsNearAndOverTheFrameLimit) {
  const Service service = createService(OXA_SERVICE_TYPE_1);
  const Command over = createCommand(kTvAddress, OXA_COMMAND_TYPE_1, 1,
                                     payloadFor(1, kFrameLimit - kCommandOverhead + 1));
  const Command near = createCommand(kTvAddress, OXA_COMMAND_TYPE_1, 2,
                                     payloadFor(2, kFrameLimit - kCommandOverhead));

  EXPECT_EQ(oxa_send_command(service.get(), over.get(), &Events::onCommandSent, &events),
            OXA_ERROR_IO_ERROR);
  // The connection is still there and still in step.
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_send_command(service.get(), near.get(), &Events::onCommandSent, &events),
            OXA_ERROR_NONE);
  ASSERT_TRUE(waitForCount(events.commandsSent, 1));
  EXPECT_EQ(events.commandsSent[0].handle, near.get());
  EXPECT_EQ(events.commandsSent[0].result, OXA_ERROR_NONE);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NONE);
  EXPECT_EQ(events.initialized, std::vector<int>{OXA_ERROR_NONE});
}

}  // namespace
}  // namespace oxa::test
