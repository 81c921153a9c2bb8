// A mutex in one atomic word. Taking and releasing a free lock is one atomic instruction each,
// where a std::mutex round trip costs some fifty instructions on every send and read of a port; a
// waiter sleeps in the kernel, so the lock may be held across a blocking wait. Meets BasicLockable,
// for std::lock_guard.
#pragma once

#include <atomic>

namespace platform {

class FutexLock {
 public:
  FutexLock() = default;
  FutexLock(const FutexLock &) = delete;
  FutexLock &operator=(const FutexLock &) = delete;

  void lock() noexcept {
    int expected = kFree;
    if (!state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire)) {
      lockContended();
    }
  }

  void unlock() noexcept {
    if (state_.exchange(kFree, std::memory_order_release) == kContended) {
      wakeOne();
    }
  }

 private:
  // kContended: someone may be asleep on the word, so the holder wakes one waiter on release.
  enum : int { kFree = 0, kLocked = 1, kContended = 2 };

  void lockContended() noexcept;
  void wakeOne() noexcept;

  std::atomic<int> state_{kFree};
};

}  // namespace platform
