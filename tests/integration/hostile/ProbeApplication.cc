#include "ProbeApplication.h"

#include <glib.h>
#include <oxa.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "MainLoop.h"

namespace oxa::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kConnectWait{5};
constexpr std::chrono::seconds kLossWait{3};
constexpr std::chrono::seconds kMarkerWait{10};

struct Seen {
  std::vector<oxa_error_e> initialized;
  long found = 0;
  long lost = 0;
  long context = 0;
  long commands = 0;
  long messages = 0;
  long states = 0;
  long listed = 0;
  bool marker = false;
  Clock::time_point markerAt;
};

long millisSince(Clock::time_point start, Clock::time_point end = Clock::now()) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count());
}

// Restarts the peak resident size at the current one, so the report covers the probe only.
void resetPeakRss() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

long peakRssKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) {
      return std::strtol(line.c_str() + std::strlen("VmHWM:"), nullptr, 10);
    }
  }
  return -1;
}

void onInitialized(oxa_error_e result, void *data) {
  static_cast<Seen *>(data)->initialized.push_back(result);
}

void onFound(oxa_device_h device, void *data) {
  auto &seen = *static_cast<Seen *>(data);
  char *name = nullptr;
  if (oxa_device_get_name(device, &name) == OXA_ERROR_NONE && std::strcmp(name, kMarkerName) == 0) {
    seen.marker = true;
    seen.markerAt = Clock::now();
  } else {
    ++seen.found;
  }
  free(name);
}

void onLost(oxa_device_h /*device*/, void *data) {
  ++static_cast<Seen *>(data)->lost;
}
void onContext(oxa_device_h /*device*/, void *data) {
  ++static_cast<Seen *>(data)->context;
}
void onCommand(oxa_command_h /*command*/, void *data) {
  ++static_cast<Seen *>(data)->commands;
}
void onState(oxa_service_h /*service*/, int /*state*/, void *data) {
  ++static_cast<Seen *>(data)->states;
}
void onMessage(const char * /*address*/, const unsigned char * /*bytes*/, int /*length*/,
               void *data) {
  ++static_cast<Seen *>(data)->messages;
}
bool onListed(oxa_device_h /*device*/, void *data) {
  ++static_cast<Seen *>(data)->listed;
  return true;
}

bool connect(GMainContext *context, Seen &seen) {
  const size_t before = seen.initialized.size();
  return oxa_initialize(onInitialized, &seen) == OXA_ERROR_NONE &&
         runUntil(
             context, [&] { return seen.initialized.size() > before; }, kConnectWait) &&
         seen.initialized.back() == OXA_ERROR_NONE;
}

void subscribe(oxa_service_h service, Seen &seen) {
  oxa_set_device_found_cb(service, onFound, &seen);
  oxa_set_device_lost_cb(service, onLost, &seen);
  oxa_set_context_changed_cb(service, onContext, &seen);
  oxa_set_command_received_cb(service, onCommand, &seen);
  oxa_set_simple_message_received_cb(service, onMessage, &seen);
  oxa_service_set_state_changed_cb(service, onState, &seen);
}

class Reporter {
 public:
  void add(const std::string &name, long value) { text_ << name << ' ' << value << '\n'; }
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

void reportEvents(Reporter &report, const Seen &seen) {
  for (size_t i = 0; i < seen.initialized.size(); ++i) {
    report.add("initialized_" + std::to_string(i + 1), seen.initialized[i]);
  }
  report.add("found", seen.found);
  report.add("lost", seen.lost);
  report.add("context", seen.context);
  report.add("commands", seen.commands);
  report.add("messages", seen.messages);
  report.add("states", seen.states);
}

}  // namespace

std::string runProbeApplication() {
  resetPeakRss();
  ScopedMainContext context;
  Seen seen;
  Reporter report;
  if (!connect(context.get(), seen)) {
    reportEvents(report, seen);
    return report.text();
  }
  oxa_service_h service = nullptr;
  oxa_service_create(OXA_SERVICE_TYPE_1, &service);
  subscribe(service, seen);

  Clock::time_point start = Clock::now();
  report.add("list_result", oxa_foreach_found_device(service, onListed, &seen));
  report.add("list_ms", millisSince(start));
  report.add("listed", seen.listed);

  start = Clock::now();
  const int discovery = oxa_start_discovery(service);
  report.add("discovery_result", discovery);
  report.add("discovery_ms", millisSince(start));
  Clock::time_point discovered = Clock::now();
  if (discovery != OXA_ERROR_NONE &&
      runUntil(
          context.get(), [&] { return seen.initialized.size() > 1; }, kLossWait) &&
      connect(context.get(), seen)) {
    subscribe(service, seen);
    report.add("rediscovery_result", oxa_start_discovery(service));
    discovered = Clock::now();
  }

  runUntil(
      context.get(), [&] { return seen.marker; }, kMarkerWait);
  report.add("marker_ms", seen.marker ? millisSince(discovered, seen.markerAt) : -1);
  reportEvents(report, seen);
  report.add("peak_rss_kb", peakRssKb());
  return report.text();
}

}  // namespace oxa::test
