#ifndef OXA_TESTS_INTEGRATION_SIM_PROCESS_H_
#define OXA_TESTS_INTEGRATION_SIM_PROCESS_H_

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace oxa::test {

// oxa-agent-sim as a child process on a given runtime dir, its stdout and stderr captured.
class SimProcess {
 public:
  // Starts the simulator with `args` after --runtime-dir; `start()` waits for its ready line.
  SimProcess(const std::string &runtimeDir, const std::vector<std::string> &args);
  SimProcess(const SimProcess &) = delete;
  SimProcess &operator=(const SimProcess &) = delete;
  ~SimProcess();

  // Waits until the output holds `text`; false at the deadline or when the output ends first.
  bool waitForOutput(const std::string &text,
                     std::chrono::milliseconds timeout = std::chrono::seconds(5));
  bool waitReady() { return waitForOutput("oxa-agent-sim: listening on "); }
  // Everything the simulator printed so far (as far as read by waitForOutput/drain).
  const std::string &output() const { return output_; }
  // Reads whatever output is available now.
  void drain();

  void kill(int signal) const { child_.kill(signal); }
  std::optional<int> waitExit(std::chrono::milliseconds timeout = std::chrono::seconds(5));

 private:
  // Reads once, waiting up to `timeout`; false at end of output.
  bool readSome(std::chrono::milliseconds timeout);

  int outputFd_ = -1;
  ChildProcess child_;
  std::string output_;
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_SIM_PROCESS_H_
