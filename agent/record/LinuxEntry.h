// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "Kes/Types.h"
#include "Vorn/Entry.h"
#include "agent/record/CongestionUpdate.h"
#include "agent/record/QueueName.h"
#include "agent/record/RecordRow.h"

namespace Agent {

// A congestion record of this machine's queues: beside the common fields (queue length in bytes, as sampled)
// which queue it was, what its true peak cannot have exceeded, what was lost, and how long the last byte of
// the sampled peak had to wait; and who filled it, where its source counts that. Records of the global buffer
// are the sum over all queues; their queue is noQueue.
//
// Every writer puts out one line, as told in RecordColumns.h, and returns 0, or -1 when the stream fails. The
// drops report is about records with drops: for others its writer puts out nothing and returns 1.
class LinuxEntry final : public Vorn::Entry {
 public:
  using Ptr = Kes::Ptr<LinuxEntry>;
  class GenericIf_;  // by-name access, see LinuxEntryType.h

  std::string_view fwkType() const override { return "Agent::LinuxEntry"; }

  // The record of an update, with a duration of 0. `handle` names the queueing discipline, 0 if it has no
  // name.
  LinuxEntry(QueueKey queue, Kes::U32 handle, CongestionUpdate const& update);

  // The burst goes on: `until` is the update's timestamp as wall time, on the same scale as this record's.
  void updateIs(CongestionUpdate const& update, Vorn::Microseconds until);

  QueueKey queue() const { return queue_; }
  Kes::U32 handle() const { return handle_; }
  // The same as tc writes them: "1:20"; "8001:", empty for none.
  Kes::String queueName() const;
  Kes::String handleName() const;
  // Bytes; at least qLen.
  Kes::U32 peakBound() const { return peakBound_; }
  // Packets; stays at 2^32 - 1.
  Kes::U32 drops() const { return drops_; }
  // Microseconds that the last byte of qLen waited until it had left; 0 while unknown.
  Kes::U32 latency() const { return latency_; }
  // Who filled the queue, the largest flows; null where nobody counted them, and where there was no memory to
  // keep them: that costs the flows, not the record.
  BurstFlows const* flows() const { return flows_.get(); }
  void flowsAre(BurstFlows const& flows) noexcept;
  // One of them in words. Throws Kes::RangeException for a place at which there is none.
  Kes::String flow(Kes::U32 place) const;
  // All that entered the queue while it was congested; 0 where that is not known.
  Kes::U64 enteredBytes() const { return flows_ ? flows_->bytes : 0; }
  Kes::U64 enteredPackets() const { return flows_ ? flows_->packets : 0; }
  // For every form of report; `open` is not for the record to know.
  RecordRow row(std::string_view interface) const;

  Kes::S32 dumpEntry(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime, Kes::CharPtrConst intfName,
                     bool cvsFormat) const override;
  Kes::S32 dumpDrops(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                     Kes::CharPtrConst intfName) const override;
  Kes::S32 dumpTxLatency(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                         Kes::CharPtrConst intfName) const override;
  Kes::S32 dumpGlobalBuffer(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime) const override;

 protected:
  ~LinuxEntry() override;

 private:
  QueueKey const queue_;
  Kes::U32 const handle_;
  Kes::U32 peakBound_;
  Kes::U32 drops_;
  Kes::U32 latency_;
  std::unique_ptr<BurstFlows> flows_;
};

}  // namespace Agent
