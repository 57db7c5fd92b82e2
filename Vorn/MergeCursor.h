#pragma once

#include <vector>

#include "Vorn/CongestionData.h"

namespace Vorn {

// Merges the records of many interfaces into one time line, for the two entry reports: a cursor in every port
// whose mergeEntries is set, and the choice of the port whose record comes next.
//
// The choice is a linear scan in the ports' iteration order, so that of equal times the port met first wins;
// but it scans a dense array of the current times, and the best of each block of 64, instead of chasing port,
// chunk and record. The ports' own cursor attributes follow line by line.
//
// total() counts the positions loaded into cursors and not yet counted off: those of a port's current chunk,
// never of the chunks behind it. Holes count off when they are passed.
class MergeCursor {
 public:
  enum class Direction { oldestFirst, newestFirst };

  struct Choice {
    PortData* port = nullptr;  // null: no record can be chosen
    Entry const* entry = nullptr;
  };

  // Sets every port's cursor up at its first record in that direction.
  MergeCursor(CongestionData::PortDataMap const& ports, Direction direction);

  Kes::U64 total() const { return total_; }

  // The record that comes next: strictly the earliest (latest) time, and never the last (first) moment that a
  // Microseconds can name. It stays chosen until advance().
  Choice choose();
  // Moves the chosen port's cursor on; past its last record the port's mergeEntries is cleared.
  void advance();
  // Counts the chosen record off.
  void countOff() { --total_; }

 private:
  static constexpr std::size_t blockSize = 64;
  // The key of a port that has nothing to give.
  static constexpr Kes::U64 exhausted = ~Kes::U64{0};

  struct Row {
    PortData::Ptr port;
    Chunk const* chunk;
    Entry const* entry;  // the current record
    Kes::U32 slot;       // and its slot
    Kes::U32 left;       // positions of the chunk from it on, in the direction of the report
  };

  struct Block {
    Kes::U64 key;
    std::size_t row;
  };

  void load(Row& row, Chunk::Ptr const& chunk);
  void settle(std::size_t index);
  bool nextChunk(Row& row);
  void step(Row& row) const;
  void refreshBlock(std::size_t block);
  Kes::U64 keyOf(Entry const& entry) const;

  Direction const direction_;
  Kes::U64 total_ = 0;
  std::size_t chosen_ = 0;
  std::vector<Row> rows_;
  std::vector<Kes::U64> keys_;  // of the rows' current records: the smallest comes next
  std::vector<Block> blocks_;
};

}  // namespace Vorn
