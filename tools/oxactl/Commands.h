#ifndef OXA_TOOLS_OXACTL_COMMANDS_H_
#define OXA_TOOLS_OXACTL_COMMANDS_H_

#include "Failure.h"
#include "Options.h"
#include "Printer.h"

namespace oxactl {

// Each runs one command against the agent and returns its exit status; failures are thrown as
// Failure.
ExitStatus runMe(const Options &options, const Printer &printer);
ExitStatus runDevices(const Options &options, const Printer &printer);
ExitStatus runInfo(const Options &options, const Printer &printer);
ExitStatus runScan(const Options &options, const Printer &printer);
ExitStatus runMonitor(const Options &options, const Printer &printer);
ExitStatus runPublish(const Options &options, const Printer &printer);
ExitStatus runSend(const Options &options, const Printer &printer);
ExitStatus runMessage(const Options &options, const Printer &printer);

// Runs the command that `options` names.
ExitStatus runCommand(const Options &options, const Printer &printer);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_COMMANDS_H_
