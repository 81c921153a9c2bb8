// The last result is kept per thread.
#include <capi-base-common.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(LastResultTest, IsPerThread) {
  set_last_result(-13);
  int seenByOther = 1;
  int setByOther = 0;
  std::thread other([&] {
    seenByOther = get_last_result();
    set_last_result(-111);
    setByOther = get_last_result();
  });
  other.join();
  EXPECT_EQ(0, seenByOther);
  EXPECT_EQ(-111, setByOther);
  EXPECT_EQ(-13, get_last_result());
  set_last_result(0);
  EXPECT_EQ(0, get_last_result());
}

}  // namespace
