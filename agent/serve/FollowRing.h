// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/record/RecordRow.h"

namespace Agent {

// The latest records of bursts that have closed, for clients that follow: numbered from 0, as comma-separated
// lines that are made once for all of them. A client's cursor is the number of the record that it gets next.
// However far one falls behind, nothing waits for it: it goes on at the oldest record that there is, and is
// told how many it missed.
class FollowRing {
 public:
  // So many records are kept.
  static constexpr std::size_t capacity = 4096;

  FollowRing() : lines_(capacity) {}

  // A line that there is no memory for counts as one that was missed, for all. Throws std::bad_alloc then.
  void add(RecordRow const& row);
  // The number that the next record gets, and so the cursor of who has got all.
  std::uint64_t end() const { return end_; }

  // Appends what a follower is sent next, of `most` records at most, and moves its cursor behind them: lines,
  // and "skipped,N" in the place of N that it missed. Returns how many these are.
  std::uint64_t take(std::uint64_t& cursor, std::size_t most, std::string& text) const;

 private:
  std::vector<std::string> lines_;  // a record's is at its number modulo the capacity; empty: not kept
  std::uint64_t end_ = 0;
};

}  // namespace Agent
