#ifndef OXA_TOOLS_AGENT_SIM_OPTIONS_H_
#define OXA_TOOLS_AGENT_SIM_OPTIONS_H_

#include <map>
#include <string>

#include "Protocol.h"

namespace oxa_sim {

struct Options {
  std::string appid = OXA_AGENT_APPID;
  std::string runtimeDir;
  std::string scenarioPath;
  std::string privilege;
  std::string controlPath;
  std::string traceJsonPath;
  std::map<Method, int> failures;
  int delayMs = 0;
  int dropAfter = 0;
  bool refuseStateChanged = false;
  bool trace = false;
  bool printScenario = false;
};

// Parses the command line into `options`. Returns true to go on; false when the program must
// exit (help printed, or a bad command line), with the exit code in `exitCode`.
bool parseOptions(int argc, char **argv, Options &options, int &exitCode);

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_OPTIONS_H_
