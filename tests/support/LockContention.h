// Many threads taking one lock at once: the check that a lock of our own excludes.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace oxa::test {

// `threads` threads each add 1 to one plain counter `rounds` times under `lock`, all starting
// together; returns the counter. Any other total than threads * rounds is a lost update, and under
// ThreadSanitizer a lock that does not exclude is also reported as a race on the counter.
template <typename Lock>
long long countUnderLock(Lock &lock, int threads, int rounds) {
  long long counter = 0;
  std::atomic<int> waiting{threads};
  std::vector<std::thread> workers;
  for (int index = 0; index < threads; ++index) {
    workers.emplace_back([&] {
      waiting.fetch_sub(1);
      while (waiting.load() > 0) {
        std::this_thread::yield();
      }
      for (int round = 0; round < rounds; ++round) {
        const std::lock_guard<Lock> guard(lock);
        ++counter;
      }
    });
  }
  for (std::thread &worker : workers) {
    worker.join();
  }
  return counter;
}

}  // namespace oxa::test
