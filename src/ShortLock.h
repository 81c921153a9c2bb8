#ifndef OXA_SRC_SHORT_LOCK_H_
#define OXA_SRC_SHORT_LOCK_H_

#include <atomic>
#include <thread>

namespace Oxa::Capi {

// Guards the library's shared containers for a lookup, an insert or an erase: never across I/O or
// an application callback, so a holder always lets go within a few hundred instructions. Taking
// it is one atomic exchange and releasing it one store, where a std::mutex costs some fifty
// instructions per round trip on every request and event. A waiter spins briefly, then yields
// its core, so that on a single-core device the holder gets to run. Meets BasicLockable, for
// std::lock_guard.
class ShortLock {
 public:
  void lock() noexcept {
    while (locked.exchange(true, std::memory_order_acquire)) {
      waitUntilFree();
    }
  }

  void unlock() noexcept { locked.store(false, std::memory_order_release); }

 private:
  void waitUntilFree() const noexcept {
    for (int spins = 0; locked.load(std::memory_order_relaxed); ++spins) {
      if (spins >= kSpinsBeforeYield) {
        std::this_thread::yield();
      }
    }
  }

  static constexpr int kSpinsBeforeYield = 64;
  std::atomic<bool> locked{false};
};

}  // namespace Oxa::Capi

#endif  // OXA_SRC_SHORT_LOCK_H_
