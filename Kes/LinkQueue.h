#pragma once

#include <utility>

#include "Kes/Exception.h"
#include "Kes/Ptr.h"
#include "Kes/Types.h"

namespace Kes {

// Queue of values in singly linked nodes, each under a 32-bit key; keys rise from the oldest node (head) to
// the newest (tail). Keys are unsigned and wrap: the key space is circular, and appending stops with the
// range exception "linkqueue index space full" when the next key would run into the head's.
//
//   headKey()  the oldest node's key; while empty, the key that the next node is expected to get
//   nextKey()  the key for the next appended node
//
// Nodes are counted: whoever holds one keeps it and its value, whether or not it is still queued. Every
// insertion and removal raises modificationCount(). T is a Ptr; T() is null.
template <class T>
class LinkQueue {
 public:
  class Node final : public PtrInterface {
   public:
    using Ptr = Kes::Ptr<Node>;
    explicit Node(T value) : value_(std::move(value)) {}

    U32 key() const { return key_; }
    T const& value() const { return value_; }
    Ptr const& next() const { return next_; }

   private:
    friend class LinkQueue;
    U32 key_ = 0;
    T value_;
    Ptr next_;
    LinkQueue const* queue_ = nullptr;  // the queue that it is linked into
  };
  using NodePtr = typename Node::Ptr;

  // Position in a queue, from oldest to newest. Valid until the queue changes other than through it.
  class Iterator {
   public:
    explicit operator bool() const { return node_ != nullptr; }
    U32 key() const { return node_->key(); }
    T const& operator*() const { return node_->value(); }
    // The value of the neighbours: null at either end.
    T older() const { return previous_ != nullptr ? previous_->value() : T(); }
    T newer() const { return node_->next() ? node_->next()->value() : T(); }
    Iterator& operator++() {
      previous_ = node_;
      node_ = node_->next().get();
      return *this;
    }

   private:
    friend class LinkQueue;
    Node* previous_ = nullptr;
    Node* node_ = nullptr;
  };

  LinkQueue() = default;
  LinkQueue(LinkQueue const&) = delete;
  LinkQueue& operator=(LinkQueue const&) = delete;
  ~LinkQueue() { delAll(); }

  U32 headKey() const { return headKey_; }
  U32 nextKey() const { return nextKey_; }
  U32 count() const { return count_; }
  bool empty() const { return count_ == 0; }
  U32 modificationCount() const { return modificationCount_; }

  // Null while empty.
  Node const* head() const { return head_.get(); }
  Node const* tail() const { return tail_; }
  // The newest node's value, null while empty: kept here, so that finding it does not touch the node.
  T const& newest() const { return newest_; }

  Iterator iterator() const {
    Iterator result;
    result.node_ = head_.get();
    return result;
  }

  // The value under a key, or null. Looks at the head, then the tail, then walks from the head.
  T value(U32 key) const {
    Node const* const found = find(key);
    return found != nullptr ? found->value_ : T();
  }

  // The key that an append will use. RangeException "linkqueue index space full" if there is none.
  U32 appendKey() const {
    U32 const key = chosenKey();
    if (!empty() && key + 1 == headKey_) throw RangeException("linkqueue index space full");
    return key;
  }

  // Appends a new node.
  NodePtr enq(T value) {
    NodePtr node = makePtr<Node>(std::move(value));
    append(node, appendKey());
    return node;
  }

  // Appends a node made beforehand that is in no queue, under a key from appendKey(): cannot fail.
  void append(NodePtr const& node, U32 key) noexcept {
    nextKey_ = key;
    linkAfter(tail_, node, key);
  }

  // Inserts a node: at the tail when `key` is the one that an append would use, else in ascending order of
  // keys, before a node of the same key. A node that is queued here already stays where it is under its own
  // key, and is taken out first under another.
  void insert(NodePtr const& node, U32 key) {
    NodePtr const held = node;
    assertThat(held->queue_ == nullptr || held->queue_ == this, "Kes", "LinkQueue::insert", "node->queue");
    if (held->queue_ == this && held->key_ == key) return;
    if (key == chosenKey()) appendKey();  // throws before anything is unlinked
    if (held->queue_ == this) takeOut(held.get());
    if (key == chosenKey()) return append(held, key);
    Node* previous = nullptr;
    for (Node* at = head_.get(); at != nullptr && at->key_ < key; at = at->next_.get()) previous = at;
    linkAfter(previous, held, key);
  }

  // Replaces the value under a key; false when no node has it.
  bool replace(U32 key, T value) {
    Node* const found = find(key);
    if (found != nullptr) found->value_.swap(value);
    if (found == tail_) noteNewest();
    return found != nullptr;
  }

  // Removes the oldest node and returns its value; null when empty.
  T deq() {
    Iterator oldest = iterator();
    return oldest ? del(oldest) : T();
  }

  // Removes the node under a key and returns its value; null when there is none.
  T del(U32 key) {
    Iterator i = iterator();
    while (i && i.key() != key) ++i;
    return i ? del(i) : T();
  }

  // Removes the node at an iterator, which moves on to the next, and returns its value.
  T del(Iterator& at) { return unlink(at)->value_; }

  // Removes every node, one after the other: a queue of any length is destroyed without recursion.
  void delAll() {
    while (!empty()) deq();
  }

  // Sets the two keys (for restoring) and touches no node.
  void keysIs(U32 headKey, U32 nextKey) {
    headKey_ = headKey;
    nextKey_ = nextKey;
  }

 private:
  U32 chosenKey() const { return tail_ != nullptr && tail_->key_ >= nextKey_ ? tail_->key_ + 1 : nextKey_; }

  Node* find(U32 key) const {
    if (tail_ != nullptr && tail_->key_ == key && head_->key_ != key) return tail_;
    Node* at = head_.get();
    while (at != nullptr && at->key_ != key) at = at->next_.get();
    return at;
  }

  void takeOut(Node const* node) {
    Iterator i = iterator();
    while (i.node_ != node) ++i;
    unlink(i);
  }

  void noteNewest() noexcept { newest_ = tail_ != nullptr ? tail_->value_ : T(); }

  void nextKeyPast(U32 key) {
    if (key + 1 > nextKey_) nextKey_ = key + 1;
  }

  void linkAfter(Node* previous, NodePtr const& node, U32 key) noexcept {
    node->key_ = key;
    node->queue_ = this;
    NodePtr& link = previous != nullptr ? previous->next_ : head_;
    node->next_ = std::move(link);
    link = node;
    if (previous == nullptr) headKey_ = key;
    if (!node->next_) {
      tail_ = node.get();
      noteNewest();
      nextKeyPast(key);
    }
    ++count_;
    ++modificationCount_;
  }

  NodePtr unlink(Iterator& at) noexcept {
    NodePtr& link = at.previous_ != nullptr ? at.previous_->next_ : head_;
    NodePtr node = std::move(link);
    link = std::move(node->next_);
    node->queue_ = nullptr;
    at.node_ = link.get();
    if (tail_ == node.get()) {
      tail_ = at.previous_;
      noteNewest();
    }
    --count_;
    ++modificationCount_;
    if (at.previous_ == nullptr) headRemoved();
    return node;
  }

  void headRemoved() noexcept {
    if (!head_) {
      headKey_ = nextKey_;
      return;
    }
    headKey_ = head_->key_;
    nextKeyPast(tail_->key_);
  }

  NodePtr head_;
  Node* tail_ = nullptr;
  T newest_;
  U32 headKey_ = 0;
  U32 nextKey_ = 0;
  U32 count_ = 0;
  U32 modificationCount_ = 0;
};

}  // namespace Kes
