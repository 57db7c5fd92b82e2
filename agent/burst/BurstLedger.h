// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "Kes/HashMap.h"
#include "agent/base/EventLoop.h"
#include "agent/record/CongestionUpdate.h"
#include "agent/record/LogOrder.h"
#include "agent/record/QueueName.h"
#include "agent/record/QueueTotals.h"

namespace Agent {

// Counts bursts, however short they are and however many: what those of each queue add up to, which are open,
// and which are closed. It keeps to what the records are made of; that a record is lost to the pool changes
// nothing here.
//
// A burst is closed when nothing more will be told of it: the queue's next burst begins, the queue is gone,
// or its end is a quarter of a second ago, or twice the coalescing time if that is longer. By then its
// latency and its last drops are mostly known. Should it go on after all, that counts in the sums, and
// nothing else.
class BurstLedger {
 public:
  struct Account {
    QueueAddress address;  // as last told
    QueueTotals totals;
    bool open = false;  // the latest burst is
    Kes::U32 peak = 0;  // of that one, bytes

   private:
    friend class BurstLedger;
    enum class Burst : char { none, running, closed };
    Burst burst = Burst::none;
    bool waits = false;         // stands in waiting_
    bool latencyKnown = false;  // and counted
    Kes::U32 latency = 0;
    Kes::U64 beginning = 0;
    Kes::U64 until = 0;
    Kes::U64 settled = 0;  // when it can be closed
  };
  // Each account once, in no order.
  using Accounts = Kes::HashMap<QueueId, Account, QueueIdHash>;

  BurstLedger() = default;
  ~BurstLedger();
  BurstLedger(BurstLedger const&) = delete;
  BurstLedger& operator=(BurstLedger const&) = delete;

  // From now on bursts are closed in time, by a timer that runs while one waits for it. `loop` outlives this.
  void start(EventLoop& loop);
  // Closes those whose time has come, by the monotonic clock in microseconds.
  void settle(Kes::U64 now);

  // Is told of each burst when it is closed. It must not change the ledger.
  using ClosedHandler = std::function<void(QueueAddress const&)>;
  void closedHandlerIs(ClosedHandler handler) { closed_ = std::move(handler); }

  // Closes the latest burst of a queue, if it is not yet.
  void close(QueueId const& queue);
  // An update that is recorded. One that is none of a burst told of before begins one. What began before is
  // to be closed first.
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update);
  // A record was appended, or has grown.
  void handleRecord(Pylo::IntfId const& intfId, Vorn::Entry const& record);
  // Closes the latest burst; what is told next is of another.
  void handleGone(QueueId const& queue);

  // What is to be forgotten of a queue, of an interface.
  void forget(QueueId const& queue) { accounts_.del(queue); }
  void forget(Pylo::IntfId const& intfId);

  Accounts const& accounts() const { return accounts_; }
  // What was read back. Nothing has been told of that queue yet.
  void accountIs(QueueAddress const& queue, QueueTotals const& totals);

  // Of all records of the interface, none that was appended before one of time T lasted beyond T + slack.
  Kes::U64 slack(Pylo::IntfId const& intfId) const;
  void orderIs(Pylo::IntfId const& intfId, LogOrder const& order) { orders_.put(intfId, order); }

 private:
  void close(Account& account);
  static void addLatency(Account& account);
  void timerIs(Kes::U64 moment);

  Accounts accounts_;
  Kes::HashMap<Pylo::IntfId, LogOrder, Pylo::IntfIdHash> orders_;
  std::vector<QueueId> waiting_;  // whose latest burst has ended
  ClosedHandler closed_;
  EventLoop* loop_ = nullptr;
  FileDescriptor timer_;
  Kes::U64 timerAt_ = 0;  // 0: it does not run
};

}  // namespace Agent
