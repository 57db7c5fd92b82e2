#include "agent/burst/SampledQueue.h"

#include <utility>

namespace Agent {

SampledQueue::SampledQueue(QueueAddress address, QueueTraits const& traits, QueueReading const& first)
    : address_(std::move(address)), traits_(traits), detector_(first) {}

void SampledQueue::addressIs(QueueAddress address, CongestionSink& sink) {
  sink.handleGone(address_);
  address_ = std::move(address);
  sink.handlePresent(address_);
}

CongestionDetector::Progress SampledQueue::handleReading(QueueReading const& reading, Kes::U64 interval,
                                                         CongestionSink& sink) {
  CongestionDetector::Limits const limits = {traits_.startThreshold, interval};
  auto const progress = detector_.progressTo(reading);
  if (auto const quiet = detector_.missedQuiet(reading, limits)) {
    if (auto const update = detector_.handleReading(*quiet, limits)) sink.handleUpdate(address_, *update);
  }
  if (auto const update = detector_.handleReading(reading, limits)) sink.handleUpdate(address_, *update);
  return progress;
}

void SampledQueue::handleGone(CongestionSink& sink) { sink.handleGone(address_); }

}  // namespace Agent
