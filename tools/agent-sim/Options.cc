#include "Options.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace oxa_sim {

namespace {

// "METHOD=RESULT", e.g. "StartDiscovery=-13".
void addFailure(const std::string &text, Options &options) {
  const size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  const std::optional<Method> method = methodFromName(name);
  if (equals == std::string::npos || !method) {
    throw CLI::ValidationError("--fail",
                               "expected METHOD=RESULT with an agent method name, got " + text);
  }
  try {
    options.failures[*method] = std::stoi(text.substr(equals + 1));
  } catch (const std::exception &) {
    throw CLI::ValidationError("--fail", "RESULT must be an integer in " + text);
  }
}

}  // namespace

bool parseOptions(int argc, char **argv, Options &options, int &exitCode) {
  CLI::App app{"Simulated agent: answers the library's agent requests from a scripted world."};
  std::vector<std::string> failures;
  app.add_option("--appid", options.appid, "Application id to listen under")->capture_default_str();
  app.add_option("--runtime-dir", options.runtimeDir,
                 "Runtime directory of the rpc-port sockets (sets RPC_PORT_RUNTIME_DIR)");
  app.add_option("--scenario", options.scenarioPath, "JSON scenario file (default: built-in)")
      ->check(CLI::ExistingFile);
  app.add_option("--require-privilege", options.privilege,
                 "Privilege a client must hold to connect");
  app.add_option("--fail", failures, "METHOD=RESULT: METHOD answers RESULT and does nothing else")
      ->allow_extra_args(false);
  app.add_option("--delay-ms", options.delayMs, "Delay every reply by this many milliseconds")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--drop-after", options.dropAfter,
                 "Drop a client's connection once it has made this many requests (0: never)")
      ->check(CLI::NonNegativeNumber);
  app.add_flag("--refuse-state-changed", options.refuseStateChanged,
               "RegisterServiceStateChangedEvent answers an error");
  app.add_flag("--trace", options.trace, "Print every parcel received and sent");
  app.add_option("--trace-json", options.traceJsonPath,
                 "Write every parcel received and sent as one JSON object per line to FILE "
                 "(- for stdout)");
  app.add_option("--control", options.controlPath,
                 "Listen on the Unix socket PATH for JSON actions that change the world");
  app.add_flag("--print-scenario", options.printScenario,
               "Print the built-in scenario as JSON and exit");
  try {
    app.parse(argc, argv);
    for (const std::string &failure : failures) {
      addFailure(failure, options);
    }
  } catch (const CLI::ParseError &error) {
    exitCode = app.exit(error);
    return false;
  }
  return true;
}

}  // namespace oxa_sim
