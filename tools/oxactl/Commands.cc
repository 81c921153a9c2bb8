#include "Commands.h"

namespace oxactl {

ExitStatus runCommand(const Options &options, const Printer &printer) {
  switch (options.command) {
    case Command::kMe:
      return runMe(options, printer);
    case Command::kDevices:
      return runDevices(options, printer);
    case Command::kInfo:
      return runInfo(options, printer);
    case Command::kScan:
      return runScan(options, printer);
    case Command::kMonitor:
      return runMonitor(options, printer);
    case Command::kPublish:
      return runPublish(options, printer);
    case Command::kSend:
      return runSend(options, printer);
    case Command::kMessage:
      return runMessage(options, printer);
  }
  return ExitStatus::kUsage;
}

}  // namespace oxactl
