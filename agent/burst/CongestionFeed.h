// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Kes/HashMap.h"
#include "Vorn/Config.h"
#include "Vorn/CongestionData.h"
#include "Vorn/HardwareStatus.h"
#include "Vorn/VornUtils.h"
#include "agent/base/AgentClock.h"
#include "agent/burst/BurstLedger.h"
#include "agent/burst/CongestionSink.h"
#include "agent/burst/InterfaceLogs.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

// Hands a source's updates over to the recorder, and keeps up what the recorder leaves to its host: records
// of bursts that go on, the metadata of queues, the statistics of the global buffer.
//
// A burst is one record, which stands in its log from the first update on. Later updates change that record,
// in whichever chunk it stands by now, and allocate nothing. If the pool has taken its chunk away meanwhile,
// the burst goes on in a new record.
//
// Bursts get wall time by the clock's offset at their beginning, so a step of the wall clock in a burst moves
// nothing in it.
//
// The recorder judges a record against the thresholds when it is appended, and only then. The crossings of
// bursts that grow are judged here, by the same rule: one message an interface in the log interval. A
// crossing of the high threshold may also follow a message that was of the low one.
class CongestionFeed final : public CongestionSink {
 public:
  // Makes the recorder's global log, if it has none. What a recorder that was read back knows already stays,
  // but no congestion of then goes on: whether it did, nobody has seen. Its queues and interfaces are gone
  // ones until they are told to be present. The ledger outlives the feed, and keeps to what the recorder has
  // statistics of; what it had closed before is not told again.
  CongestionFeed(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                 Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::PtrConst clock, BurstLedger& ledger);
  ~CongestionFeed() override;

  void handlePresent(QueueAddress const& queue) override;
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override;
  // A congestion that was open is over. The queue's statistics stay until 256 other queues have gone after
  // it.
  void handleGone(QueueAddress const& queue) override;
  void handleTotal(CongestionUpdate const& update) override;

  // Is told of each interface when the first of its queues is watched, before anything is recorded of it, and
  // when the last one is watched no more.
  using InterfaceHandler = std::function<void(Pylo::IntfId const& intfId, bool here)>;
  void interfaceHandlerIs(InterfaceHandler handler) { interfaceHandler_ = std::move(handler); }

  // Is told of each burst of a single queue once nothing more will be told of it (BurstLedger.h), with its
  // record, which the log may have lost by then. It must not hold the record for longer than the call, nor
  // change anything here.
  using ClosedHandler = std::function<void(QueueAddress const& queue, LinuxEntry::Ptr const& record)>;
  void closedHandlerIs(ClosedHandler handler) { closedHandler_ = std::move(handler); }

  // Whether the recorder's pool grows with the interfaces that have been congested: to two chunks for each.
  // So even if all are busy each keeps a chunk and more. It never shrinks. A pool that does not grow and is
  // smaller is noted in the journal, once for each size that it has.
  void poolGrowsIs(bool grows) { poolGrows_ = grows; }
  bool poolGrows() const { return poolGrows_; }
  // What is wrong with the pool's size, for people; empty: nothing.
  std::string poolFault() const;

  // Bursts of single queues seen so far.
  Kes::U64 bursts() const { return bursts_; }
  // How often something was handed over that may have changed the recorder.
  Kes::U64 changes() const { return changes_; }

 private:
  enum class Level { none, low, high };

  // The latest burst of a queue, or of the sum.
  struct Burst {
    LinuxEntry::Ptr record;        // the log holds it as well, until its chunk is taken away
    Kes::S64 offset = 0;           // wall time less monotonic time, microseconds
    Vorn::Microseconds beginning;  // wall time
    Level judged = Level::none;    // the highest threshold that it was judged at
  };

  // What the messages of a log are judged by. `intfId` is empty for the global log.
  struct Rule {
    Pylo::IntfId const& intfId;
    Vorn::Thresholds thresholds;
    Kes::Seconds interval;

    Level levelOf(LinuxEntry const& record) const;
  };

  template <class Log, class Append>
  void record(Burst& burst, QueueAddress const& queue, CongestionUpdate const& update, Log& log,
              Rule const& rule, Append append);
  template <class Log>
  void judge(Burst& burst, Kes::U64 moment, Log& log, Rule const& rule);
  std::size_t wantedPool() const;
  void watchPool();
  void countMerge();
  void noteHigh(Pylo::IntfId const& intfId, Kes::U64 moment);
  void keepMetaData(QueueAddress const& queue, Burst const& burst, CongestionUpdate const& update,
                    bool counts);

  Vorn::CongestionData::Ptr const recorder_;
  Vorn::Config::PtrConst const config_;
  Vorn::Hardware::Status::PtrConst const hwStatus_;
  AgentClock::PtrConst const clock_;
  BurstLedger& ledger_;
  Kes::HashMap<QueueId, Burst, QueueIdHash> latest_;
  Burst latestOfAll_;
  // When, by the monotonic clock, a message of the high threshold was raised, back to a log interval ago. The
  // global log has the empty identifier.
  Kes::HashMap<Pylo::IntfId, Kes::U64, Pylo::IntfIdHash> lastHigh_;
  InterfaceLogs interfaces_;
  GoneList<QueueId> goneQueues_;  // that have statistics
  Kes::U64 bursts_ = 0;
  Kes::U64 changes_ = 0;
  InterfaceHandler interfaceHandler_;
  ClosedHandler closedHandler_;
  bool poolGrows_ = false;
  Kes::U32 notedPool_ = 0;  // the last size that was noted as too small
};

}  // namespace Agent
