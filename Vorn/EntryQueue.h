// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

#include "Kes/ArrayQueue.h"
#include "Kes/Walkable.h"
#include "Vorn/Entry.h"
#include "Vorn/EntryIndex.h"

namespace Vorn {

// The collection `entry` of a chunk: a circular queue of 500 slots, each holding a record or null, oldest
// record at the head.
//
//   empty     head 0, count 0
//   filling   [ r0 r1 r2 .. r(n-1)  .  .  . ]   head 0, count n; the next record goes to slot n
//   full      [ r0 r1 r2 ........... r499 ]     count 500: an append throws until the oldest is dequeued
//   rolling   [ r500 r1 r2 ......... r499 ]     head 1, count 500: slots are reused in a circle
//
// A record keeps its slot for as long as it is queued. Deleting in the middle leaves a hole that count()
// still counts; removals at either end take the holes that they reach along. entryModificationCount() rises
// with every enqueue, dequeue, deletion and replacement.
//
// Slots are given as EntryIndex; one that holds a rejected value raises "EntryIndex::value < 0 or >
// EntryIndex::max not allowed" before anything is touched.
class VORN_EXPORT EntryQueue {
 public:
  using Slots = Kes::ArrayQueue<Entry::Ptr, entriesPerChunk>;

  // The queue's state as a value, for saving and restoring.
  struct EntryMetadata {
    EntryIndex head;
    Kes::U32 count = 0;
    bool operator==(EntryMetadata const&) const = default;
  };

  // Visits the slots that hold a record, from the head to the tail. Valid until the queue changes other than
  // by entryDel on this iterator.
  class EntryIterator : public Kes::Walkable<EntryIterator> {
   public:
    explicit operator bool() const { return left_ > 0; }
    EntryIndex key() const { return EntryIndex(static_cast<Kes::U16>(slot_)); }
    Entry::Ptr const& operator*() const { return slots_->slot(slot_); }
    EntryIterator& operator++() {
      step();
      skipHoles();
      return *this;
    }

   private:
    friend class EntryQueue;
    explicit EntryIterator(Slots const& slots) : slots_(&slots), slot_(slots.head()), left_(slots.count()) {
      skipHoles();
    }
    void step() {
      slot_ = Slots::after(slot_);
      --left_;
    }
    void skipHoles() {
      while (left_ > 0 && !slots_->slot(slot_)) step();
    }

    Slots const* slots_;
    Kes::U32 slot_;
    Kes::U32 left_;  // positions from slot_ to the tail
  };

  EntryQueue(EntryQueue const&) = delete;
  EntryQueue& operator=(EntryQueue const&) = delete;

  // Positions in the queue, holes included: 0 to 500.
  Kes::U32 entrys() const { return slots_.count(); }
  // The slot of the newest position; meaningless while empty.
  EntryIndex entryTailIndex() const { return EntryIndex(static_cast<Kes::U16>(slots_.tail())); }
  // The record in a slot; null for a hole and outside of the queue.
  Entry::Ptr const& entry(EntryIndex index) const;
  EntryMetadata entryMetadata() const {
    return {EntryIndex(static_cast<Kes::U16>(slots_.head())), slots_.count()};
  }
  Kes::U32 entryModificationCount() const { return slots_.modificationCount(); }
  EntryIterator entryIterator() const { return EntryIterator(slots_); }
  // The bare slots, for walks that are counted in nanoseconds.
  Slots const& entrySlots() const { return slots_; }

  // Appends a record; RangeException "ArrayQueueStack full", changing nothing, when there are 500.
  void entryEnq(Entry::Ptr const& entry) { slots_.enq(entry); }
  // For the recorder's intake, as are entryTakeNext and entryTakeAll: the same without a failure, and without
  // releasing anything: false, changing nothing, when there are 500,
  // or when a refused entryMetadataIs has left a record in the slot, which entryTakeNext takes out.
  bool entryTryEnq(Entry::Ptr const& entry) { return slots_.tryEnq(entry); }
  Entry::Ptr entryTakeNext() { return slots_.takeNext(); }
  // Removes and returns the oldest record; null when empty.
  Entry::Ptr entryDeq() { return slots_.deq(); }
  // Removes and returns the record in a slot; null when there is none.
  Entry::Ptr entryDel(EntryIndex index);
  // The same at an iterator, which moves on to the next record.
  Entry::Ptr entryDel(EntryIterator& at);
  // Stores a record in a slot of the queue or next to one of its ends; null deletes. RangeException "outside
  // of queue" for any other slot, "ArrayQueueStack full" when there is no room.
  void entryIs(EntryIndex index, Entry::Ptr const& entry);
  // Removes every record, oldest first. The head stays where the last one stood, plus one.
  void entryDelAll() { slots_.delAll(); }
  // Empties the queue, back to head 0, without releasing a record yet: they live as long as the result does.
  std::array<Entry::Ptr, entriesPerChunk> entryTakeAll() { return slots_.takeAll(); }
  // Sets head and count for restoring; slots outside of the new range are released. RangeException "bad
  // size", with the head already set, for a count above 500.
  void entryMetadataIs(EntryMetadata const& metadata);
  // Change hook of the framework; nothing listens here.
  void entryNotify(EntryIndex) {}

  // For tests: whether every slot outside of the queue is null and the state is within bounds.
  bool entryInvariantsHold() const;

 protected:
  EntryQueue() = default;
  ~EntryQueue() = default;

 private:
  Slots slots_;
};

}  // namespace Vorn
