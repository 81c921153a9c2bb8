// The instruction cost of the library's hot paths, counted by callgrind in the client process
// against the simulated agent, checked against budgets.
//
//   cost_check            runs itself under callgrind, prints the table, fails over budget
//   cost_check --probe    the measured client alone (what callgrind runs)
//
// Every figure is the difference of two runs of different length in one process, divided by the
// difference in repetitions, so set-up and the region's own framing cancel out. Each region is
// preceded by an unmeasured warm-up of the same path (lazy binding, first allocations).

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "CallgrindRegion.h"
#include "CallgrindRun.h"
#include "CostProbe.h"

namespace {

constexpr bench::RunLengths kRequests{50, 250};
constexpr bench::RunLengths kDiscoveryRounds{5, 25};
constexpr bench::RunLengths kCommands{20, 100};
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

// Prints one row; true when it is within its budget.
bool row(const char *path, double instructions, long long budget) {
  const bool within = instructions <= static_cast<double>(budget);
  std::printf("| %s | %s | <= %s |%s\n", path, bench::grouped(instructions).c_str(),
              bench::grouped(static_cast<double>(budget)).c_str(), within ? "" : " OVER BUDGET");
  return within;
}

int check() {
  const bench::RegionCounts counts = bench::runProbeUnderCallgrind();
  const double request = bench::perRepetition(counts, "request", kRequests);
  const double round = bench::perRepetition(counts, "discovery", kDiscoveryRounds);
  const double event = (round - request) / bench::kProbeDevices;
  const double command =
      bench::perRepetition(counts, "command" + std::to_string(bench::kSmallPayload), kCommands);
  const double largeCommand =
      bench::perRepetition(counts, "command" + std::to_string(bench::kLargePayload), kCommands);
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

}  // namespace

int main(int argc, char **argv) {
  // The probe measures the library with its debug lines filtered out, as shipped; the agent
  // inherits the level too.
  setenv("DLOG_LEVEL", "E", 1);
  try {
    if (bench::isProbe(argc, argv, "cost_check")) {
      runProbe();
      return EXIT_SUCCESS;
    }
    return check();
  } catch (const std::exception &error) {
    std::fprintf(stderr, "cost_check: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
