// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <iterator>
#include <list>
#include <utility>

#include "Kes/Exception.h"
#include "Kes/Types.h"
#include "Kes/Walkable.h"

namespace Kes {

// Queue of values in linked nodes, each under a 32-bit key; keys rise from the oldest node (head) to the
// newest (tail). Keys are unsigned and wrap: the key space is circular, and appending stops with the range
// exception "linkqueue index space full" when the next key would run into the head's.
//
//   headKey()  the oldest node's key; while empty, the key that the next node is expected to get
//   nextKey()  the key for the next appended node
//
// T is a Ptr; T() is null. A value is released when the queue has its new state.
template <class T>
class LinkQueue {
 public:
  struct Node {
    U32 key;
    T value;
  };
  using Nodes = std::list<Node>;

  // Position in a queue, from oldest to newest. Valid until its node is removed other than through it.
  class Iterator : public Walkable<Iterator> {
   public:
    explicit operator bool() const { return at_ != nodes_->end(); }
    U32 key() const { return at_->key; }
    T const& operator*() const { return at_->value; }
    // The value of the neighbours: null at either end.
    T older() const { return at_ != nodes_->begin() ? std::prev(at_)->value : T(); }
    T newer() const { return std::next(at_) != nodes_->end() ? std::next(at_)->value : T(); }
    Iterator& operator++() {
      ++at_;
      return *this;
    }

   private:
    friend class LinkQueue;
    explicit Iterator(Nodes const& nodes) : nodes_(&nodes), at_(nodes.begin()) {}
    Nodes const* nodes_;
    typename Nodes::const_iterator at_;
  };

  U32 headKey() const { return headKey_; }
  U32 nextKey() const { return nextKey_; }
  U32 count() const { return static_cast<U32>(nodes_.size()); }
  bool empty() const { return nodes_.empty(); }
  // Rises with every insertion and removal.
  U32 modificationCount() const { return modificationCount_; }

  // Null while empty.
  Node const* head() const { return empty() ? nullptr : &nodes_.front(); }
  Node const* tail() const { return empty() ? nullptr : &nodes_.back(); }
  // The newest node's value, null while empty: kept here, so that finding it does not touch the node.
  T const& newest() const { return newest_; }

  Iterator iterator() const { return Iterator(nodes_); }

  // The value under a key, or null. Looks at the head, then the tail, then walks from the head.
  T value(U32 key) const {
    Node const* const found = find(nodes_, key);
    return found != nullptr ? found->value : T();
  }

  // A node that an append has made ready: appending it cannot fail, also when nodes were removed meanwhile.
  class Place {
    friend class LinkQueue;
    Nodes node_;
  };
  // RangeException "linkqueue index space full" when there is no key for it.
  Place placeFor(T value) const {
    Place place;
    place.node_.push_back({appendKey(), std::move(value)});
    return place;
  }
  void enq(Place place) noexcept {
    nextKey_ = place.node_.front().key;
    link(nodes_.end(), place.node_);
  }

  // Inserts a new node: at the tail when `key` is the one that an append would use, else in ascending order
  // of keys, before a node of the same key.
  Node const& insert(U32 key, T value) {
    Nodes node;
    node.push_back({key, std::move(value)});
    Node const& inserted = node.front();
    if (key == chosenKey()) {
      nextKey_ = appendKey();
      link(nodes_.end(), node);
    } else {
      link(std::find_if(nodes_.begin(), nodes_.end(), [key](Node const& other) { return other.key >= key; }),
           node);
    }
    return inserted;
  }

  // Replaces the value under a key; false when no node has it.
  bool replace(U32 key, T value) {
    Node* const found = find(nodes_, key);
    if (found == nullptr) return false;
    std::swap(found->value, value);
    noteNewest();
    return true;
  }

  // Removes the oldest node and returns its value; null when empty.
  T deq() {
    Iterator oldest = iterator();
    return oldest ? del(oldest) : T();
  }

  // Removes the node under a key and returns its value; null when there is none.
  T del(U32 key) {
    Iterator at = iterator();
    while (at && at.key() != key) ++at;
    return at ? del(at) : T();
  }

  // Removes the node at an iterator, which moves on to the next, and returns its value.
  T del(Iterator& at) {
    bool const oldest = at.at_ == nodes_.begin();
    Nodes removed;
    removed.splice(removed.begin(), nodes_, at.at_++);
    ++modificationCount_;
    noteNewest();
    if (oldest) headRemoved();
    return std::move(removed.front().value);
  }

  // Removes every node, one after the other.
  void delAll() {
    while (!empty()) deq();
  }

  // Sets the two keys (for restoring) and touches no node.
  void keysIs(U32 headKey, U32 nextKey) {
    headKey_ = headKey;
    nextKey_ = nextKey;
  }

 private:
  U32 chosenKey() const {
    return !empty() && nodes_.back().key >= nextKey_ ? nodes_.back().key + 1 : nextKey_;
  }

  U32 appendKey() const {
    U32 const key = chosenKey();
    if (!empty() && key + 1 == headKey_) throw RangeException("linkqueue index space full");
    return key;
  }

  template <class List>
  static auto find(List& nodes, U32 key) -> decltype(&nodes.front()) {
    if (nodes.empty()) return nullptr;
    if (nodes.front().key != key && nodes.back().key == key) return &nodes.back();
    auto const found =
        std::find_if(nodes.begin(), nodes.end(), [key](Node const& node) { return node.key == key; });
    return found != nodes.end() ? &*found : nullptr;
  }

  // Takes the one node of a list in.
  void link(typename Nodes::const_iterator before, Nodes& node) noexcept {
    U32 const key = node.front().key;
    if (before == nodes_.begin()) headKey_ = key;
    if (before == nodes_.end()) nextKeyPast(key);
    nodes_.splice(before, node);
    ++modificationCount_;
    noteNewest();
  }

  void noteNewest() noexcept { newest_ = empty() ? T() : nodes_.back().value; }

  void nextKeyPast(U32 key) noexcept { nextKey_ = std::max(nextKey_, key + 1); }

  void headRemoved() noexcept {
    headKey_ = empty() ? nextKey_ : nodes_.front().key;
    if (!empty()) nextKeyPast(nodes_.back().key);
  }

  T newest_;  // first: it is read for each record that is appended
  Nodes nodes_;
  U32 headKey_ = 0;
  U32 nextKey_ = 0;
  U32 modificationCount_ = 0;
};

}  // namespace Kes
