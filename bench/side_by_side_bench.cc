// Wall time of the library's request and event paths beside a raw Unix-socket anchor of the same
// frames, measured alternately in one run (raw, library, raw, library, ...) so that both see the
// same machine: once with everything pinned to one CPU, once unpinned.
//
//   build/bench/side_by_side_bench [SAMPLES]
//
// Request: oxa_start_discovery against the simulator vs. a blocking ping-pong of the same frame
// sizes. Events: a discovery round (one request, then kProbeDevices device-found events to the
// callback) vs. the same request and as many one-write-per-frame event frames.

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "CostProbe.h"
#include "RawPeer.h"

namespace {

constexpr int kDefaultSamples = 15;
constexpr int kRequestsPerSample = 200;
constexpr int kRoundsPerSample = 10;

using Clock = std::chrono::steady_clock;

template <typename Work>
double microsecondsPer(int count, Work work) {
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / count;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// This process and the children it starts from now on run on `cpus`.
void setAffinity(const std::vector<int> &cpus) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int cpu : cpus) {
    CPU_SET(cpu, &set);
  }
  if (sched_setaffinity(0, sizeof set, &set) != 0) {
    throw std::runtime_error("sched_setaffinity failed");
  }
}

void runPhase(const std::string &name, const std::vector<int> &cpus, int samples) {
  setAffinity(cpus);
  bench::CostProbe library;
  bench::RawPeer raw(bench::kProbeDevices);
  library.requests(kRequestsPerSample);
  library.discoveryRounds(kRoundsPerSample);
  std::vector<double> rawRequest, libraryRequest, rawRound, libraryRound;
  for (int sample = 0; sample < samples; ++sample) {
    rawRequest.push_back(microsecondsPer(kRequestsPerSample, [&] {
      for (int index = 0; index < kRequestsPerSample; ++index) {
        raw.request();
      }
    }));
    libraryRequest.push_back(
        microsecondsPer(kRequestsPerSample, [&] { library.requests(kRequestsPerSample); }));
    rawRound.push_back(microsecondsPer(kRoundsPerSample, [&] {
      for (int index = 0; index < kRoundsPerSample; ++index) {
        raw.discoveryRound();
      }
    }));
    libraryRound.push_back(
        microsecondsPer(kRoundsPerSample, [&] { library.discoveryRounds(kRoundsPerSample); }));
  }
  const double requestRaw = median(rawRequest);
  const double requestLibrary = median(libraryRequest);
  const double eventRaw = median(rawRound) / bench::kProbeDevices;
  const double eventLibrary = median(libraryRound) / bench::kProbeDevices;
  std::printf("%s (medians of %d alternating samples)\n", name.c_str(), samples);
  std::printf("  request: library %.2f us, raw ping-pong %.2f us: %.2fx raw (goal <= 1.30)\n",
              requestLibrary, requestRaw, requestLibrary / requestRaw);
  std::printf(
      "  events:  library %.3f us/event, raw stream %.3f us/event: %.2fx raw speed "
      "(goal >= 0.80)\n",
      eventLibrary, eventRaw, eventRaw / eventLibrary);
}

}  // namespace

int main(int argc, char **argv) {
  // Logging below errors would measure the log; the agent inherits the level too.
  setenv("DLOG_LEVEL", "E", 1);
  const int samples = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultSamples;
  try {
    const long count = sysconf(_SC_NPROCESSORS_ONLN);
    std::vector<int> all;
    for (int cpu = 0; cpu < std::max(1L, count); ++cpu) {
      all.push_back(cpu);
    }
    runPhase("pinned to CPU " + std::to_string(all.back()), {all.back()}, samples);
    runPhase("unpinned", all, samples);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "side_by_side_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
