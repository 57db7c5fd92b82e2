#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/Config.h"
#include "Vorn/CongestionData.h"
#include "Vorn/HardwareStatus.h"
#include "agent/base/AgentClock.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/burst/QueueSum.h"
#include "agent/burst/SampledQueue.h"
#include "agent/burst/Source.h"
#include "agent/kernel/InterfaceTable.h"
#include "agent/kernel/QdiscDump.h"

namespace Agent {

struct QdiscSourceOptions {
  // Time between two looks at the queues. Where one look costs more than a twentieth of it, they come less
  // often.
  std::chrono::microseconds interval{1000};
  // A queue is congested above this many bytes, and never below two full frames.
  std::uint32_t startThresholdBytes{0};
  // Names to watch, shell patterns among them; empty: all.
  std::vector<std::string> interfaces;
};

// Every egress queue of this network namespace as a source of records: a timer, one dump a tick, and a
// detector for each queue and one for the sum of all. It looks only while the recorder is enabled.
//
// Queues come and go. One that is missing is remembered for a second, since a dump may skip a queue while
// others are being changed. The logs of interfaces that are gone stay readable until 256 others have gone
// after them.
class QdiscSource final : public Source {
 public:
  QdiscSource(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
              Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::Ptr clock, QdiscSourceOptions options);
  ~QdiscSource() override;

  void start(EventLoop& loop) override;
  std::string status() const override;

 private:
  struct Queue {
    QdiscId id;
    std::size_t position;  // in a dump of the present order
    SampledQueue sampled;
  };

  void handleTimer();
  bool poll();
  void handleSamples();
  bool sameQueues() const;
  void learnQueues();
  void learnQueue(std::size_t position, Interface const& interface, std::vector<Queue>& before);
  std::optional<Interface> watchedInterface(Kes::U32 ifindex);
  void forgetMissing(Kes::U64 now);
  void forgetAll();
  bool present(Pylo::IntfId const& intfId) const;
  void handleInterfaceGone(Pylo::IntfId const& intfId);
  void handleCost(double cost);
  void timerIs(Kes::U64 interval);

  Vorn::CongestionData::Ptr const recorder_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  QdiscSourceOptions const options_;
  CongestionFeed feed_;
  InterfaceTable interfaces_;
  QdiscDump dump_;
  FileDescriptor timer_;
  EventLoop* loop_ = nullptr;

  std::vector<QdiscSample> samples_;  // of this tick
  std::vector<QdiscId> known_;        // what the dump showed when the queues were learned
  std::vector<Queue> queues_;
  std::vector<Queue> missing_;
  std::deque<Pylo::IntfId> goneInterfaces_;  // that have a log, gone longest ago first
  bool interfacesChanged_ = false;

  QueueSum sum_;

  Kes::U64 timerInterval_ = 0;  // microseconds, as the timer is set
  Kes::U64 lastTick_ = 0;       // 0: none since the source was switched on
  double meanInterval_ = 0;     // achieved, microseconds
  double longestInterval_ = 0;
  Kes::U64 lateTicks_ = 0;
  double meanCost_ = 0;  // processor time of a tick, microseconds
  Kes::U64 interruptedDumps_ = 0;
  Kes::U64 failedDumps_ = 0;
};

}  // namespace Agent
