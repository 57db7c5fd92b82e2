// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/SampledQueue.h"

#include <algorithm>
#include <utility>

#include "agent/base/Saturated.h"

namespace Agent {

using Kes::U32;
using Kes::U64;

namespace {

// Packets that a reading can miss: it is not taken in one piece, and what a driver hands back waits again,
// but has been counted as sent.
constexpr U64 packetsUnderWay = 16;

U64 less(U64 value, U64 subtracted) { return value - std::min(value, subtracted); }

}  // namespace

SampledQueue::SampledQueue(QueueAddress address, QueueTraits const& traits, QueueReading const& first)
    : address_(std::move(address)), traits_(traits), last_(first) {}

QueueProgress SampledQueue::handleReading(QueueReading const& reading, Pace const& pace,
                                          CongestionSink& sink) {
  CongestionDetector::Limits const limits = {traits_.startThreshold, pace};
  if (startedAgain(last_, reading)) return restart(reading, limits, sink);
  QueueProgress const progress = progressTo(reading);
  last_ = reading;
  detect(progress, limits, sink);
  return progress;
}

void SampledQueue::lastReadingIs(QueueReading const& reading) {
  last_ = reading;
  missing_ = 0;
}

void SampledQueue::detect(QueueProgress const& progress, CongestionDetector::Limits const& limits,
                          CongestionSink& sink) {
  detector_.handleProgress(progress, limits,
                           [&](CongestionUpdate const& update) { sink.handleUpdate(address_, update); });
}

QueueProgress SampledQueue::restart(QueueReading const& reading, CongestionDetector::Limits const& limits,
                                    CongestionSink& sink) {
  QueueProgress progress;
  progress.stamp = reading.stamp;
  progress.elapsed = reading.stamp - last_.stamp;
  progress.backlogBefore = last_.backlog;
  progress.backlog = reading.backlog;
  progress.lost = true;
  U32 const lost = packetsOf(last_.backlog);
  if (finish(lost, sink)) progress.drops = lost;
  progress.drops = saturated(U64{progress.drops} + reading.drops);
  detector_ = {};
  missing_ = 0;
  last_ = reading;
  detect({.stamp = reading.stamp,
          .backlogBefore = reading.backlog,
          .backlog = reading.backlog,
          .drops = reading.drops},
         limits, sink);
  return progress;
}

QueueProgress SampledQueue::progressTo(QueueReading const& reading) {
  QueueProgress progress;
  progress.stamp = reading.stamp;
  progress.elapsed = reading.stamp - last_.stamp;
  progress.backlogBefore = last_.backlog;
  progress.backlog = reading.backlog;
  progress.sent = reading.bytes - last_.bytes;
  progress.drops = reading.drops - last_.drops;
  U64 const fromInside = traits_.dropsFromInside ? U64{progress.drops} * traits_.largestPacketBytes : 0;
  progress.left = progress.sent + fromInside;
  // Where only the tail drops, drops leave nothing uncertain: the backlog must add up to the frame.
  U64 const slack = std::max<U64>(packetsUnderWay * traits_.packetBytes,
                                  traits_.dropsFromInside ? traits_.largestPacketBytes : 0);
  U64 const lost = less(missing_, progress.left);
  if (lost > slack) progress.lateDrops = packetsOf(lost);
  missing_ = less(last_.backlog, progress.left + reading.backlog);
  progress.lost = missing_ > slack;
  return progress;
}

U32 SampledQueue::packetsOf(U64 bytes) const {
  U64 const packet = std::max<U32>(traits_.packetBytes, 1);
  return saturated((bytes + packet - 1) / packet);
}

U32 SampledQueue::handleGone(CongestionSink& sink) {
  U32 const lost = packetsOf(last_.backlog);
  bool const told = finish(lost, sink);
  sink.handleGone(address_);
  return told ? lost : 0;
}

void SampledQueue::handleUnwatched(CongestionSink& sink) {
  finish(0, sink);
  sink.handleGone(address_);
}

LatencyMeter const& SampledQueue::measured(U32 number, QueueProgress const& progress) {
  if (number != measurement_) meter_.aim(progress.stamp - progress.elapsed, progress.backlogBefore);
  measurement_ = number;
  meter_.handleProgress(progress, detector_.rate());
  return meter_;
}

// Whether a burst was open.
bool SampledQueue::finish(U32 lostPackets, CongestionSink& sink) {
  auto const update = detector_.handleVanished(lostPackets);
  if (update) sink.handleUpdate(address_, *update);
  return update.has_value();
}

}  // namespace Agent
