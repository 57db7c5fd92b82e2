// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/burst/BurstSum.h"
#include "agent/burst/Source.h"
#include "agent/kernel/QdiscSource.h"
#include "agent/probe/ControlGroups.h"
#include "agent/probe/Means.h"
#include "agent/probe/Probe.h"

namespace Agent {

// The queues of this network namespace as a source, by the best means that can be had.
//
// A probe in the kernel sees every packet of the queues that stand at devices. It wakes the agent when a
// burst begins; while one is open a timer of ten milliseconds keeps its record up to date and finds its end.
// Nothing runs while no queue is congested. Looks at counters (QdiscSource) go on for what the probe cannot
// tell apart, the queues of a discipline with classes, and only while that is congested.
//
// Where there is no probe, looks are all there is.
class QueueSource final : public Source, private CongestionSink {
 public:
  // `sink` outlives the source. The probe is in the kernel from here on. Throws ProbeRefused if the means are
  // exact and it cannot be had.
  QueueSource(CongestionSink& sink, Vorn::Config::PtrConst config, Vorn::Hardware::Status::PtrConst hwStatus,
              QdiscSourceOptions options, Means means, Probe::Options const& probeOptions);
  ~QueueSource() override;

  // The journal says what the queues are seen by, and why.
  void start(EventLoop& loop) override;
  void optionsAre(QdiscSourceOptions const& options);
  SourceStatus status() const override;

 private:
  // A queue that the probe has told of.
  struct Watched {
    QdiscId id{};
    QueueRoster::Standing standing = QueueRoster::Standing::unknown;
    std::optional<QueueAddress> address{};  // under which its bursts are told of, if they are
    // Of a discipline with classes: its own address, and whether a look has found one of its queues
    // congested.
    std::optional<QueueAddress> whole{};
    bool foundInside = false;
    ProbedBurst burst{};  // the latest, as last told of,
    bool open = false;    // whether its end has not been told yet,
    bool settled = true;  // and whether nothing more is to be expected of it
    bool gone = false;
  };

  void handlePresent(QueueAddress const& queue) override;
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override;
  void handleGone(QueueAddress const& queue) override;
  void handleTotal(CongestionUpdate const& update) override;

  CongestionSink& below();
  void handleNotices();
  void handleNotice(ProbeNotice const& notice);
  void handleTimer();
  void refresh(Kes::U64 number, Watched& watched, Kes::U64 now);
  void follow(Watched& watched, ProbedBurst const& burst, bool over);
  void tell(Watched& watched, ProbedBurst const& burst, CongestionUpdate update);
  void place(Watched& watched);
  void finish(Watched& watched, Kes::U64 moment);
  void sweep();
  void handleSwitch();
  void askAgain();
  void giveUp();
  BurstFlows const* flowsOf(ProbedBurst const& burst);
  Probe::Limits probeLimits() const;
  std::chrono::microseconds coalescing() const;
  void timerIs(bool runs);

  CongestionSink& sink_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  QdiscSourceOptions options_;
  Probe::Options const probeOptions_;
  BurstSum sum_;
  QdiscSource looks_;
  std::optional<Probe> probe_;
  std::string reason_;  // why there is none
  ControlGroups groups_;
  FileDescriptor timer_;
  EventLoop* loop_ = nullptr;
  std::unordered_map<Kes::U64, Watched> watched_;
  BurstFlows flows_;                 // of the burst that is told of
  Kes::U64 lostBursts_ = 0;          // of which nothing is known but that they were
  std::vector<Kes::U64> unsettled_;  // those whose bursts are looked after
  Kes::U64 lostNotices_ = 0;         // as last looked at
  bool losing_ = false;              // that was noted
  std::set<Kes::U32> unasked_;       // interfaces that the probe is to leave out
  Kes::U64 lookUntil_ = 0;  // nanoseconds: until when the queues of disciplines with classes are looked at
  bool on_ = true;          // the feature is
  bool taking_ = false;     // notices are being taken
  bool running_ = false;    // the timer is
  bool looking_ = false;    // looks are demanded
};

}  // namespace Agent
