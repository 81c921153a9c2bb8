// The instruction cost of the simulated agent itself: what it spends on one request and its reply,
// and on one device-found event, counted by callgrind in the agent's process while the library
// drives it (the same probe as cost_check, with the agent run under callgrind instead).
//
//   sim_cost      prints the two figures (run by hand; takes some seconds)
//
// Each figure is the difference of two runs of different length divided by the difference in
// repetitions, so that the agent's start-up, its connection and its exit cancel out.

#include <glib.h>
#include <glib/gstdio.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "CostProbe.h"

namespace {

constexpr int kShortRun = 100;
constexpr int kLongRun = 500;

// The Ir total that callgrind wrote to `path`.
long long totalOf(const std::string &path) {
  std::ifstream in(path);
  const std::string prefix = "summary: ";
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, prefix.size(), prefix) == 0) {
      return std::stoll(line.substr(prefix.size()));
    }
  }
  throw std::runtime_error("no callgrind summary in " + path);
}

// The agent's instructions over one probe session that runs `drive` on it.
long long agentInstructions(const std::function<void(bench::CostProbe &)> &drive) {
  gchar *directory = g_dir_make_tmp("oxa-sim-cost-XXXXXX", nullptr);
  if (directory == nullptr) {
    throw std::runtime_error("cannot create a temporary directory");
  }
  const std::string dump = std::string(directory) + "/callgrind.out";
  long long total = 0;
  {
    bench::CostProbe probe(
        0, {OXA_VALGRIND_PATH, "--tool=callgrind", "--quiet", "--callgrind-out-file=" + dump});
    drive(probe);
    probe.stopAgent();
    total = totalOf(dump);
  }
  g_unlink(dump.c_str());
  g_rmdir(directory);
  g_free(directory);
  return total;
}

double perRepetition(const std::function<void(bench::CostProbe &, int)> &drive) {
  const long long shortRun = agentInstructions([&](bench::CostProbe &p) { drive(p, kShortRun); });
  const long long longRun = agentInstructions([&](bench::CostProbe &p) { drive(p, kLongRun); });
  return static_cast<double>(longRun - shortRun) / (kLongRun - kShortRun);
}

}  // namespace

int main() {
  // The agent's own log lines filtered out, as the library's are in cost_check.
  setenv("DLOG_LEVEL", "E", 1);
  try {
    const double request =
        perRepetition([](bench::CostProbe &probe, int count) { probe.requests(count); });
    const double round =
        perRepetition([](bench::CostProbe &probe, int count) { probe.discoveryRounds(count); });
    std::printf("| agent path | instructions |\n|---|---|\n");
    std::printf("| one request and its reply (`StartDiscovery`, nobody listening) | %s |\n",
                bench::grouped(request).c_str());
    std::printf("| one device-found event (discovery of %d devices, per event) | %s |\n",
                bench::kProbeDevices,
                bench::grouped((round - request) / bench::kProbeDevices).c_str());
    std::printf("\n(callgrind Ir of the oxa-agent-sim process; runs of %d and %d repetitions)\n",
                kShortRun, kLongRun);
    return EXIT_SUCCESS;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "sim_cost: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
