// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Kes/Hash.h"
#include "Kes/HashMap.h"
#include "Kes/LinkQueue.h"
#include "Kes/Ptr.h"
#include "Kes/SlabPool.h"
#include "Kes/Time.h"
#include "Pylo/IntfId.h"
#include "Vorn/Chunk.h"
#include "Vorn/EntryIndex.h"
#include "Vorn/Export.h"
#include "Vorn/Microseconds.h"
#include "Vorn/PortMetaData.h"

namespace Vorn {

// The congestion log of one interface: its chunks, oldest first, each under a 32-bit key; for each producer's
// entry key the slot, in the newest chunk, of that series' latest record; the interface's metadata objects;
// and the cursor that reports keep here while they merge interfaces. Owned by the recorder; a log that
// somebody keeps after it was deleted from the recorder is empty.
//
// Chunk keys count up from 0 and wrap at 2^32; appending throws "linkqueue index space full" when they come
// round to the oldest one. The chunks' own links are set by the allocator, not here.
class VORN_EXPORT PortData final : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<PortData>;
  using PtrConst = Kes::Ptr<PortData const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  using ChunkQueue = Kes::LinkQueue<Chunk::Ptr>;
  using ChunkNode = ChunkQueue::Node;
  using ChunkIterator = ChunkQueue::Iterator;

  struct KeyHash {
    Kes::U64 operator()(Kes::U32 key) const { return Kes::hashNumber(key); }
  };
  using EntryIndexMap = Kes::HashMap<Kes::U32, EntryIndexOrNull, KeyHash>;
  using PortMetaDataMap = Kes::HashMap<Kes::U32, PortMetaData::Ptr, KeyHash>;

  // The chunk queue's key state as a value, for saving and restoring.
  struct ChunkMetadata {
    Kes::U32 headKey = 0;
    Kes::U32 nextKey = 0;
    bool operator==(ChunkMetadata const&) const = default;
  };

  // What the log has lost to the pool (ChunkPool.h): how many records, and the newest timestamp among them.
  // Of what came later everything is there; of what is older, no more than what the log still holds.
  struct Loss {
    Kes::U64 records = 0;
    Microseconds newest{};
    bool operator==(Loss const&) const = default;

    void add(Entry const& record) {
      ++records;
      if (record.timestamp() > newest) newest = record.timestamp();
    }
  };

  explicit PortData(Pylo::IntfId intfId) : intfId_(std::move(intfId)) {}

  std::string_view fwkType() const override { return "Vorn::PortData"; }

  // Side by side, in whole lines of cache and apart from the chunks: a host uses thousands of them in turns.
  static void* operator new(std::size_t size) { return Kes::slabAllocate(wholeLines(size)); }
  static void operator delete(void* memory, std::size_t size) noexcept {
    Kes::slabFree(memory, wholeLines(size));
  }

  // The interface: this object's key in the recorder, fixed for life.
  Pylo::IntfId const& intfId() const { return intfId_; }
  Pylo::IntfId const& fwkKey() const { return intfId_; }

  // The collection `chunk`, a queue. A null chunk cannot be stored: "null ValidPtr".

  // The chunk under a key, or null.
  Chunk::Ptr chunk(Kes::U32 key) const { return chunk_.value(key); }
  // The oldest and the newest chunk, or null.
  Chunk* chunkHead() const { return chunk_.head() != nullptr ? chunk_.head()->value.get() : nullptr; }
  Chunk* chunkTail() const { return chunk_.newest().get(); }
  ChunkQueue const& chunkQueue() const { return chunk_; }
  Kes::U32 chunks() const { return chunk_.count(); }
  // Oldest to newest; valid until the queue changes other than by chunkDel on this iterator.
  ChunkIterator chunkIterator() const { return chunk_.iterator(); }
  ChunkMetadata chunkMetadata() const { return {chunk_.headKey(), chunk_.nextKey()}; }
  // Sets both keys, for restoring, and touches no node.
  void chunkMetadataIs(ChunkMetadata const& metadata) { chunk_.keysIs(metadata.headKey, metadata.nextKey); }

  // Appends under a new key.
  void chunkEnq(Chunk::Ptr const& chunk);
  // The same in two steps, of which only the first can fail, for the recorder's allocator. Chunks may be
  // taken out between them.
  ChunkQueue::Place chunkPlaceFor(Chunk::Ptr const& chunk) const { return chunk_.placeFor(chunk); }
  void chunkEnqAt(ChunkQueue::Place place) noexcept { chunk_.enq(std::move(place)); }
  // Inserts under a key of the caller's: at the tail for the next key, else in ascending order. Returns
  // the new node, which lives while it is queued.
  ChunkNode const& newChunk(Kes::U32 key, Chunk::Ptr const& chunk);
  // Replaces the chunk under a key, inserts it where there is none; null deletes.
  void chunkIs(Kes::U32 key, Chunk::Ptr const& chunk);
  // These remove a chunk and return it, or null where there is none. They touch neither its links nor its
  // owner.
  Chunk::Ptr chunkDeq() { return chunk_.deq(); }
  Chunk::Ptr chunkDel(Kes::U32 key);
  Chunk::Ptr chunkDel(ChunkIterator& at) { return chunk_.del(at); }
  void chunkDelAll() { chunk_.delAll(); }
  void chunkNotify(Kes::U32) {}

