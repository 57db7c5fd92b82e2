// The recorder against the model: random operations, and every short sequence of whole chunks. After each
// step both must hold the same records in the same slots and have logged the same; reports must agree byte by
// byte.

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

// Every sequence of six operations on three interfaces, for pools of one to three chunks: "a whole chunk of
// records", "one update under a key" and "log deleted" for each; but the interfaces come into play in order,
// since their names do not matter. A chunk becomes full by its queue state, its last slots holes, so that a
// sequence takes microseconds.
TEST(RecorderModel, AllShortSequences) {
  static char const* const names[] = {"A1", "B2", "C3"};
  constexpr int choices = 9;
  int run = 0;
  for (int sequence = 0; sequence < choices * choices * choices * choices * choices * choices; ++sequence) {
    int inPlay = 0;
    bool inOrder = true;
    for (int rest = sequence, i = 0; i < 6; ++i, rest /= choices) {
      int const which = rest % choices / 3;
      inOrder = inOrder && (which < inPlay || (which == inPlay && rest % 3 != 2));
      inPlay = std::max(inPlay, which + 1);
    }
    for (U32 pool = 1; inOrder && pool <= 3; ++pool, ++run) {
      Pair pair;
      pair.numSharedChunksIs(pool);
      for (int rest = sequence, i = 0; i < 6; ++i, rest /= choices) {
        char const* const name = names[rest % choices / 3];
        Model::Record const from{static_cast<U32>(i), ++pair.time};
        if (rest % 3 == 2) pair.del(name);
        if (rest % 3 == 1) pair.update(name, from, /*coalesceTime=*/100, /*key=*/1);
        if (rest % 3 != 0) continue;
        pair.append(name, from);
        pair.model.find(name)->chunks.back().records.resize(Vorn::entriesPerChunk);
        pair.port(name)->chunkTail()->entryMetadataIs({Vorn::EntryIndex(), Vorn::entriesPerChunk});
      }
      ASSERT_EQ(pair.difference(), "") << "pool " << pool << " sequence " << sequence;
    }
  }
  EXPECT_GT(run, 80'000);
  EXPECT_EQ(TestEntry::alive, 0);
}

}  // namespace
