// Large commands through the library and the simulator: commands just under and just over the
// transport's 16 MiB frame limit.
#include <gtest/gtest.h>
#include <oxa.h>

#include <vector>

#include "LibraryTest.h"
#include "LoadSupport.h"

namespace oxa::test {
namespace {

class CommandLoadTest : public LibraryTest {
 protected:
  void SetUp() override {
    startSim({"--scenario", writeScenario(kLoadScenario)});
    initialize();
  }
};

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
