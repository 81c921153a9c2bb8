#ifndef OXA_TOOLS_OXACTL_OPTIONS_H_
#define OXA_TOOLS_OXACTL_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Failure.h"

namespace oxactl {

enum class Command { kMe, kDevices, kScan, kInfo, kPublish, kSend, kMessage, kMonitor };

// A (service type, context type) pair whose context data `info` reads.
struct ContextPair {
  int service = 0;
  int context = 0;
};

// The command line, parsed and checked.
struct Options {
  int serviceType = 1;
  std::optional<std::chrono::milliseconds> timeout;
  bool json = false;
  Command command = Command::kMe;
  std::string address;
  std::vector<ContextPair> contexts;
  int contextType = 0;
  int commandType = 0;
  int commandId = 0;
  Bytes data;
  bool scan = false;

  // --timeout when given, else `fallback`.
  std::chrono::milliseconds timeoutOr(std::chrono::milliseconds fallback) const {
    return timeout.value_or(fallback);
  }
};

// Parses the command line. Returns nullopt when the program must exit at once, with `status`
// set: kSuccess after --help, kUsage after a bad command line (the message is printed).
std::optional<Options> parseOptions(int argc, char **argv, ExitStatus &status);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_OPTIONS_H_
