// SPDX-License-Identifier: Apache-2.0
#include "Vorn/ChunkPool.h"

#include <array>
#include <utility>

#include "Kes/Exception.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

namespace {

constexpr char operation[] = "Vorn::Chunk::Ptr Vorn::CongestionData::allocateChunk(Pylo::IntfId)";

// Records that were made one by one lie anywhere in memory; the next ones are fetched while one goes. Returns
// what is lost with them: to look through them beforehand would be to fetch them twice.
PortData::Loss release(std::array<Entry::Ptr, entriesPerChunk>& records) {
  constexpr std::size_t ahead = 24;
  PortData::Loss loss;
  for (std::size_t i = 0; i < records.size(); ++i) {
    Entry const* const later = i + ahead < records.size() ? records[i + ahead].get() : nullptr;
    if (later != nullptr) {
      __builtin_prefetch(later, /*rw=*/1);
      __builtin_prefetch(reinterpret_cast<std::byte const*>(later + 1) - 1, /*rw=*/1);
    }
    if (records[i]) loss.add(*records[i]);
    records[i] = nullptr;
  }
  return loss;
}

}  // namespace

void ChunkPool::enq(Chunk::Ptr const& chunk) {
  if (!chunk) throw Kes::RangeException("null ValidPtr");
  queue_.enq(chunk);
}

void ChunkPool::put(Kes::U32 position, Chunk::Ptr const& chunk) {
  if (chunk)
    queue_.put(position, chunk);
  else
    queue_.del(position);
}

Chunk::Ptr ChunkPool::allocate(PortDataMap const& ports, PortData& port) {
  Pylo::IntfId const& intfId = port.intfId();
  bool const first = port.chunkTail() == nullptr;
  bool const fresh = first || queue_.count() < limit_;
  if (first)
    VORN_TRACE(8, "Allocating first chunk for port " << intfId);
  else if (fresh)
    VORN_TRACE(8, "Allocating new chunk for port " << intfId);
  else
    VORN_TRACE(8, "Stealing chunk for port " << intfId << " from global pool.");
  Chunk::Ptr const newChunk = fresh ? Chunk::ChunkIs() : queue_.at(queue_.headPosition());
  assertThat(newChunk != nullptr, operation, "newChunk");

  // Whatever can throw comes before anything changes hands.
  PortData::ChunkQueue::Place place = port.chunkPlaceFor(newChunk);
  if (!first && fresh) queue_.reserveOne();
  VORN_TRACE(8, "Allocating chunk for Port " << intfId);

  PortData::Ptr owner;
  if (!fresh) {
    queue_.deq();
    owner = takeFromOwner(ports, newChunk, port);
  }
  // The records of a stolen chunk go last: their destructors are the host's code and find the recorder whole.
  auto released = newChunk->entryTakeAll();
  // The requester may have been the owner, so its newest chunk is looked at only now.
  Chunk::Ptr const lastChunk(port.chunkTail());
  newChunk->prevChunkIs(lastChunk);
  newChunk->nextChunkIs(nullptr);
  newChunk->intfIdIs(intfId);
  if (lastChunk) lastChunk->nextChunkIs(newChunk);
  if (!first) queue_.enq(newChunk);
  port.chunkEnqAt(std::move(place));
  port.entryIndexDelAll();
  PortData::Loss const loss = release(released);
  if (owner) owner->lossInc(loss);
  return newChunk;
}

// Takes a chunk out of its owner's log, wherever it stands there; in the ordinary course it is the first
// chunk or the one after the private first, so this is constant time. From here on the owner does not see it
// any more. Returns it; null where there is none.
PortData::Ptr ChunkPool::takeFromOwner(PortDataMap const& ports, Chunk::Ptr const& chunk,
                                       PortData const& requester) {
  PortData::Ptr const* const found = ports.find(chunk->intfId());
  if (found == nullptr) return nullptr;  // a free chunk: its log was deleted
  PortData& owner = **found;
  PortData::ChunkIterator at = owner.chunkIterator();
  while (at && *at != chunk) ++at;
  if (!at) {
    // An owner without a name need not hold it: free chunks carry none either.
    assertThat(owner.intfId().empty(), operation, "dqueuedChunk == newChunk");
    return nullptr;
  }
  Chunk::Ptr const older = at.older();
  Chunk::Ptr const newer = at.newer();
  assertThat(older || newer || &owner == &requester, operation, "dqueuedChunk->nextChunk()");
  // The entry-key index names slots of the newest chunk.
  if (!newer) owner.entryIndexDelAll();
  ++steals_;
  owner.chunkDel(at);
  if (older) older->nextChunkIs(newer);
  if (newer) newer->prevChunkIs(older);
  return PortData::Ptr(&owner);
}

}  // namespace Vorn
