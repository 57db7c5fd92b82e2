// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <vector>

#include "Vorn/PortData.h"

namespace Vorn {

// Merges the records of many interfaces into one time line, for the two entry reports.
//
// Each log is in order of arrival already, so the report is a merge of as many sorted lists as there are
// interfaces: a cursor stands in each log, and the line that comes next is the earliest (latest) of the
// records under the cursors. What that choice must be is told by a linear scan over the interfaces in the
// recorder's order: of equal times the interface met first wins.
//
// The scan itself would cost a step an interface for each line, each of them through port, chunk and record
// to a time that is in no cache. So the choice is a tournament: the current times stand side by side in an
// array, as leaves of a tree in which every match keeps the better of the two below it. The winner stands at
// the root. After its cursor has moved on, only the matches on its way to the root are played again: ten for
// a thousand interfaces. While a line is written, what the next one needs is fetched.
//
// Gathering all records and sorting them would be simpler, but takes up to 24 bytes a record while the report
// is written: megabytes where this takes 80 to 112 bytes an interface, in a process that may have been forked
// from a small one just for that.
//
// The cursor attributes of the ports follow line by line. remaining() counts the positions loaded into
// cursors and not yet counted down: those of a port's current chunk, never of the chunks after it. Holes
// count down when they are passed.
class MergeCursor {
 public:
  enum class Direction { oldestFirst, newestFirst };

  struct Choice {
    PortData* port = nullptr;  // null: no record can be chosen
    Entry const* entry = nullptr;
    Kes::CharPtrConst shortName = nullptr;  // of the port's interface
  };

  // Sets every port's cursor up at its first record in that direction.
  MergeCursor(std::span<PortData::Ptr const> ports, Direction direction);

  Kes::U64 remaining() const { return remaining_; }

  // The record that comes next: strictly the earliest (latest) time, and never the last (first) moment that a
  // Microseconds can name. It stays chosen until advance().
  Choice choose() const;
  // Moves the chosen port's cursor on; past its last record the port's mergeEntries is cleared.
  void advance();
  // Counts the chosen record down.
  void countDown() { --remaining_; }

 private:
  // The key of a port that has nothing to give.
  static constexpr Kes::U64 exhausted = ~Kes::U64{0};

  struct Row {
    PortData::Ptr port;
    Kes::CharPtrConst shortName;
    Chunk const* chunk = nullptr;
    Entry const* entry = nullptr;      // the current record
    Entry const* following = nullptr;  // what is likely to come after it: a hint for fetching it ahead
    Kes::U32 slot = 0;                 // of the current record
    Kes::U32 left = 0;                 // positions of the chunk from it on, in the direction of the report
  };

  // A row and the key of its current record: the smallest comes next.
  struct Contender {
    Kes::U64 key = exhausted;
    Kes::U32 row = 0;
  };

  void load(Row& row, Chunk::Ptr const& chunk);
  void skipHoles(std::size_t index);
  bool nextChunk(Row& row);
  Kes::U32 slotAfter(Kes::U32 slot) const;
  void step(Row& row) const;
  void replay(std::size_t match);
  Kes::U64 keyOf(Entry const& entry) const;

  Direction const direction_;
  Kes::U64 remaining_ = 0;
  std::vector<Row> rows_;
  // A tournament. The rows are the leaves, from matches_[leaves_] on; each match has the better of the two
  // below it, matches_[2 i] and matches_[2 i + 1], the left one if they are equal: so matches_[1] is the row
  // that comes next, the first in order of the ports among equals.
  std::vector<Contender> matches_;
  std::size_t leaves_ = 1;
};

}  // namespace Vorn
