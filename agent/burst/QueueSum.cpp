#include "agent/burst/QueueSum.h"

#include <algorithm>

#include "agent/base/Saturated.h"

namespace Agent {

namespace {

using Kes::U32;

void add(U32& sum, Kes::U64 value) { sum = saturated(sum + value); }

}  // namespace

void QueueSum::add(SampledQueue& queue, QueueProgress const& progress) {
  U32 const startThreshold = queue.traits().startThreshold;
  look_.stamp = progress.stamp;
  Agent::add(look_.backlogBefore, progress.backlogBefore);
  Agent::add(look_.backlog, progress.backlog);
  if (progress.backlogBefore > startThreshold || progress.backlog > startThreshold)
    look_.sent += progress.sent;
  look_.left += progress.left;
  Agent::add(look_.drops, progress.drops);
  Agent::add(look_.lateDrops, progress.lateDrops);
  look_.lost |= progress.lost;
  startThreshold_ = std::max(startThreshold_, startThreshold);
  if (!measuring_) return;
  LatencyMeter const& share = queue.measured(measurement_, progress);
  waiting_ |= share.pending();
  longest_ = std::max(longest_, share.latency());
}

void QueueSum::addUnread(SampledQueue const& queue) {
  U32 const backlog = queue.lastReading().backlog;
  Agent::add(look_.backlogBefore, backlog);
  Agent::add(look_.backlog, backlog);
  startThreshold_ = std::max(startThreshold_, queue.traits().startThreshold);
  waiting_ |= backlog != 0;
}

void QueueSum::finishLook(Kes::U64 interval, CongestionSink& sink) {
  if (look_.stamp == 0) {
    look_ = {};
    startThreshold_ = 0;
    waiting_ = false;
    return;
  }
  Agent::add(look_.drops, lost_);
  look_.lost |= lost_ != 0;
  lost_ = 0;
  if (last_) {
    look_.elapsed = look_.stamp - last_->stamp;
    // What is not held any more by those that are here has gone with its queue.
    look_.lost |=
        last_->backlog > look_.backlogBefore && last_->backlog - look_.backlogBefore > startThreshold_;
    look_.backlogBefore = last_->backlog;
  }
  bool const measured = measuring_ && !waiting_;
  if (measured) measuring_ = false;
  bool told = false;
  detector_.handleProgress(look_, {startThreshold_, interval}, [&](CongestionUpdate const& update) {
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
  last_ = look_;
  look_ = {};
  startThreshold_ = 0;
  waiting_ = false;
}

void QueueSum::tell(CongestionUpdate update, CongestionSink& sink) {
  if (update.begins || update.qLen > told_.qLen) {
    measuring_ = true;
    ++measurement_;
    longest_ = 0;
  }
  update.latency = measuring_ ? 0 : longest_;
  told_ = update;
  sink.handleTotal(update);
}

}  // namespace Agent
