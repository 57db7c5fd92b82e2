#pragma once

#include <deque>
#include <utility>

#include "Kes/HashMap.h"
#include "Vorn/Config.h"
#include "Vorn/CongestionData.h"
#include "Vorn/HardwareStatus.h"
#include "Vorn/VornUtils.h"
#include "agent/base/AgentClock.h"
#include "agent/burst/CongestionSink.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

// Hands a source's updates over to the recorder, and keeps up what the recorder leaves to its host: the
// drops, latency and peak bound of merged records, the metadata of queues, the statistics of the global
// buffer.
//
// A burst stands in its log from its first update on. Merging an update allocates nothing.
class CongestionFeed final : public CongestionSink {
 public:
  // Makes the recorder's global log.
  CongestionFeed(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                 Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::PtrConst clock);

  void handlePresent(QueueAddress const& queue) override;
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override;
  // A congestion that was open is over. The queue's statistics stay until 256 other queues have gone after
  // it.
  void handleGone(QueueAddress const& queue) override;
  void handleTotal(CongestionUpdate const& update) override;

  // Bursts of single queues seen so far.
  Kes::U64 bursts() const { return bursts_; }

 private:
  struct QueueId {
    Pylo::IntfId intfId;
    QueueKey key;
    bool operator==(QueueId const&) const = default;
  };
  struct QueueIdHash {
    Kes::U64 operator()(QueueId const& id) const { return id.intfId.hash() ^ Kes::hashNumber(id.key); }
  };
  // How far a queue's present record has been judged.
  struct Judgement {
    int level = 0;  // highest threshold that it was judged at: 0 none, 1 low, 2 high
    Kes::U64 told = 0;
  };

  static bool judge(Judgement& judgement, CongestionUpdate& update, Vorn::Thresholds const& thresholds);
  void log(QueueAddress const& queue, CongestionUpdate const& update, bool alwaysLog);
  void keepMetaData(QueueAddress const& queue, CongestionUpdate const& update);
  void logGlobal(CongestionUpdate const& update);

  Vorn::CongestionData::Ptr const recorder_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  AgentClock::PtrConst const clock_;
  LinuxEntry::Ptr spare_;         // carries updates to the recorder until one is kept there
  LinuxEntry::Ptr globalRecord_;  // the newest of the global log
  Kes::HashMap<QueueId, Judgement, QueueIdHash> judged_;
  Judgement globalJudged_;
  std::deque<std::pair<Pylo::IntfId, QueueKey>> goneQueues_;  // that have statistics, gone longest ago first
  Kes::U64 bursts_ = 0;
};

}  // namespace Agent
