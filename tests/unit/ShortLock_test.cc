// The library's guard of its shared containers.
#include "ShortLock.h"

#include <gtest/gtest.h>

#include "LockContention.h"

namespace {

using Oxa::Capi::ShortLock;

TEST(ShortLockTest, FourThreadsLoseNoUpdate) {
  ShortLock lock;
  EXPECT_EQ(oxa::test::countUnderLock(lock, 4, 100000), 400000);
}

}  // namespace
