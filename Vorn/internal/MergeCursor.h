#pragma once

#include <span>
#include <vector>

#include "Vorn/PortData.h"

namespace Vorn {

// Merges the records of many interfaces into one time line, for the two entry reports: a cursor in every port
// whose mergeEntries is set, and the choice of the port whose record comes next.
//
// The choice is what a linear scan in the ports' iteration order would find, so that of equal times the port
// met first wins; but it is a tournament over the current times, of which a line plays one match a level,
// instead of chasing port, chunk and record of each. The ports' own cursor attributes follow line by line.
//
// total() counts the positions loaded into cursors and not yet counted off: those of a port's current chunk,
// never of the chunks behind it. Holes count off when they are passed.
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

  Kes::U64 total() const { return total_; }

  // The record that comes next: strictly the earliest (latest) time, and never the last (first) moment that a
  // Microseconds can name. It stays chosen until advance().
  Choice choose() const;
  // Moves the chosen port's cursor on; past its last record the port's mergeEntries is cleared.
  void advance();
  // Counts the chosen record off.
  void countOff() { --total_; }

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
  void settle(std::size_t index);
  bool nextChunk(Row& row);
  Kes::U32 slotBehind(Kes::U32 slot) const;
  void step(Row& row) const;
  void play(std::size_t match);
  Kes::U64 keyOf(Entry const& entry) const;

  Direction const direction_;
  Kes::U64 total_ = 0;
  std::vector<Row> rows_;
  // A tournament. The rows are the leaves, from matches_[leaves_] on; each match has the better of the two
  // below it, matches_[2 i] and matches_[2 i + 1], the left one if they are equal: so matches_[1] is the row
  // that comes next, the first in order of the ports among equals.
  std::vector<Contender> matches_;
  std::size_t leaves_ = 1;
};

}  // namespace Vorn
