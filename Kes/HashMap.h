// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <bit>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kes/Types.h"
#include "Kes/Walkable.h"

namespace Kes {

// Flat hash map: the entries stand side by side in one array, in the order in which they were inserted, and
// an open-addressed table of their indexes finds them. Walking the map is walking the array. A deletion moves
// the last entry into the gap; that order carries no meaning beyond being stable while nothing is deleted.
//
// Hash is a callable U64(Key const&); keys are compared with ==. References to entries are good until the
// next insertion or deletion.
template <class Key, class Value, class Hash>
class HashMap {
 public:
  struct Entry {
    Key key;
    Value value;
  };

  // Position in the map. Deleting at it leaves it on the entry that comes next.
  class Iterator : public Walkable<Iterator> {
   public:
    explicit operator bool() const { return index_ < map_->entries_.size(); }
    Key const& key() const { return map_->entries_[index_].key; }
    Value const& operator*() const { return map_->entries_[index_].value; }
    Iterator& operator++() {
      ++index_;
      return *this;
    }

   private:
    friend class HashMap;
    explicit Iterator(HashMap const& map) : map_(&map) {}
    HashMap const* map_;
    std::size_t index_ = 0;
  };

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  Iterator iterator() const { return Iterator(*this); }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

  // The value under a key; null pointer when there is none.
  Value* find(Key const& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }
  Value const* find(Key const& key) const {
    if (!slots_) return nullptr;
    Entry const* const entry = probe(key, fold(Hash{}(key))).entry;
    return entry != nullptr ? &entry->value : nullptr;
  }

  // Makes room for one more entry, so that the next put() cannot fail.
  void reserveOne() {
    if (!slots_ || (entries_.size() + 1) * 2 > mask_ + std::size_t{1}) rehash();
    if (entries_.size() == entries_.capacity())
      entries_.reserve(std::max<std::size_t>(4, 2 * entries_.size()));
  }

  // Stores a value under a key, replacing one that is there: that one is released last.
  void put(Key const& key, Value value) {
    reserveOne();
    U32 const hash = fold(Hash{}(key));
    Slot& slot = slots_[probe(key, hash).slot];
    if (slot.index != Slot::vacant) {
      std::swap(entries_[slot.index].value, value);
      return;
    }
    entries_.push_back({key, std::move(value)});
    slot = {hash, static_cast<U32>(entries_.size() - 1)};
  }

  // Removes the entry under a key and returns its value; Value() when there is none.
  Value del(Key const& key) {
    if (entries_.empty()) return Value();
    Position const found = probe(key, fold(Hash{}(key)));
    return found.entry == nullptr ? Value() : removeAt(found.slot);
  }
  Value del(Iterator& at) { return removeAt(probe(at.key(), fold(Hash{}(at.key()))).slot); }

  void delAll() {
    std::vector<Entry> released;
    released.swap(entries_);
    if (slots_) std::fill_n(slots_.get(), mask_ + std::size_t{1}, Slot());
    // Keep the room: a map that is emptied over and over (an entry-key index) must not allocate each time.
    if constexpr (std::is_trivially_destructible_v<Entry>) {
      released.clear();
      entries_.swap(released);
    }
  }

 private:
  struct Slot {
    static constexpr U32 vacant = ~U32{0};
    U32 hash = 0;
    U32 index = vacant;
  };

  static U32 fold(U64 hash) { return static_cast<U32>(hash ^ (hash >> 32)); }

  // A key's slot and entry; for one that is not in the map the vacant slot where it belongs, and null.
  struct Position {
    std::size_t slot;
    Entry const* entry;
  };
  Position probe(Key const& key, U32 hash) const {
    for (std::size_t at = hash & mask_;; at = (at + 1) & mask_) {
      Slot const& slot = slots_[at];
      if (slot.index == Slot::vacant) return {at, nullptr};
      Entry const* const entry = &entries_[slot.index];
      if (slot.hash == hash && entry->key == key) return {at, entry};
    }
  }

  // The slot that points at the entry of a given hash and index.
  std::size_t slotOf(U32 hash, U32 index) const {
    std::size_t at = hash & mask_;
    while (slots_[at].index != index) at = (at + 1) & mask_;
    return at;
  }

  void rehash() {
    std::size_t const count = std::bit_ceil((entries_.size() + 1) * 4);
    auto larger = std::make_unique<Slot[]>(count);
    mask_ = static_cast<U32>(count - 1);
    for (U32 index = 0; index < entries_.size(); ++index) {
      U32 const hash = fold(Hash{}(entries_[index].key));
      std::size_t at = hash & mask_;
      while (larger[at].index != Slot::vacant) at = (at + 1) & mask_;
      larger[at] = {hash, index};
    }
    slots_ = std::move(larger);
  }

  Value removeAt(std::size_t at) {
    U32 const index = slots_[at].index;
    U32 const last = static_cast<U32>(entries_.size() - 1);
    Entry removed = std::move(entries_[index]);
    if (index != last) {
      slots_[slotOf(fold(Hash{}(entries_[last].key)), last)].index = index;
      entries_[index] = std::move(entries_[last]);
    }
    entries_.pop_back();
    closeGap(at);
    return std::move(removed.value);
  }

  // Linear probing without tombstones: moves later slots of the run back over the vacated one.
  void closeGap(std::size_t gap) {
    for (std::size_t at = (gap + 1) & mask_; slots_[at].index != Slot::vacant; at = (at + 1) & mask_) {
      std::size_t const home = slots_[at].hash & mask_;
      if (((at - home) & mask_) < ((at - gap) & mask_)) continue;
      slots_[gap] = slots_[at];
      gap = at;
    }
    slots_[gap] = Slot();
  }

  std::vector<Entry> entries_;
  std::unique_ptr<Slot[]> slots_;
  U32 mask_ = 0;  // the number of slots, a power of two, less one
};

}  // namespace Kes
