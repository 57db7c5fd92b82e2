// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/Config.h"
#include "Vorn/HardwareStatus.h"
#include "agent/base/FileDescriptor.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/QueueSum.h"
#include "agent/burst/Source.h"
#include "agent/kernel/ChangeWatch.h"
#include "agent/kernel/InterfaceTable.h"
#include "agent/kernel/QdiscDump.h"
#include "agent/kernel/QueueRoster.h"
#include "agent/kernel/WatchedInterfaces.h"

namespace Agent {

struct QdiscSourceOptions {
  // Time between two looks at the queues. Where one look costs more than a twentieth of it, they come less
  // often.
  std::chrono::microseconds interval{1000};
  // A queue is congested above this many bytes, and never below two full frames.
  std::uint32_t startThresholdBytes{0};
  // Names to watch, shell patterns among them; empty: all.
  std::vector<std::string> interfaces{};
  // The same of those to leave out, also where they are named to be watched.
  std::vector<std::string> excluded{};
  // Congestion that follows after no more than this is the same burst; empty: three looks.
  std::optional<std::chrono::microseconds> coalescing{};
};

// Every egress queue of this network namespace as a source of records: a timer, one dump a tick, and the
// roster of queues that reads it. It looks only while `config` and `hwStatus` have the feature on.
//
// Queues come and go. A dump during which the kernel told of changes is torn: it may lack queues or show them
// twice. The known ones are read from it, and what is new is learned from the next whole one; where none is
// whole for a second, from a torn one after all.
//
// A dump that fails costs a look. The first of a row is noted in the journal, and so is the end of the row.
class QdiscSource final : public Source {
 public:
  // `sink` outlives the source.
  QdiscSource(CongestionSink& sink, Vorn::Config::PtrConst config, Vorn::Hardware::Status::PtrConst hwStatus,
              QdiscSourceOptions options);
  ~QdiscSource() override;

  void start(EventLoop& loop) override;

  // For another source, which sees the queues that stand at devices by itself: looks run only while they are
  // demanded, and those queues are learned but not read. No more, should that one fail.
  void onDemandIs(bool onDemand);
  // The other source has found an interface congested, whose queues have not been congested before `since`,
  // nor sent more than `sent` from then on (QueueRoster::quietUntil). The first look is at once.
  void demand(Kes::U32 ifindex, Kes::U64 since, Kes::U64 sent);
  // Nothing is congested any more.
  void demandEnds();
  // A look at once, which learns what is new.
  void learn() { look(); }
  // All queues are given up, until something is learned again.
  void forget() { forgetAll(); }
  // Is told when queues or interfaces have been learned.
  void learnedHandlerIs(std::function<void()> handler) { learnedHandler_ = std::move(handler); }
  // Null when it is not there or not asked for. Good until the next look.
  Interface const* interface(Kes::U32 ifindex) { return interfaces_.watched(ifindex); }
  QueueRoster const& roster() const { return roster_; }
  // The smallest frame of all interfaces that have queues, in bytes; 0 if there are none.
  Kes::U32 smallestFrame() const { return interfaces_.smallestFrame(); }
  // From the next look on. Queues that are watched before and after go on, with the bursts that are open.
  void optionsAre(QdiscSourceOptions options);
  SourceStatus status() const override;

 private:
  void handleTimer();
  void look();
  bool takeChanges();
  void handleFailure();
  void forgetAll();
  void handleInterval();
  void handleCost(double cost);
  Pace pace() const;
  Kes::U64 wantedInterval() const;
  void timerIs(Kes::U64 interval);
  void lookSoon();

  CongestionSink& sink_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  QdiscSourceOptions options_;
  InterfaceTable interfaceTable_;
  WatchedInterfaces interfaces_;
  QueueRoster roster_;
  QueueSum sum_;
  ChangeWatch changeWatch_;
  QdiscDump dump_;
  FileDescriptor timer_;
  EventLoop* loop_ = nullptr;

  std::vector<QdiscSample> samples_;  // of this tick
  KernelChanges changes_;             // that have just been taken
  bool interfacesChanged_ = false;    // or the options, since the queues were learned
  Kes::U64 learnable_ = 0;            // when a dump was last whole or learned from: microseconds, monotonic

  Kes::U64 timerInterval_ = 0;  // microseconds, as the timer is set
  Kes::U64 lastTick_ = 0;       // 0: none since the source was switched on
  double meanInterval_ = 0;     // achieved, microseconds
  double longestInterval_ = 0;
  Kes::U64 looks_ = 0;
  Kes::U64 lateTicks_ = 0;
  double meanCost_ = 0;  // processor time of a tick, microseconds
  Kes::U64 interruptedDumps_ = 0;
  Kes::U64 failedDumps_ = 0;
  bool failing_ = false;  // the last dump failed
  bool onDemand_ = false;
  bool demanded_ = false;
  bool soon_ = false;  // on demand: the timer is set for what is to be learned

  // Of interfaces that demand it, until the next look.
  struct Demand {
    Kes::U32 ifindex;
    Kes::U64 since;
    Kes::U64 sent;
  };
  std::vector<Demand> demands_;
  std::function<void()> learnedHandler_;
};

}  // namespace Agent
