// SPDX-License-Identifier: Apache-2.0
// The recorder against the model: random operations. After each step both must hold the same records in the
// same slots and have logged the same; reports must agree byte by byte.

#include <gtest/gtest.h>

#include <random>

#include "tests/model/Driver.h"

namespace {

using namespace Test;
TEST(RecorderModel, RandomOperations) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    std::mt19937 random(seed);
    Driver driver(seed, [&](U32 limit) { return static_cast<U32>(random() % limit); });
    for (int step = 0; step < 150; ++step) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
      driver.step();
      ASSERT_EQ(driver.difference(), "");
      if (step % 6 != 0) continue;
      ASSERT_EQ(driver.differenceOfReports(), "");
    }
  }
  EXPECT_EQ(TestEntry::alive, 0);
  // The driver went where it was meant to go.
  EXPECT_GT(Driver::complete, 500);
  EXPECT_GT(Driver::broken, 50);
  EXPECT_GT(Driver::starts, 100);
  EXPECT_GT(Driver::globals, 100);
  EXPECT_GT(Driver::messages, 100);
}

}  // namespace
