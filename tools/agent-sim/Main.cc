#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "Agent.h"
#include "ControlSocket.h"
#include "Controller.h"
#include "Options.h"
#include "Scenario.h"
#include "StubServer.h"
#include "Timeline.h"
#include "Trace.h"

namespace {

using oxa_sim::Options;

struct MainLoopDeleter {
  void operator()(GMainLoop *loop) const { g_main_loop_unref(loop); }
};
using MainLoop = std::unique_ptr<GMainLoop, MainLoopDeleter>;

// Removes a GLib source when it goes out of scope.
class SourceGuard {
 public:
  explicit SourceGuard(guint id) : id_(id) {}
  ~SourceGuard() { g_source_remove(id_); }
  SourceGuard(const SourceGuard &) = delete;
  SourceGuard &operator=(const SourceGuard &) = delete;

 private:
  guint id_;
};

gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
  return G_SOURCE_CONTINUE;
}

// The platform reads both from the environment when the stub is created.
void exportEnvironment(const Options &options) {
  setenv("RPC_PORT_APPID", options.appid.c_str(), 1);
  if (!options.runtimeDir.empty()) {
    setenv("RPC_PORT_RUNTIME_DIR", options.runtimeDir.c_str(), 1);
  }
}

oxa_sim::Scenario scenarioOf(const Options &options) {
  return options.scenarioPath.empty() ? oxa_sim::parseScenario(oxa_sim::builtinScenarioJson())
                                      : oxa_sim::loadScenario(options.scenarioPath);
}

int run(const Options &options, const oxa_sim::Scenario &scenario) {
  const MainLoop loop(g_main_loop_new(nullptr, FALSE));
  oxa_sim::Agent agent(scenario, {options.failures, options.refuseStateChanged});
  const oxa_sim::Trace trace(
      {options.trace, options.traceJsonPath},
      [&agent](const std::string &instance) { return agent.peer(instance); });
  oxa_sim::StubServer server(agent, options, trace);
  oxa_sim::Timeline timeline(scenario.timeline, [&](const oxa_sim::TimelineEntry &entry) {
    server.deliver(agent.play(entry));
  });
  agent.onDiscoveryStarted([&timeline] { timeline.start(); });

  oxa_sim::Controller controller(
      agent, [&server](const std::vector<oxa_sim::Outgoing> &events) { server.deliver(events); });
  oxa_sim::ControlSocket control(options.controlPath, [&controller](const std::string &line) {
    return controller.handle(line);
  });
  if (!options.controlPath.empty()) {
    control.listen();
  }

  const int result = server.listen();
  if (result != 0) {
    std::fprintf(stderr, "oxa-agent-sim: cannot listen on %s/OxaAgentInterface: error %d\n",
                 options.appid.c_str(), result);
    return EXIT_FAILURE;
  }
  const SourceGuard interrupt(g_unix_signal_add(SIGINT, quit, loop.get()));
  const SourceGuard terminate(g_unix_signal_add(SIGTERM, quit, loop.get()));
  std::printf("oxa-agent-sim: listening on %s/OxaAgentInterface\n", options.appid.c_str());
  std::fflush(stdout);
  g_main_loop_run(loop.get());
  std::printf("oxa-agent-sim: stopped\n");
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  int exitCode = EXIT_SUCCESS;
  if (!oxa_sim::parseOptions(argc, argv, options, exitCode)) {
    return exitCode;
  }
  if (options.printScenario) {
    std::fputs(oxa_sim::builtinScenarioJson(), stdout);
    return EXIT_SUCCESS;
  }
  exportEnvironment(options);
  try {
    return run(options, scenarioOf(options));
  } catch (const std::runtime_error &error) {
    std::fprintf(stderr, "oxa-agent-sim: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
