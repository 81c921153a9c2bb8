// Fails when dispatching one event among 1,000,000 live delegates costs more than twice as much
// as among 10. The cost is the instruction count of the dispatch, counted by callgrind, so the
// outcome does not depend on the machine or on what else runs beside the check.
//
//   dispatch_ratio_check            runs itself under callgrind, prints the ratio, fails over it
//   dispatch_ratio_check --probe    the measured dispatches alone (what callgrind runs)
//
// The delegates are registered with callgrind's instrumentation off (a million registrations
// would take minutes under it). Each figure is the difference of two runs of different length,
// divided by the difference in events, after an unmeasured warm-up.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "CallgrindRegion.h"
#include "CallgrindRun.h"
#include "DispatchSetup.h"

namespace {

constexpr int kFew = 10;
constexpr int kMany = 1000000;
constexpr bench::RunLengths kEvents{200, 1000};
constexpr int kWarmUp = 100;
constexpr double kMaxRatio = 2.0;

std::string pathFor(int delegates) {
  return "dispatch" + std::to_string(delegates);
}

void dispatch(int events) {
  for (int event = 0; event < events; ++event) {
    bench::DispatchSetup::DispatchOne();
  }
}

// Dispatches the warm-up and both measured runs among `delegates`; false if an event missed
// its delegate.
bool probeDispatch(int delegates) {
  const bench::DispatchSetup setup(delegates);
  CALLGRIND_START_INSTRUMENTATION;
  dispatch(kWarmUp);
  for (int events : {kEvents.shortRun, kEvents.longRun}) {
    const bench::Region region(bench::regionName(pathFor(delegates), events));
    dispatch(events);
  }
  CALLGRIND_STOP_INSTRUMENTATION;
  return setup.Received() == kWarmUp + kEvents.shortRun + kEvents.longRun;
}

int runProbe() {
  for (int delegates : {kFew, kMany}) {
    if (!probeDispatch(delegates)) {
      std::fprintf(stderr, "dispatch_ratio_check: an event did not reach its delegate\n");
      return EXIT_FAILURE;
    }
  }
  return EXIT_SUCCESS;
}

int check() {
  const bench::RegionCounts counts = bench::runProbeUnderCallgrind({"--instr-atstart=no"});
  const double few = bench::perRepetition(counts, pathFor(kFew), kEvents);
  const double many = bench::perRepetition(counts, pathFor(kMany), kEvents);
  const double ratio = many / few;
  std::printf(
      "dispatch: %d delegates %.1f instructions/event, %d delegates %.1f instructions/event, "
      "ratio %.2f (limit %.1f)\n",
      kFew, few, kMany, many, ratio, kMaxRatio);
  if (ratio > kMaxRatio) {
    std::printf("FAIL: dispatch slows down as delegates accumulate\n");
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return bench::isProbe(argc, argv, "dispatch_ratio_check") ? runProbe() : check();
  } catch (const std::exception &error) {
    std::fprintf(stderr, "dispatch_ratio_check: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
