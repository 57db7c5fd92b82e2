#include "agent/burst/QueueSum.h"

#include <algorithm>
#include <limits>

namespace Agent {

void QueueSum::add(SampledQueue const& queue, CongestionDetector::Progress const& progress) {
  QueueReading const& reading = queue.lastReading();
  sum_.bytes += progress.sent;
  sum_.drops += progress.drops;
  sum_.stamp = reading.stamp;
  sum_.backlog += std::min(reading.backlog, std::numeric_limits<Kes::U32>::max() - sum_.backlog);
  startThreshold_ = std::max(startThreshold_, queue.traits().startThreshold);
  looked_ = true;
}

void QueueSum::finishLook(Kes::U64 interval, CongestionSink& sink) {
  if (!looked_) return;
  if (!detector_) detector_.emplace(sum_);
  CongestionDetector::Limits const limits = {startThreshold_, interval};
  if (auto const quiet = detector_->missedQuiet(sum_, limits)) {
    if (auto const update = detector_->handleReading(*quiet, limits)) sink.handleTotal(*update);
  }
  if (auto const update = detector_->handleReading(sum_, limits)) sink.handleTotal(*update);
  sum_.backlog = 0;
  startThreshold_ = 0;
  looked_ = false;
}

}  // namespace Agent
