// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/QueueSum.h"

#include <algorithm>
#include <utility>

#include "agent/base/Saturated.h"

namespace Agent {

namespace {

using Kes::U32;

void add(U32& sum, Kes::U64 value) { sum = saturated(sum + value); }

}  // namespace

void QueueSum::add(SampledQueue& queue, QueueProgress const& progress) {
  U32 const startThreshold = queue.traits().startThreshold;
  QueueProgress& sum = look_.progress;
  look_.present = true;
  look_.startThreshold = std::max(look_.startThreshold, startThreshold);
  sum.stamp = progress.stamp;
  Agent::add(sum.backlogBefore, progress.backlogBefore);
  Agent::add(sum.backlog, progress.backlog);
  if (progress.backlogBefore > startThreshold || progress.backlog > startThreshold) sum.sent += progress.sent;
  sum.left += progress.left;
  Agent::add(sum.drops, progress.drops);
  Agent::add(sum.lateDrops, progress.lateDrops);
  sum.lost |= progress.lost;
  if (!measuring_) return;
  LatencyMeter const& share = queue.measured(measurement_, progress);
  look_.waiting |= share.pending();
  longest_ = std::max(longest_, share.latency());
}

void QueueSum::addUnread(SampledQueue const& queue) {
  U32 const backlog = queue.lastReading().backlog;
  look_.present = true;
  look_.startThreshold = std::max(look_.startThreshold, queue.traits().startThreshold);
  Agent::add(look_.progress.backlogBefore, backlog);
  Agent::add(look_.progress.backlog, backlog);
  look_.waiting |= backlog != 0;
}

void QueueSum::finishLook(Pace const& pace, CongestionSink& sink) {
  Look look = std::exchange(look_, {});
  QueueProgress& sum = look.progress;
  if (!look.present) return finish(pace, sink);
  if (sum.stamp == 0) return;
  Agent::add(sum.drops, lost_);
  sum.lost |= lost_ != 0;
  lost_ = 0;
  if (last_) {
    sum.elapsed = sum.stamp - last_->stamp;
    // What is not held any more by those that are here has gone with its queue.
    sum.lost |=
        last_->backlog > sum.backlogBefore && last_->backlog - sum.backlogBefore > look.startThreshold;
    sum.backlogBefore = last_->backlog;
  }
  bool const measured = measuring_ && !look.waiting;
  if (measured) measuring_ = false;
  bool told = false;
  detector_.handleProgress(sum, {look.startThreshold, pace}, [&](CongestionUpdate const& update) {
    // The detector measures what all queues sent together.
    if (update.late && update.drops == 0) return;
    tell(update, sink);
    told = true;
  });
  if (measured && !told && longest_ != 0) {
    CongestionUpdate late = told_;
    late.begins = late.ends = false;
    late.late = true;
    late.drops = 0;
    tell(late, sink);
  }
  last_ = sum;
}

// No queue is left: whatever was congested is over.
void QueueSum::finish(Pace const& pace, CongestionSink& sink) {
  U32 const lost = saturated(std::exchange(lost_, 0));
  if (!last_) return;
  QueueProgress const end = {
      .stamp = last_->stamp, .backlogBefore = last_->backlog, .drops = lost, .lost = true};
  detector_.handleProgress(end, {0, pace}, [&](CongestionUpdate const& update) { tell(update, sink); });
  detector_ = {};
  measuring_ = false;
  last_.reset();
}

void QueueSum::tell(CongestionUpdate update, CongestionSink& sink) {
  if (update.begins || update.qLen > told_.qLen) {
    measuring_ = true;
    ++measurement_;
    longest_ = 0;
  }
  update.latency = measuring_ ? 0 : longest_;
  told_ = update;
  told_.flows = nullptr;  // borrowed for this call only
  sink.handleTotal(update);
}

}  // namespace Agent
