// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "agent/burst/QueueReading.h"
#include "agent/kernel/QdiscSample.h"

namespace Agent {

// What a discipline with children keeps, sends and drops itself: its own counters less its children's. They
// are read one after the other while packets pass, so the differences are out by what happened in between.
// The readings here never claim more than the discipline has surely kept or lost itself:
//
// - Each child is compared with a reading of its parent that was made before the child's, be it that of the
//   look before. What was sent or dropped in between then makes the share look smaller, never larger, and the
//   largest share sent so far tells how much of the difference in backlog is packets that a child has sent
//   meanwhile. Nor is a backlog claimed that parent and children do not show in the same look.
// - What the counters differ by from the past (children that are gone, packets that are accounted to nobody)
//   counts for nothing: drops are counted from a look on at which no child has lost anything, a backlog from
//   the lowest one that was seen, and its growth only when 50 looks have shown how far the differences go. So
//   a queue that is full when the agent first sees it shows once it has drained.
// - What leaves the backlog counts as sent, so an uncertain backlog does not show as losses.
class InnerShare {
 public:
  // Positions are those in the samples of a dump.
  InnerShare(std::size_t position, std::span<std::size_t const> children);

  // The same discipline in another dump. Where its children are not the same, their past counts for nothing.
  void positionsAre(std::size_t position, std::span<std::size_t const> children, bool sameChildren);

  QueueReading read(std::span<QdiscSample const> samples);

  std::size_t children() const { return children_.size(); }
  std::size_t position(std::size_t child) const { return children_[child].position; }

 private:
  struct Child {
    std::size_t position;
    QueueReading last;
  };

  void conclude(Kes::U64 stamp, Kes::U64 passed, Kes::U32 backlog);

  std::size_t position_;
  std::vector<Child> children_;
  bool childFirst_ = false;    // some child stands before its parent
  QueueReading parentBefore_;  // of the look before
  bool begun_ = false;
  int settling_ = 0;       // looks to come before a backlog may grow
  bool lossless_ = false;  // there was a look without losses of children
  // The differences so far: most bytes, most drops, least backlog.
  Kes::U64 sent_ = 0;
  Kes::U32 drops_ = 0;
  Kes::S64 idle_ = 0;
  Kes::U64 advance_ = 0;  // bytes told as sent before they were
  QueueReading reading_;
};

}  // namespace Agent