  // The slot in the newest chunk that the next append is likely to take: a hint for fetching it ahead, on
  // which nothing depends. For the recorder's intake.
  Kes::U16 nextSlot() const { return nextSlot_; }
  void nextSlotIs(Kes::U16 slot) { nextSlot_ = slot; }

  // What has been taken from this log since it was made, or as a host has restored it.
  Loss const& loss() const { return loss_; }
  void lossIs(Loss const& loss) { loss_ = loss; }
  void lossInc(Loss const& more) {
    loss_.records += more.records;
    if (more.newest > loss_.newest) loss_.newest = more.newest;
  }

  // When the last threshold message for this interface was raised, in the clock's UTC seconds; 0 at first.
  Kes::Seconds lastSyslogTime() const { return lastSyslogTime_; }
  void lastSyslogTimeIs(Kes::Seconds const& time) { lastSyslogTime_ = time; }

  // Report cursor: whether the interface still has records to give, and the chunk and slot of the next one.
  // Set up afresh by every report.
  bool mergeEntries() const { return mergeEntries_; }
  void mergeEntriesIs(bool mergeEntries) { mergeEntries_ = mergeEntries; }
  Chunk::Ptr const& chunkTobeMerged() const { return chunkTobeMerged_; }
  void chunkTobeMergedIs(Chunk::Ptr const& chunk) { chunkTobeMerged_ = chunk; }
  Kes::U16 entryTobeMerged() const { return entryTobeMerged_; }
  void entryTobeMergedIs(Kes::U16 slot) { entryTobeMerged_ = slot; }

  // The collection `entryIndex`. An absent key reads as the null index; a null value is stored like any
  // other.
  EntryIndexOrNull entryIndex(Kes::U32 key) const {
    EntryIndexOrNull const* const found = entryIndex_.find(key);
    return found != nullptr ? *found : EntryIndexOrNull();
  }
  EntryIndexOrNull newEntryIndex(Kes::U32 key, EntryIndexOrNull index) {
    entryIndex_.put(key, index);
    return index;
  }
  // Makes room for one more key, so that storing it cannot fail: for the recorder's intake.
  void entryIndexReserve() { entryIndex_.reserveOne(); }
  void entryIndexIs(Kes::U32 key, EntryIndexOrNull index) { newEntryIndex(key, index); }
  EntryIndexMap::Iterator entryIndexIterator() const { return entryIndex_.iterator(); }
  void entryIndexDel(Kes::U32 key) { entryIndex_.del(key); }
  void entryIndexDel(EntryIndexMap::Iterator& at) { entryIndex_.del(at); }
  void entryIndexDelAll() { entryIndex_.delAll(); }
  void entryIndexNotify(Kes::U32) {}

  // The collection `portMetaData`, each object under its own identifier; null where there is none.
  PortMetaData::Ptr portMetaData(Kes::U32 identifier) const {
    PortMetaData::Ptr const* const found = portMetaData_.find(identifier);
    return found != nullptr ? *found : nullptr;
  }
  PortMetaDataMap::Iterator portMetaDataIterator() const { return portMetaData_.iterator(); }
  // Inserts an object; RangeException "null ValidPtr" for null.
  PortMetaData::Ptr newPortMetaData(PortMetaData::Ptr const& portMetaData);
  // Inserts an object or replaces the one of its identifier. Null raises "null _portMetaData parameter to
  // mutator for Vorn::PortData::portMetaData not allowed", followed by one double quote, which log scanners
  // match.
  void portMetaDataIs(PortMetaData::Ptr const& portMetaData);
  void portMetaDataDel(Kes::U32 identifier) { portMetaData_.del(identifier); }
  void portMetaDataDel(PortMetaDataMap::Iterator& at) { portMetaData_.del(at); }
  void portMetaDataDelAll() { portMetaData_.delAll(); }
  void portMetaDataNotify(Kes::U32) {}

  // For tests: the first thing that is wrong with the log as the recorder keeps it, or nothing.
  std::string checkInvariants() const;

 protected:
  ~PortData() override;

 private:
  static constexpr std::size_t wholeLines(std::size_t size) { return (size + 63) / 64 * 64; }

  // An append, and a report's line, touch no more than the first line of cache.
  Kes::U16 nextSlot_ = 0;
  Kes::U16 entryTobeMerged_ = 0;
  Pylo::IntfId const intfId_;
  Kes::Seconds lastSyslogTime_ = 0.0;
  ChunkQueue chunk_;
  EntryIndexMap entryIndex_;
  Chunk::Ptr chunkTobeMerged_;
  bool mergeEntries_ = false;
  PortMetaDataMap portMetaData_;
  Loss loss_;
};

// The logs of a recorder, by interface. The order of a walk is stable between deletions and means nothing.
using PortDataMap = Kes::HashMap<Pylo::IntfId, PortData::Ptr, Pylo::IntfIdHash>;

}  // namespace Vorn
