// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <memory>
#include <utility>

#include "Kes/Exception.h"
#include "Kes/Types.h"

namespace Kes {

// Bounded circular queue of N slots holding pointer-like values that may be null: T converts to bool, and T()
// is the null value. Elements keep their slot for life; slots are addressed by number, 0 to N-1.
//
//        0   1   2   3   4   5  ...  N-1
//      [   |   | a | b |   | c |   |    ]      head 2, count 4; slot 4 is a hole
//
// The k-th element stands in slot (head + k) mod N. Slots inside the range [head, head + count) may be null
// after a deletion in the middle; the removals below never leave such a hole at the end they work on. Slots
// outside the range are null, but for those that a refused stateIs() left there: whatever takes such a slot,
// or removes all, releases what it holds.
//
// Slot numbers passed in must be below N: the owner checks them, in the words of its own index type. Every
// change of the elements raises modificationCount(). Values are released last, when the queue has its new
// state and is not touched any more: a destructor may use the queue, and end its life.
template <class T, U32 N>
class ArrayQueue {
 public:
  static constexpr U32 capacity = N;

  U32 head() const { return head_; }
  U32 count() const { return count_; }
  bool empty() const { return count_ == 0; }
  bool full() const { return count_ == N; }
  U32 modificationCount() const { return modificationCount_; }
  // The slot of the newest element; meaningless while empty.
  U32 tail() const { return before(tailNext()); }
  // The slot that the next append takes.
  U32 tailNext() const {
    U32 const position = head_ + count_;
    return position < N ? position : position - N;
  }

  T const& slot(U32 index) const { return slots_[index]; }
  // Fetches a slot that will soon be written into the cache; N itself does no harm.
  void prefetch(U32 index) const { __builtin_prefetch(slots_.data() + index, /*rw=*/1); }
  bool contains(U32 index) const { return index + (head_ > index ? N : 0) < head_ + count_; }

  static U32 after(U32 index) { return index + 1 == N ? 0 : index + 1; }
  static U32 before(U32 index) { return index == 0 ? N - 1 : index - 1; }

  // Appends at the tail; RangeException "ArrayQueueStack full", changing nothing, when all slots are taken.
  void enq(T value) {
    T const displaced = takeNext();
    if (!tryEnq(value)) throw RangeException("ArrayQueueStack full");
  }

  // Appends at the tail where a null slot is: nothing is released. False, changing nothing, otherwise.
  bool tryEnq(T const& value) {
    U32 const index = tailNext();
    if (full() || slots_[index]) return false;
    ++modificationCount_;
    ++count_;
    std::construct_at(&slots_[index], value);  // over null, of which nothing is to be released
    return true;
  }

  // Takes out what a refused stateIs() left in the slot that the next append takes: null but for that, and
  // while all slots are taken.
  T takeNext() { return full() ? T() : std::exchange(slots_[tailNext()], T()); }

  // Removes and returns the oldest element, and every hole after it; null when empty.
  T deq() {
    if (empty()) return T();
    T oldest = takeHead();
    while (!empty() && !slots_[head_]) takeHead();
    return oldest;
  }

  // Removes and returns the element in a slot; null when there is none. At the head this is deq; at the tail
  // the holes before it go as well; in between a hole stays behind and the count with it.
  T del(U32 index) {
    if (!empty() && index == head_) return deq();
    if (!empty() && index == tail()) {
      T newest = takeTail();
      while (!empty() && !slots_[tail()]) takeTail();
      return newest;
    }
    if (!contains(index)) return T();
    if (slots_[index]) ++modificationCount_;
    return std::exchange(slots_[index], T());
  }

  // Stores a value (not null) in a slot: replaces the element of a slot inside the queue, or makes the queue
  // grow by one onto the slot next to either end. An empty queue starts at that slot. RangeException
  // "ArrayQueueStack full" or "outside of queue" otherwise.
  void put(U32 index, T value) {
    if (contains(index)) {
      ++modificationCount_;
      slots_[index].swap(value);
      return;
    }
    if (empty()) head_ = index;
    if (index == tailNext()) return enq(std::move(value));
    if (index != before(head_)) throw RangeException("outside of queue");
    head_ = index;
    ++count_;
    ++modificationCount_;
    slots_[index].swap(value);
  }

  // Removes every element, oldest first; the head then stands one past the last slot removed.
  void delAll() {
    U32 const oldest = head_;
    U32 const newHead = tailNext();
    std::array<T, N> released = takeAll();
    head_ = newHead;
    for (U32 left = N, index = oldest; left > 0; --left, index = after(index)) released[index] = T();
  }

  // Hands all slots over to the caller, to be released when that suits it, and starts anew at head 0.
  std::array<T, N> takeAll() {
    std::array<T, N> taken(std::move(slots_));
    modificationCount_ += count_;
    head_ = 0;
    count_ = 0;
    return taken;
  }

  // Sets head and count (for restoring); slots inside the new range keep what they hold, those outside are
  // released. RangeException "bad size", with the head already set, for a count above N. Does not raise the
  // modification count.
  void stateIs(U32 head, U32 count) {
    head_ = head;
    if (count > N) throw RangeException("bad size");
    count_ = count;
    std::array<T, N> released;
    for (U32 index = tailNext(), left = N - count; left > 0; --left, index = after(index))
      released[index].swap(slots_[index]);
  }

 private:
  T takeHead() {
    T taken = std::exchange(slots_[head_], T());
    head_ = after(head_);
    --count_;
    ++modificationCount_;
    return taken;
  }

  T takeTail() {
    T taken = std::exchange(slots_[tail()], T());
    --count_;
    ++modificationCount_;
    return taken;
  }

  U32 head_ = 0;
  U32 count_ = 0;
  U32 modificationCount_ = 0;
  std::array<T, N> slots_{};
};

}  // namespace Kes
