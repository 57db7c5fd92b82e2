// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/InnerShare.h"

#include <algorithm>
#include <limits>

namespace Agent {

using Kes::S32;
using Kes::S64;
using Kes::U32;
using Kes::U64;

namespace {

constexpr int settlingLooks = 50;

}  // namespace

InnerShare::InnerShare(std::size_t position, std::span<std::size_t const> children) {
  positionsAre(position, children, false);
}

void InnerShare::positionsAre(std::size_t position, std::span<std::size_t const> children,
                              bool sameChildren) {
  position_ = position;
  children_.resize(children.size());
  for (std::size_t i = 0; i < children.size(); ++i) children_[i].position = children[i];
  childFirst_ = std::any_of(children.begin(), children.end(), [=](std::size_t i) { return i < position; });
  if (!sameChildren) begun_ = false;
}

QueueReading InnerShare::read(std::span<QdiscSample const> samples) {
  QueueReading const present = readingOf(samples[position_]);
  if (begun_ && present.stamp == parentBefore_.stamp) return reading_;
  bool again = !begun_ || startedAgain(parentBefore_, present);
  QueueReading const parent = childFirst_ && !again ? parentBefore_ : present;
  parentBefore_ = present;
  U64 sent = parent.bytes;
  U32 drops = parent.drops;
  S64 backlog = parent.backlog;
  S64 backlogNow = present.backlog;
  bool lossless = true;
  for (Child& child : children_) {
    QueueReading const reading = readingOf(samples[child.position]);
    again = again || startedAgain(child.last, reading);
    lossless = lossless && reading.drops == child.last.drops;
    sent -= reading.bytes;
    drops -= reading.drops;
    backlog -= reading.backlog;
    backlogNow -= reading.backlog;
    child.last = reading;
  }
  U64 passed = 0;
  if (again) {
    begun_ = true;
    lossless_ = false;
    settling_ = settlingLooks;
    sent_ = sent;
    idle_ = std::max<S64>(0, backlog - reading_.backlog);
  } else {
    S64 const progress = static_cast<S64>(sent - sent_);
    if (progress > 0) {
      passed = static_cast<U64>(progress);
      sent_ = sent;
    } else {
      backlog += progress;
    }
    backlog = std::min(backlog, backlogNow);
    idle_ = std::min(idle_, std::max<S64>(0, backlog));
  }
  S32 const lost = static_cast<S32>(drops - drops_);
  if (lossless_ && lost > 0) reading_.drops += static_cast<U32>(lost);
  if (!lossless_ || lost > 0) drops_ = drops;
  lossless_ = lossless_ || (lossless && !again);
  S64 const most = settling_ > 0 ? reading_.backlog : std::numeric_limits<U32>::max();
  if (settling_ > 0) --settling_;
  conclude(parent.stamp, passed, static_cast<U32>(std::clamp<S64>(backlog - idle_, 0, most)));
  return reading_;
}

// Where the backlog seems to have shrunk by more than what was sent, the rest is taken for sent in advance.
void InnerShare::conclude(U64 stamp, U64 passed, U32 backlog) {
  U64 const claimed = std::min(passed, advance_);
  advance_ -= claimed;
  passed -= claimed;
  U64 const explained = passed + backlog;
  if (explained < reading_.backlog) {
    advance_ += reading_.backlog - explained;
    passed += reading_.backlog - explained;
  }
  reading_.stamp = stamp;
  reading_.bytes += passed;
  reading_.backlog = backlog;
}

}  // namespace Agent
