// oxactl: the OXA multi-device service from the shell, through the public library only.
#include <cstdlib>

#include "Commands.h"
#include "Options.h"
#include "Printer.h"

int main(int argc, char **argv) {
  oxactl::ExitStatus status = oxactl::ExitStatus::kSuccess;
  const std::optional<oxactl::Options> options = oxactl::parseOptions(argc, argv, status);
  if (!options) {
    return static_cast<int>(status);
  }
  // oxactl reports every failure itself; the library's own log (on a development host, standard
  // error) stays quiet unless DLOG_LEVEL asks for it.
  setenv("DLOG_LEVEL", "S", 0);
  const oxactl::Printer printer(options->json);
  try {
    status = oxactl::runCommand(*options, printer);
  } catch (const oxactl::Failure &failure) {
    printer.failure(failure);
    status = failure.status();
  }
  return static_cast<int>(status);
}
