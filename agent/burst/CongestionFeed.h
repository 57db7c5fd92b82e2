#pragma once

#include <deque>
#include <utility>

#include "Vorn/Config.h"
#include "Vorn/CongestionData.h"
#include "Vorn/HardwareStatus.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

// Hands a source's updates over to the recorder, and keeps up what the recorder leaves to its host: the
// drops, latency and peak bound of merged records, the metadata of queues, the statistics of the global
// buffer.
//
// A burst stands in its log from its first update on. Merging an update allocates nothing.
class CongestionFeed {
 public:
  struct QueueAddress {
    Pylo::IntfId intfId;
    QueueKey key;
    Kes::U32 handle;
  };

  // Makes the recorder's global log.
  CongestionFeed(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                 Vorn::Hardware::Status::PtrConst hwStatus);

  // Takes `reading` of one queue, given the queue's detector.
  void handleReading(QueueAddress const& queue, CongestionDetector& detector, QueueReading const& reading,
                     CongestionDetector::Limits const& limits);
  // The same for the sum over all queues.
  void handleGlobalReading(CongestionDetector& detector, QueueReading const& reading,
                           CongestionDetector::Limits const& limits);
  // The queue is no longer watched: a congestion that was open is over. Its statistics stay until 256 other
  // queues have gone after it.
  void handleGone(QueueAddress const& queue);
  // The queue is watched from now on.
  void handlePresent(QueueAddress const& queue);

  // Bursts of single queues seen so far.
  Kes::U64 bursts() const { return bursts_; }

 private:
  void log(QueueAddress const& queue, CongestionUpdate const& update);
  void keepMetaData(QueueAddress const& queue, CongestionUpdate const& update);
  void logGlobal(CongestionUpdate const& update);

  Vorn::CongestionData::Ptr const recorder_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  LinuxEntry::Ptr spare_;         // carries updates to the recorder until one is kept there
  LinuxEntry::Ptr globalRecord_;  // the newest of the global log
  std::deque<std::pair<Pylo::IntfId, QueueKey>> goneQueues_;  // that have statistics, gone longest ago first
  Kes::U64 bursts_ = 0;
};

}  // namespace Agent
