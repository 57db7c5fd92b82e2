#include "Vorn/PortData.h"

#include <cstddef>

#include "Kes/Exception.h"

namespace Vorn {

namespace {

template <class T>
T const& valid(T const& pointer) {
  if (!pointer) throw Kes::RangeException("null ValidPtr");
  return pointer;
}

}  // namespace

PortData::~PortData() = default;

void PortData::chunkEnq(Chunk::Ptr const& chunk) { chunk_.enq(chunk_.placeFor(valid(chunk))); }

PortData::ChunkNode const& PortData::newChunk(Kes::U32 key, Chunk::Ptr const& chunk) {
  return chunk_.insert(key, valid(chunk));
}

void PortData::chunkIs(Kes::U32 key, Chunk::Ptr const& chunk) {
  if (!chunk)
    chunkDel(key);
  else if (!chunk_.replace(key, chunk))
    newChunk(key, chunk);
}

Chunk::Ptr PortData::chunkDel(Kes::U32 key) { return chunk_.del(key); }

// One in 500 appends waits for this. Records that were made one by one lie anywhere in memory: the next ones
// are fetched while one is looked at, for whoever releases them then as well.
void PortData::lossInc(Chunk const& chunk) noexcept {
  constexpr Kes::U32 ahead = 24;
  EntryQueue::Slots const& slots = chunk.entrySlots();
  Kes::U64 newest = loss_.newest.value();
  Kes::U32 slot = slots.head();
  Kes::U32 later = (slot + ahead) % entriesPerChunk;
  Kes::U32 holes = 0;
  for (Kes::U32 left = slots.count(); left > 0; --left) {
    if (Entry const* const next = slots.slot(later).get()) {
      __builtin_prefetch(next, /*rw=*/1);
      __builtin_prefetch(reinterpret_cast<std::byte const*>(next + 1) - 1, /*rw=*/1);
    }
    Entry const* const entry = slots.slot(slot).get();
    if (entry == nullptr)
      ++holes;
    else if (entry->timestamp().value() > newest)
      newest = entry->timestamp().value();
    slot = EntryQueue::Slots::after(slot);
    later = EntryQueue::Slots::after(later);
  }
  loss_ = {loss_.records + slots.count() - holes, Microseconds(newest)};
}

PortMetaData::Ptr PortData::newPortMetaData(PortMetaData::Ptr const& portMetaData) {
  PortMetaData::Ptr const held = valid(portMetaData);
  portMetaData_.put(held->identifier(), held);
  return held;
}

void PortData::portMetaDataIs(PortMetaData::Ptr const& portMetaData) {
  if (!portMetaData)
    throw Kes::RangeException(
        "null _portMetaData parameter to mutator for Vorn::PortData::portMetaData not allowed\"");
  newPortMetaData(portMetaData);
}

std::string PortData::checkInvariants() const {
  Kes::U32 nodes = 0;
  for (ChunkIterator i = chunkIterator(); i; ++i, ++nodes) {
    Chunk const& chunk = **i;
    if (chunk.intfId() != intfId_) return "a chunk names another owner";
    if (chunk.prevChunk() != i.older()) return "prevChunk is not the older neighbour";
    if (chunk.nextChunk() != i.newer()) return "nextChunk is not the newer neighbour";
    if (chunk.nextChunk() && chunk.entrys() != entriesPerChunk)
      return "a chunk that is not full has a newer one";
    if (!chunk.entryInvariantsHold()) return "a record stands outside of its queue";
  }
  if (nodes != chunk_.count()) return "the chunk count is off";
  for (auto const& [key, index] : entryIndex_) {
    if (index.isNull()) continue;
    Chunk const* const newest = chunkTail();
    if (newest == nullptr || !newest->entrySlots().contains(index.value()))
      return "an entry index points outside of the newest chunk";
  }
  return "";
}

}  // namespace Vorn
