#ifndef OXA_TESTS_INTEGRATION_SIM_TEST_H_
#define OXA_TESTS_INTEGRATION_SIM_TEST_H_

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "RawAgentClient.h"
#include "RuntimeDir.h"

namespace oxa::test {

// A test with its own runtime dir, main context and simulated agent.
class SimTest : public PlatformTest {
 protected:
  // Starts the simulator with `args` and waits for its ready line.
  ChildProgram &startSim(const std::vector<std::string> &args = {}) {
    sim_.reset();
    sim_ = std::make_unique<ChildProgram>(simCommand(runtimeDir(), args));
    EXPECT_TRUE(sim_->waitForOutput(kSimReadyLine)) << sim_->output();
    return *sim_;
  }

  ChildProgram &sim() { return *sim_; }

  // A raw client connected to the simulator under `appid`; null if it did not connect.
  std::unique_ptr<raw_agent::Client> connectRaw(const std::string &appid = OXA_AGENT_APPID) {
    auto client = std::make_unique<raw_agent::Client>(context());
    if (client->connect(appid) != RPC_PORT_ERROR_NONE ||
        !runUntil([&] { return client->connected() || client->rejected(); }) ||
        !client->connected()) {
      return nullptr;
    }
    return client;
  }

  // Writes `json` into the runtime dir and returns the file's path.
  std::string writeScenario(const std::string &json) {
    const std::string path = runtimeDir() + "/scenario.json";
    std::ofstream(path) << json;
    return path;
  }

 private:
  std::unique_ptr<ChildProgram> sim_;
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_SIM_TEST_H_
