// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/MergeCursor.h"

#include <algorithm>
#include <bit>

#include "Vorn/Trace.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

MergeCursor::MergeCursor(std::span<PortData::Ptr const> ports, Direction direction) : direction_(direction) {
  rows_.reserve(ports.size());
  for (PortData::Ptr const& port : ports) {
    Row row{port, port->intfId().shortName().charPtr()};
    if (direction_ == Direction::oldestFirst) {
      load(row, Chunk::Ptr(port->chunkHead()));
      VORN_TRACE(6, "head index " << row.port->chunkMetadata().headKey - 1 << " num of entries " << row.left);
    } else {
      load(row, Chunk::Ptr(port->chunkTail()));
    }
    rows_.push_back(std::move(row));
  }
  leaves_ = std::bit_ceil(std::max<std::size_t>(rows_.size(), 1));
  matches_.resize(2 * leaves_);
  for (std::size_t index = 0; index < rows_.size(); ++index) skipHoles(index);
  for (std::size_t match = leaves_ - 1; match > 0; --match) replay(match);
}

MergeCursor::Choice MergeCursor::choose() const {
  if (matches_[1].key == exhausted) return {};
  Row const& row = rows_[matches_[1].row];
  return {row.port.get(), row.entry, row.shortName};
}

void MergeCursor::advance() {
  std::size_t const chosen = matches_[1].row;
  step(rows_[chosen]);
  skipHoles(chosen);
  for (std::size_t match = (leaves_ + chosen) / 2; match > 0; match /= 2) replay(match);
  // While the chosen record is written, what the next line needs is fetched: its port's cursor, all of a
  // platform's record, which is larger than ours, and what moves the row on afterwards.
  Row const& next = rows_[matches_[1].row];
  __builtin_prefetch(next.port.get(), /*rw=*/1);
  if (next.entry == nullptr) return;
  __builtin_prefetch(next.entry);
  __builtin_prefetch(next.entry + 1);
  __builtin_prefetch(next.following);
  next.chunk->entrySlots().prefetch(slotAfter(slotAfter(next.slot)));
}

// Puts a row's cursor at the first position of a chunk.
void MergeCursor::load(Row& row, Chunk::Ptr const& chunk) {
  EntryQueue::Slots const& slots = chunk->entrySlots();
  row.chunk = chunk.get();
  row.slot = direction_ == Direction::oldestFirst ? slots.head() : slots.tail();
  row.left = slots.count();
  remaining_ += row.left;
  row.port->chunkTobeMergedIs(chunk);
}

// Moves a row on to its next record, over holes and chunk borders, unless it stands on one.
void MergeCursor::skipHoles(std::size_t index) {
  Row& row = rows_[index];
  for (;;) {
    while (row.left > 0 && !row.chunk->entrySlots().slot(row.slot)) {
      countDown();
      step(row);
    }
    if (row.left > 0) break;
    if (nextChunk(row)) continue;
    row.port->mergeEntriesIs(false);
    matches_[leaves_ + index] = {};
    return;
  }
  row.entry = row.chunk->entrySlots().slot(row.slot).get();
  row.port->entryTobeMergedIs(static_cast<Kes::U16>(row.slot));
  matches_[leaves_ + index] = {keyOf(*row.entry), static_cast<Kes::U32>(index)};
  row.following = row.chunk->entrySlots().slot(slotAfter(row.slot)).get();
}

bool MergeCursor::nextChunk(Row& row) {
  bool const ascending = direction_ == Direction::oldestFirst;
  Chunk::Ptr const& next = ascending ? row.chunk->nextChunk() : row.chunk->prevChunk();
  if (!next) {
    if (ascending) VORN_TRACE(6, "NO nextChunk\n");
    return false;
  }
  if (ascending)
    assertThat(row.chunk->entrys() == entriesPerChunk,
               "Kes::S32 Vorn::CongestionData::doDumpEntriesInCSVFormat(Kes::VoidPtr, Kes::String, "
               "Kes::String, bool)",
               "oldestEntryChunk->entrys() == ( EntryIndex::max() + 1 )");
  load(row, next);
  return true;
}

Kes::U32 MergeCursor::slotAfter(Kes::U32 slot) const {
  return direction_ == Direction::oldestFirst ? EntryQueue::Slots::after(slot)
                                              : EntryQueue::Slots::before(slot);
}

void MergeCursor::step(Row& row) const {
  row.slot = slotAfter(row.slot);
  --row.left;
}

void MergeCursor::replay(std::size_t match) {
  Contender const& left = matches_[2 * match];
  Contender const& right = matches_[2 * match + 1];
  matches_[match] = right.key < left.key ? right : left;
}

Kes::U64 MergeCursor::keyOf(Entry const& entry) const {
  Kes::U64 const time = entry.timestamp().value();
  return direction_ == Direction::oldestFirst ? time : ~time;
}

}  // namespace Vorn
