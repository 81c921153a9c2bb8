// The client side of the cost check: the library connected to the simulated agent, driving the
// four measured paths. Each measured region is framed by callgrind client requests (zero the
// counters, then dump them under the region's name), so only that region's instructions land in
// its dump; outside valgrind the requests do nothing and the probe just runs.
#pragma once

#include <glib.h>
#include <oxa.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "ChildProgram.h"
#include "RuntimeDir.h"

namespace bench {

// The world the probe talks to: `kProbeDevices` present devices shaped like the built-in world's
// first one (17-character address, 14-character name), the first of them the command target.
constexpr int kProbeDevices = 40;
constexpr char kCommandTarget[] = "B0:00:00:00:00:00";
constexpr int kSmallPayload = 16;
constexpr int kLargePayload = kSmallPayload + 1008;
// Commands are sent in bursts of this many before the loop delivers their sent events.
constexpr int kCommandBurst = 10;

// An instruction count rounded and grouped: "12,345".
std::string grouped(double value);

class CostProbe {
 public:
  // Starts the agent on a scenario of kProbeDevices devices and brings the library up with two
  // services: type 1 (device-found callback, sends commands) and type 3 (no callbacks). With
  // `replyDelayMs` the agent answers every request that much later, so every blocking read
  // really blocks. Throws std::runtime_error when a step fails.
  // `agentWrapper` (e.g. a valgrind command line) is run with the agent's command line after it.
  explicit CostProbe(int replyDelayMs = 0, const std::vector<std::string> &agentWrapper = {});
  CostProbe(const CostProbe &) = delete;
  CostProbe &operator=(const CostProbe &) = delete;
  ~CostProbe();

  // `repetitions` requests (oxa_start_discovery on the service without callbacks).
  void requests(int repetitions);
  // `repetitions` discovery rounds: one request, then kProbeDevices found events to the callback.
  void discoveryRounds(int repetitions);
  // `repetitions` commands of `payload` bytes, each with its sent event.
  void commands(int repetitions, int payload);
  // Brings the library down, then stops the agent with SIGTERM so that it exits as it does on
  // Ctrl-C (a wrapper such as callgrind then writes its results); throws when it does not exit
  // cleanly.
  void stopAgent();

 private:
  struct ServiceDeleter {
    void operator()(oxa_service_h service) const { oxa_service_destroy(service); }
  };
  using Service = std::unique_ptr<std::remove_pointer_t<oxa_service_h>, ServiceDeleter>;

  void initialize();
  void stopLibrary();
  Service createService(oxa_service_type_e type);
  void registerService(oxa_service_h service);
  // Runs the default main context until `counter` reaches `target`; throws at the deadline.
  void runUntilCount(const long long &counter, long long target, const char *what);
  void expect(bool holds, const std::string &step) const;

  static void onInitialized(oxa_error_e result, void *self);
  static void onRegistered(oxa_service_h service, oxa_error_e result, void *self);
  static void onFound(oxa_device_h device, void *self);
  static void onSent(oxa_command_h command, oxa_error_e result, void *self);
  static gboolean onDeadline(gpointer self);

  oxa::test::ScopedRuntimeDir runtimeDir_;
  std::string scenarioPath_;
  std::unique_ptr<oxa::test::ChildProgram> agent_;
  guint deadline_ = 0;
  bool libraryUp_ = false;
  Service callbackService_;
  Service plainService_;
  int initialized_ = 1;
  int registered_ = 1;
  bool timedOut_ = false;
  long long found_ = 0;
  long long sent_ = 0;
  long long failedSends_ = 0;
};

}  // namespace bench
