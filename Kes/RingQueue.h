// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "Kes/Exception.h"
#include "Kes/Types.h"
#include "Kes/Walkable.h"

namespace Kes {

// First-in, first-out queue with stable positional keys, in a ring that grows by doubling. T is pointer-like:
// T() is null.
//
// Every element has a 32-bit position, handed out in rising order from the head and tail counters; a deletion
// in the middle empties its position in place, so that count() = tail - head includes such holes. The
// counters are 64-bit; the position of an element is the low half of its counter. The head is always a live
// element, or the queue is empty. Every change of the elements raises modificationCount().
template <class T>
class RingQueue {
 public:
  static constexpr U32 initialCapacity = 8;
  // Growth to explicit positions stops here, long before a mistaken position could eat the memory.
  static constexpr U32 explicitCapacityLimit = 1U << 24;

  // Visits the elements from head to tail, holes left out. Valid until the queue changes.
  class Iterator : public Walkable<Iterator> {
   public:
    explicit operator bool() const { return at_ != queue_->tail_; }
    U32 key() const { return static_cast<U32>(at_); }
    T const& operator*() const { return queue_->slot(at_); }
    Iterator& operator++() {
      do ++at_;
      while (*this && !**this);
      return *this;
    }

   private:
    friend class RingQueue;
    explicit Iterator(RingQueue const& queue) : queue_(&queue), at_(queue.head_) {}
    RingQueue const* queue_;
    U64 at_;
  };

  Iterator iterator() const { return Iterator(*this); }

  U32 count() const { return static_cast<U32>(tail_ - head_); }
  bool empty() const { return tail_ == head_; }
  U32 headPosition() const { return static_cast<U32>(head_); }
  // The slots of the ring; one that was never used counts as having its first ones.
  U32 capacity() const { return std::max(static_cast<U32>(ring_.size()), initialCapacity); }
  U32 modificationCount() const { return modificationCount_; }

  // The element at a position: null for a hole and outside of the queue.
  T const& at(U32 position) const {
    static T const none{};
    return contains(position) ? slot(head_ + offset(position)) : none;
  }
  bool contains(U32 position) const { return offset(position) < count(); }

  // Makes room for one more element, so that the next enq cannot fail.
  void reserveOne() {
    if (count() == ring_.size()) grow(2 * ring_.size());
  }

  void enq(T value) {
    reserveOne();
    slot(tail_++).swap(value);
    ++modificationCount_;
  }

  // Removes and returns the oldest element, and every hole after it; null, changing nothing, when empty.
  T deq() {
    if (empty()) return T();
    T oldest = std::exchange(slot(head_++), T());
    while (!empty() && !slot(head_)) ++head_;
    ++modificationCount_;
    return oldest;
  }

  // Removes and returns the element at a position. At the head this is deq; at the last position the tail
  // moves back over the holes before it; in between a hole stays behind. Null, changing nothing, outside of
  // the queue.
  T del(U32 position) {
    if (!contains(position)) return T();
    if (position == headPosition()) return deq();
    U64 const index = head_ + offset(position);
    T removed = std::exchange(slot(index), T());
    if (index + 1 == tail_) {
      --tail_;
      while (!empty() && !slot(tail_ - 1)) --tail_;
    }
    ++modificationCount_;
    return removed;
  }

  // Stores an element (not null) at an explicit position (for restoring). Outside of the queue the nearer end
  // moves there, leaving holes between; an empty queue starts there. RangeException, changing nothing, when
  // the queue would span more than explicitCapacityLimit positions.
  void put(U32 position, T value) {
    if (empty()) {
      reserveOne();
      head_ = tail_ = position;
      return enq(std::move(value));
    }
    if (!contains(position)) extendTo(position);
    slot(head_ + offset(position)).swap(value);
    ++modificationCount_;
  }

  void delAll() {
    while (!empty()) deq();
  }

  // Moves head and tail together, their elements with them, so that the head stands at `position`, and grows
  // the ring to at least `capacity` slots (for restoring). RangeException, changing nothing, for a capacity
  // above explicitCapacityLimit.
  void stateIs(U32 position, U32 capacity) {
    checkLimit(capacity);
    std::vector<T> moved(std::max<std::size_t>(rounded(capacity), ring_.size()));
    U32 const elements = count();
    for (U32 i = 0; i < elements; ++i) moved[(U64{position} + i) & (moved.size() - 1)].swap(slot(head_ + i));
    ring_.swap(moved);
    head_ = position;
    tail_ = head_ + elements;
  }

 private:
  // The ring's size is a power of two, so a counter's low bits are its slot.
  T& slot(U64 counter) { return ring_[counter & (ring_.size() - 1)]; }
  T const& slot(U64 counter) const { return ring_[counter & (ring_.size() - 1)]; }
  U32 offset(U32 position) const { return position - headPosition(); }

  static std::size_t rounded(std::size_t capacity) {
    std::size_t size = initialCapacity;
    while (size < capacity) size *= 2;
    return size;
  }

  static void checkLimit(U64 capacity) {
    if (capacity > explicitCapacityLimit) throw RangeException("ring queue would grow beyond 2^24 slots");
  }

  void grow(std::size_t capacity) {
    std::vector<T> larger(rounded(capacity));
    for (U64 i = head_; i != tail_; ++i) larger[i & (larger.size() - 1)].swap(slot(i));
    ring_.swap(larger);
  }

  void extendTo(U32 position) {
    U64 const upwards = U64{offset(position)} + 1;
    U64 const downwards = U64{headPosition() - position} + count();
    U64 const span = upwards <= downwards ? upwards : downwards;
    checkLimit(span);
    if (span > ring_.size()) grow(span);
    if (upwards <= downwards)
      tail_ = head_ + span;
    else
      head_ = tail_ - span;
  }

  std::vector<T> ring_;
  U64 head_ = 0;
  U64 tail_ = 0;
  U32 modificationCount_ = 0;
};

}  // namespace Kes
