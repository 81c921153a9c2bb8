#include "FutexLock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform {

namespace {

static_assert(sizeof(std::atomic<int>) == sizeof(int) && std::atomic<int>::is_always_lock_free,
              "the kernel waits on the atomic's own word");

int *wordOf(std::atomic<int> &state) {
  return reinterpret_cast<int *>(&state);
}

}  // namespace

// Marks the lock contended before each sleep, so that whoever holds it wakes a waiter; a waiter
// that wakes to find it taken again sleeps again.
void FutexLock::lockContended() noexcept {
  while (state_.exchange(kContended, std::memory_order_acquire) != kFree) {
    syscall(SYS_futex, wordOf(state_), FUTEX_WAIT_PRIVATE, kContended, nullptr, nullptr, 0);
  }
}

void FutexLock::wakeOne() noexcept {
  syscall(SYS_futex, wordOf(state_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace platform
