#ifndef OXA_TESTS_INTEGRATION_OXACTL_OXACTL_TEST_H_
#define OXA_TESTS_INTEGRATION_OXACTL_OXACTL_TEST_H_

#include <sys/wait.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "SimTest.h"

namespace oxa::test {

// What a finished oxactl run printed (standard output and error together) and its exit status.
struct OxactlResult {
  int status = -1;  // -1 when it did not exit on its own
  std::string output;
};

// Runs oxactl as a separate process against a simulated agent in the test's runtime dir.
class OxactlTest : public SimTest {
 protected:
  static constexpr char kAppId[] = "org.example.oxactl";
  static constexpr std::chrono::seconds kRunLimit{20};

  // Starts oxactl with `args`; the caller waits for its output and ends it.
  std::unique_ptr<ChildProgram> start(const std::vector<std::string> &args,
                                      const std::string &appId = kAppId) {
    std::vector<std::string> argv{OXACTL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return std::make_unique<ChildProgram>(argv,
                                          ChildProgram::Environment{{"RPC_PORT_APPID", appId}});
  }

  // Waits for a started oxactl to exit.
  static OxactlResult finish(ChildProgram &program) {
    const std::optional<int> status = program.waitExit(kRunLimit);
    OxactlResult result;
    result.output = program.output();
    if (status && WIFEXITED(*status)) {
      result.status = WEXITSTATUS(*status);
    }
    return result;
  }

  // Runs oxactl with `args` to its end.
  OxactlResult run(const std::vector<std::string> &args) { return finish(*start(args)); }
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_OXACTL_OXACTL_TEST_H_
