// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "agent/kernel/QdiscSample.h"

namespace Agent {

// Which of the dumped disciplines are queues in which packets wait, and how they hang together. Positions are
// those in `samples`.
//
// A leaf is a queue: the default or explicit queue of each htb class or mq slot, and a classless root. A
// shaper around a single inner queue (tbf and its fifo) is one queue, seen from outside: the outer counters
// contain the inner ones and those drops that never reach the inner queue. A discipline that spreads packets
// over others is a queue for what it keeps itself, such as the packets of no class of an htb: its own
// counters less its children's. One that only adds up its children (mq) keeps nothing.
class QueueTree {
 public:
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  struct Queue {
    std::size_t position;
    std::span<std::size_t const> children;  // none: the queue is the whole discipline
    bool dropsFromInside;                   // also packets that it has taken in already
    bool outermost;                         // stands at the device: packets enter here, and leave for it
  };

  // Nothing here is quadratic in the number of samples. What a torn dump shows a second time is left out.
  explicit QueueTree(std::span<QdiscSample const> samples);
  QueueTree(QueueTree const&) = delete;
  QueueTree& operator=(QueueTree const&) = delete;

  // In order of position.
  std::vector<Queue> const& queues() const { return queues_; }
  // The discipline around that at `position`, or none.
  std::size_t parent(std::size_t position) const { return parents_[position]; }

 private:
  void findRepeated();
  void findParents();
  void collectChildren();
  std::span<std::size_t const> children(std::size_t position) const;
  bool isOneQueue(std::size_t position, int depth = 8) const;
  bool isOutermost(std::size_t position) const;
  QdiscId const& innermost(std::size_t position) const;

  std::span<QdiscSample const> const samples_;
  std::vector<bool> repeated_;  // another stands in its place already
  std::vector<std::size_t> parents_;
  std::vector<std::size_t> children_;    // one parent's after the other's
  std::vector<std::size_t> firstChild_;  // of each in `children_`, and one behind the last
  std::vector<Queue> queues_;
};

}  // namespace Agent
