#include "Vorn/MergeCursor.h"

#include <algorithm>

#include "Vorn/Assert.h"
#include "Vorn/Trace.h"

namespace Vorn {

MergeCursor::MergeCursor(CongestionData::PortDataMap const& ports, Direction direction)
    : direction_(direction) {
  for (auto const& [intfId, port] : ports) {
    if (!port->mergeEntries() || port->chunks() == 0) continue;
    Row row{port, nullptr, nullptr, 0, 0};
    if (direction_ == Direction::oldestFirst) {
      load(row, Chunk::Ptr(port->chunkHead()));
      VORN_TRACE(6, "head index " << port->chunkMetadata().headKey - 1 << " num of entries " << row.left);
    } else {
      load(row, Chunk::Ptr(port->chunkTail()));
    }
    rows_.push_back(std::move(row));
    keys_.push_back(exhausted);
  }
  blocks_.resize((rows_.size() + blockSize - 1) / blockSize);
  for (std::size_t index = 0; index < rows_.size(); ++index) settle(index);
  for (std::size_t block = 0; block < blocks_.size(); ++block) refreshBlock(block);
}

MergeCursor::Choice MergeCursor::choose() {
  Block best{exhausted, 0};
  for (Block const& block : blocks_)
    if (block.key < best.key) best = block;
  if (best.key == exhausted) return {};
  chosen_ = best.row;
  return {rows_[chosen_].port.get(), rows_[chosen_].entry};
}

void MergeCursor::advance() {
  step(rows_[chosen_]);
  settle(chosen_);
  refreshBlock(chosen_ / blockSize);
}

// Puts a row's cursor at the first position of a chunk.
void MergeCursor::load(Row& row, Chunk::Ptr const& chunk) {
  EntryQueue::Slots const& slots = chunk->entrySlots();
  row.chunk = chunk.get();
  row.slot = direction_ == Direction::oldestFirst ? slots.head() : slots.tail();
  row.left = slots.count();
  total_ += row.left;
  row.port->chunkTobeMergedIs(chunk);
}

// Moves a row on to its next record, over holes and chunk borders, unless it stands on one.
void MergeCursor::settle(std::size_t index) {
  Row& row = rows_[index];
  for (;;) {
    while (row.left > 0 && !row.chunk->entrySlots().slot(row.slot)) {
      countOff();
      step(row);
    }
    if (row.left > 0) break;
    if (nextChunk(row)) continue;
    row.port->mergeEntriesIs(false);
    keys_[index] = exhausted;
    return;
  }
  row.entry = row.chunk->entrySlots().slot(row.slot).get();
  row.port->entryTobeMergedIs(static_cast<Kes::U16>(row.slot));
  keys_[index] = keyOf(*row.entry);
  // The port that just gave a record is likely to give the next one too.
  Kes::U32 const ahead = direction_ == Direction::oldestFirst ? EntryQueue::Slots::after(row.slot)
                                                              : EntryQueue::Slots::before(row.slot);
  __builtin_prefetch(row.chunk->entrySlots().slot(ahead).get());
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

void MergeCursor::step(Row& row) const {
  row.slot = direction_ == Direction::oldestFirst ? EntryQueue::Slots::after(row.slot)
                                                  : EntryQueue::Slots::before(row.slot);
  --row.left;
}

void MergeCursor::refreshBlock(std::size_t block) {
  std::size_t const end = std::min((block + 1) * blockSize, keys_.size());
  Block best{exhausted, 0};
  for (std::size_t row = block * blockSize; row < end; ++row)
    if (keys_[row] < best.key) best = {keys_[row], row};
  blocks_[block] = best;
}

Kes::U64 MergeCursor::keyOf(Entry const& entry) const {
  Kes::U64 const time = entry.timestamp().value();
  return direction_ == Direction::oldestFirst ? time : ~time;
}

}  // namespace Vorn
