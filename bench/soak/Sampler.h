// Samples the resident size and the open descriptors of two processes once a second on a thread
// of its own, tagged with the running phase and how many operations it has done.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace soak {

struct Sample {
  double seconds = 0;
  std::string phase;
  long long operations = 0;
  long selfRssKb = 0;
  int selfFds = 0;
  long agentRssKb = 0;
  int agentFds = 0;
};

long residentKb(pid_t pid);
int openFds(pid_t pid);

class Sampler {
 public:
  Sampler(pid_t self, pid_t agent);
  Sampler(const Sampler &) = delete;
  Sampler &operator=(const Sampler &) = delete;
  ~Sampler();

  // Starts a phase: operations count from 0 again.
  void phase(const std::string &name);
  void done(long long operations) { operations_.store(operations, std::memory_order_relaxed); }
  // Takes one sample now (also at the end of a phase, so short phases have two).
  void sampleNow();
  std::vector<Sample> samples();

 private:
  void run();

  const pid_t self_;
  const pid_t agent_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::atomic<long long> operations_{0};
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::string phase_;
  std::vector<Sample> samples_;
  std::thread thread_;
};

}  // namespace soak
