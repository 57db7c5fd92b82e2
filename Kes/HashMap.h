#pragma once

#include <algorithm>
#include <bit>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kes/Types.h"

namespace Kes {

// Flat hash map: the members stand side by side in one array, in the order in which they were inserted, and
// an open-addressed table of their indexes finds them. Walking the map is walking the array. A deletion moves
// the last member into the gap; that order carries no meaning beyond being stable while nothing is deleted.
//
// Hash is a callable U64(Key const&); keys are compared with ==. References to members are good until the
// next insertion or deletion.
template <class Key, class Value, class Hash>
class HashMap {
 public:
  struct Member {
    Key key;
    Value value;
  };

  // Position in the map. Deleting at it leaves it on the member that comes next.
  class Iterator {
   public:
    explicit operator bool() const { return index_ < map_->members_.size(); }
    Key const& key() const { return map_->members_[index_].key; }
    Value const& operator*() const { return map_->members_[index_].value; }
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

  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  Iterator iterator() const { return Iterator(*this); }
  auto begin() const { return members_.begin(); }
  auto end() const { return members_.end(); }

  // The value under a key; null pointer when there is none.
  Value* find(Key const& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }
  Value const* find(Key const& key) const {
    if (!cells_) return nullptr;
    Member const* const member = probe(key, fold(Hash{}(key))).member;
    return member != nullptr ? &member->value : nullptr;
  }

  // Stores a value under a key, replacing one that is there.
  Value& put(Key const& key, Value value) {
    if (!cells_ || (members_.size() + 1) * 2 > mask_ + std::size_t{1}) rehash();
    U32 const hash = fold(Hash{}(key));
    Cell& cell = cells_[probe(key, hash).cell];
    if (cell.index == Cell::vacant) {
      members_.push_back({key, std::move(value)});
      cell = {hash, static_cast<U32>(members_.size() - 1)};
    } else {
      std::swap(members_[cell.index].value, value);
    }
    return members_[cell.index].value;
  }

  // Removes the member under a key and returns its value; Value() when there is none.
  Value del(Key const& key) {
    if (members_.empty()) return Value();
    Position const found = probe(key, fold(Hash{}(key)));
    return found.member == nullptr ? Value() : removeCell(found.cell);
  }
  Value del(Iterator& at) { return removeCell(probe(at.key(), fold(Hash{}(at.key()))).cell); }

  void delAll() {
    std::vector<Member> released;
    released.swap(members_);
    if (cells_) std::fill_n(cells_.get(), mask_ + std::size_t{1}, Cell());
    // Keep the room: a map that is emptied over and over (an entry-key index) must not allocate each time.
    if constexpr (std::is_trivially_destructible_v<Member>) {
      released.clear();
      members_.swap(released);
    }
  }

 private:
  struct Cell {
    static constexpr U32 vacant = ~U32{0};
    U32 hash = 0;
    U32 index = vacant;
  };

  static U32 fold(U64 hash) { return static_cast<U32>(hash ^ (hash >> 32)); }

  // A key's cell and member; for one that is not in the map the vacant cell where it belongs, and null.
  struct Position {
    std::size_t cell;
    Member const* member;
  };
  Position probe(Key const& key, U32 hash) const {
    for (std::size_t at = hash & mask_;; at = (at + 1) & mask_) {
      Cell const& cell = cells_[at];
      if (cell.index == Cell::vacant) return {at, nullptr};
      Member const* const member = &members_[cell.index];
      if (cell.hash == hash && member->key == key) return {at, member};
    }
  }

  // The cell that points at the member of a given hash and index.
  std::size_t cellOf(U32 hash, U32 index) const {
    std::size_t at = hash & mask_;
    while (cells_[at].index != index) at = (at + 1) & mask_;
    return at;
  }

  void rehash() {
    std::size_t const count = std::bit_ceil((members_.size() + 1) * 4);
    auto larger = std::make_unique<Cell[]>(count);
    mask_ = static_cast<U32>(count - 1);
    for (U32 index = 0; index < members_.size(); ++index) {
      U32 const hash = fold(Hash{}(members_[index].key));
      std::size_t at = hash & mask_;
      while (larger[at].index != Cell::vacant) at = (at + 1) & mask_;
      larger[at] = {hash, index};
    }
    cells_ = std::move(larger);
  }

  Value removeCell(std::size_t at) {
    U32 const index = cells_[at].index;
    U32 const last = static_cast<U32>(members_.size() - 1);
    Member removed = std::move(members_[index]);
    if (index != last) {
      cells_[cellOf(fold(Hash{}(members_[last].key)), last)].index = index;
      members_[index] = std::move(members_[last]);
    }
    members_.pop_back();
    closeGap(at);
    return std::move(removed.value);
  }

  // Linear probing without tombstones: moves later cells of the run back over the vacated one.
  void closeGap(std::size_t gap) {
    for (std::size_t at = (gap + 1) & mask_; cells_[at].index != Cell::vacant; at = (at + 1) & mask_) {
      std::size_t const home = cells_[at].hash & mask_;
      if (((at - home) & mask_) < ((at - gap) & mask_)) continue;
      cells_[gap] = cells_[at];
      gap = at;
    }
    cells_[gap] = Cell();
  }

  std::vector<Member> members_;
  std::unique_ptr<Cell[]> cells_;
  U32 mask_ = 0;  // there are as many cells as a power of two, less one
};

}  // namespace Kes
