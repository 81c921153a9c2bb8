#ifndef OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_TEST_H_
#define OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_TEST_H_

// A gtest fixture base that gives every test a fresh fake platform and, at the end, fails the
// test if the code under test misread a parcel or used a dead handle.
//
//   class MyTest : public fake::FakePlatformTest {};
//   TEST_F(MyTest, ...) { ... }
//
// A test that provokes faults on purpose asserts fake::Faults() itself and sets expectFaults.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakePlatform.h"

namespace fake {

class FakePlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override {
    if (!expectFaults) {
      EXPECT_THAT(Faults(), ::testing::IsEmpty()) << "the code under test misused the platform";
    }
    Reset();
  }

  // Set by a test that provokes faults on purpose (and asserts them itself).
  bool expectFaults = false;
};

}  // namespace fake

#endif  // OXA_TESTS_UNIT_FAKE_FAKE_PLATFORM_TEST_H_
