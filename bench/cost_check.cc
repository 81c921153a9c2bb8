// The instruction cost of the library's hot paths, counted by callgrind in the client process
// against the simulated agent, checked against budgets.
//
//   cost_check            runs itself under callgrind, prints the table, fails over budget
//   cost_check --probe    the measured client alone (what callgrind runs)
//
// Every figure is the difference of two runs of different length in one process, divided by the
// difference in repetitions, so set-up and the region's own framing cancel out. Each region is
// preceded by an unmeasured warm-up of the same path (lazy binding, first allocations).

#include <glib.h>
#include <valgrind/valgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "CallgrindRun.h"
#include "CostProbe.h"

namespace {

struct Lengths {
  int shortRun;
  int longRun;
};

constexpr Lengths kRequests{50, 250};
constexpr Lengths kDiscoveryRounds{5, 25};
constexpr Lengths kCommands{20, 100};
constexpr int kWarmUp = 10;

constexpr long long kRequestBudget = 1200;
constexpr long long kEventBudget = 900;
constexpr long long kCommandBudget = 3000;
constexpr long long kPayloadByteBudget = 24;

// Replies come this much later, so that the blocking read of every request blocks, as it does
// when the client is not slowed down by callgrind: the count does not depend on the machine's load.
constexpr int kReplyDelayMs = 1;

void runProbe() {
  bench::CostProbe probe(kReplyDelayMs);
  probe.requests(kWarmUp);
  probe.requests(kRequests.shortRun);
  probe.requests(kRequests.longRun);
  probe.discoveryRounds(1);
  probe.discoveryRounds(kDiscoveryRounds.shortRun);
  probe.discoveryRounds(kDiscoveryRounds.longRun);
  for (int payload : {bench::kSmallPayload, bench::kLargePayload}) {
    probe.commands(kWarmUp, payload);
    probe.commands(kCommands.shortRun, payload);
    probe.commands(kCommands.longRun, payload);
  }
}

// Instructions per repetition of `path`, from its short and its long run.
double perRepetition(const bench::RegionCounts &counts, const std::string &path, Lengths lengths) {
  const auto shortRun = counts.find(bench::regionName(path, lengths.shortRun));
  const auto longRun = counts.find(bench::regionName(path, lengths.longRun));
  if (shortRun == counts.end() || longRun == counts.end()) {
    throw std::runtime_error("no callgrind dump for " + path);
  }
  return static_cast<double>(longRun->second - shortRun->second) /
         (lengths.longRun - lengths.shortRun);
}

// Prints one row; true when it is within its budget.
bool row(const char *path, double instructions, long long budget) {
  const bool within = instructions <= static_cast<double>(budget);
  std::printf("| %s | %s | <= %s |%s\n", path, bench::grouped(instructions).c_str(),
              bench::grouped(static_cast<double>(budget)).c_str(), within ? "" : " OVER BUDGET");
  return within;
}

int check(const char *self) {
  const bench::RegionCounts counts = bench::runUnderCallgrind({self, "--probe"});
  const double request = perRepetition(counts, "request", kRequests);
  const double round = perRepetition(counts, "discovery", kDiscoveryRounds);
  const double event = (round - request) / bench::kProbeDevices;
  const double command =
      perRepetition(counts, "command" + std::to_string(bench::kSmallPayload), kCommands);
  const double largeCommand =
      perRepetition(counts, "command" + std::to_string(bench::kLargePayload), kCommands);
  const double perByte = (largeCommand - command) / (bench::kLargePayload - bench::kSmallPayload);

  std::printf("| path | instructions | budget |\n|---|---|---|\n");
  bool within = row("one request and its reply (`oxa_start_discovery`)", request, kRequestBudget);
  within &=
      row("one device-found event, parcel to the application's callback", event, kEventBudget);
  within &=
      row("one `oxa_send_command` (16-byte payload) and its sent event", command, kCommandBudget);
  within &=
      row("each further payload byte, written into the request and read back from the "
          "sent event",
          perByte, kPayloadByteBudget);
  std::printf(
      "\n(callgrind Ir of the client process; events in bursts of %d per discovery, "
      "commands in bursts of %d; payload bytes from %d- and %d-byte commands)\n",
      bench::kProbeDevices, bench::kCommandBurst, bench::kSmallPayload, bench::kLargePayload);
  return within ? EXIT_SUCCESS : EXIT_FAILURE;
}

// The path of this program, so that valgrind runs the same file.
std::string ownPath() {
  gchar *path = g_file_read_link("/proc/self/exe", nullptr);
  if (path == nullptr) {
    throw std::runtime_error("cannot resolve /proc/self/exe");
  }
  std::string text = path;
  g_free(path);
  return text;
}

}  // namespace

int main(int argc, char **argv) {
  // The probe measures the library with its debug lines filtered out, as shipped; the agent
  // inherits the level too.
  setenv("DLOG_LEVEL", "E", 1);
  try {
    if (argc > 1 && std::strcmp(argv[1], "--probe") == 0) {
      if (RUNNING_ON_VALGRIND == 0) {
        std::fprintf(stderr, "cost_check: --probe runs under callgrind (started by cost_check)\n");
      }
      runProbe();
      return EXIT_SUCCESS;
    }
    return check(ownPath().c_str());
  } catch (const std::exception &error) {
    std::fprintf(stderr, "cost_check: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
