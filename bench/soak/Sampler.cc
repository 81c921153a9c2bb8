#include "Sampler.h"

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace soak {

long residentKb(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::strtol(line.c_str() + std::strlen("VmRSS:"), nullptr, 10);
    }
  }
  return -1;
}

int openFds(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/fd";
  DIR *dir = ::opendir(path.c_str());
  if (dir == nullptr) {
    return -1;
  }
  int count = 0;
  while (const dirent *entry = ::readdir(dir)) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  ::closedir(dir);
  // The directory stream's own descriptor is listed when the directory is our own.
  return pid == ::getpid() ? count - 1 : count;
}

Sampler::Sampler(pid_t self, pid_t agent)
    : self_(self), agent_(agent), thread_([this] { run(); }) {}

Sampler::~Sampler() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void Sampler::phase(const std::string &name) {
  sampleNow();
  std::lock_guard<std::mutex> lock(mutex_);
  phase_ = name;
  operations_.store(0, std::memory_order_relaxed);
}

void Sampler::sampleNow() {
  Sample sample;
  sample.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  sample.operations = operations_.load(std::memory_order_relaxed);
  sample.selfRssKb = residentKb(self_);
  sample.selfFds = openFds(self_);
  sample.agentRssKb = residentKb(agent_);
  sample.agentFds = openFds(agent_);
  std::lock_guard<std::mutex> lock(mutex_);
  sample.phase = phase_;
  samples_.push_back(sample);
}

std::vector<Sample> Sampler::samples() {
  std::lock_guard<std::mutex> lock(mutex_);
  return samples_;
}

void Sampler::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    if (!wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; })) {
      lock.unlock();
      sampleNow();
      lock.lock();
    }
  }
}

}  // namespace soak
