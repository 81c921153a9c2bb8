// The ports' send and read lock: excludes under contention, which is also the only way its
// waiters go to sleep in the kernel and are woken again.
#include "FutexLock.h"

#include <gtest/gtest.h>

#include "LockContention.h"

namespace {

TEST(FutexLockTest, FourThreadsLoseNoUpdate) {
  platform::FutexLock lock;
  EXPECT_EQ(oxa::test::countUnderLock(lock, 4, 100000), 400000);
}

// More threads than cores: holders are preempted, so waiters do sleep.
TEST(FutexLockTest, SixteenThreadsLoseNoUpdate) {
  platform::FutexLock lock;
  EXPECT_EQ(oxa::test::countUnderLock(lock, 16, 20000), 320000);
}

}  // namespace
