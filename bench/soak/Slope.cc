#include "Slope.h"

#include <cstdio>
#include <functional>
#include <string>

namespace soak {
namespace {

constexpr double kKiB = 1024.0;

// Least-squares slope of y over x; 0 with fewer than two distinct x.
double slope(const std::vector<Sample> &samples, const std::function<double(const Sample &)> &x,
             const std::function<double(const Sample &)> &y) {
  const double n = static_cast<double>(samples.size());
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (const Sample &sample : samples) {
    sx += x(sample);
    sy += y(sample);
    sxx += x(sample) * x(sample);
    sxy += x(sample) * y(sample);
  }
  const double denominator = n * sxx - sx * sx;
  return n < 2 || denominator == 0 ? 0 : (n * sxy - sx * sy) / denominator;
}

std::vector<Sample> afterWarmUp(const std::vector<Sample> &samples, const std::string &phase) {
  std::vector<Sample> inPhase;
  for (const Sample &sample : samples) {
    if (sample.phase == phase) {
      inPhase.push_back(sample);
    }
  }
  return std::vector<Sample>(inPhase.begin() + static_cast<long>(inPhase.size() / 5),
                             inPhase.end());
}

void printPhase(const std::vector<Sample> &samples, const std::string &phase) {
  const std::vector<Sample> kept = afterWarmUp(samples, phase);
  if (kept.size() < 2) {
    std::printf("%s: too short to fit (%zu samples after warm-up)\n", phase.c_str(), kept.size());
    return;
  }
  const auto ops = [](const Sample &s) { return static_cast<double>(s.operations); };
  const auto time = [](const Sample &s) { return s.seconds; };
  const auto selfRss = [](const Sample &s) { return s.selfRssKb * kKiB; };
  const auto agentRss = [](const Sample &s) { return s.agentRssKb * kKiB; };
  const Sample &first = kept.front();
  const Sample &last = kept.back();
  std::printf(
      "%s: %lld ops in %.1f s after warm-up (%zu samples)\n"
      "  library: RSS %ld -> %ld KiB, %+.2f bytes/op, %+.2f KiB/s; fds %d -> %d\n"
      "  agent:   RSS %ld -> %ld KiB, %+.2f bytes/op, %+.2f KiB/s; fds %d -> %d\n",
      phase.c_str(), last.operations - first.operations, last.seconds - first.seconds, kept.size(),
      first.selfRssKb, last.selfRssKb, slope(kept, ops, selfRss), slope(kept, time, selfRss) / kKiB,
      first.selfFds, last.selfFds, first.agentRssKb, last.agentRssKb, slope(kept, ops, agentRss),
      slope(kept, time, agentRss) / kKiB, first.agentFds, last.agentFds);
}

}  // namespace

void printReport(const std::vector<Sample> &samples) {
  std::printf("seconds phase ops library_rss_kb library_fds agent_rss_kb agent_fds\n");
  for (const Sample &s : samples) {
    std::printf("%.1f %s %lld %ld %d %ld %d\n", s.seconds, s.phase.c_str(), s.operations,
                s.selfRssKb, s.selfFds, s.agentRssKb, s.agentFds);
  }
  for (const char *phase : {"requests", "events", "commands"}) {
    printPhase(samples, phase);
  }
}

}  // namespace soak
