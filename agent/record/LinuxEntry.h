#pragma once

#include "Kes/Types.h"
#include "Vorn/Entry.h"
#include "agent/record/CongestionUpdate.h"
#include "agent/record/QueueName.h"
#include "agent/record/ReportLine.h"

namespace Agent {

// A congestion record of this machine's queues: beside the common fields (queue length in bytes, as sampled)
// which queue it was, what its true peak cannot have exceeded, what was lost, and how long the last byte of
// the peak had to wait. Records of the global buffer are the sum over all queues; their queue is noQueue.
//
// Every writer puts out one line, as told in ReportColumns.h, and returns 0, or -1 when the stream fails.
class LinuxEntry final : public Vorn::Entry {
 public:
  using Ptr = Kes::Ptr<LinuxEntry>;

  // The record of an update, with a duration of 0. `handle` names the queueing discipline, 0 if it has no
  // name.
  LinuxEntry(QueueKey queue, Kes::U32 handle, CongestionUpdate const& update);

  // Makes this record that of another update, as if it were new.
  void entryIs(QueueKey queue, Kes::U32 handle, CongestionUpdate const& update);
  // Adds what the recorder's merge does not know of: called on the logged record after an update was merged
  // into it.
  void handleMerged(CongestionUpdate const& update);

  QueueKey queue() const { return queue_; }
  Kes::U32 handle() const { return handle_; }
  // Bytes; at least qLen.
  Kes::U32 peakBound() const { return peakBound_; }
  // Packets; stays at 2^32 - 1.
  Kes::U32 drops() const { return drops_; }
  // Microseconds that qLen takes to drain at the queue's rate; 0 while that rate is unknown.
  Kes::U32 latency() const { return latency_; }

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
  Kes::S32 dumpCsv(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime, Kes::CharPtrConst intfName) const;
  ReportLine lineFor(Kes::CharPtrConst intfName) const;
  void addLatency(ReportLine& line) const;
  void latencyIsOf(Kes::U64 drainRate);

  QueueKey queue_;
  Kes::U32 handle_;
  Kes::U32 peakBound_;
  Kes::U32 drops_;
  Kes::U32 latency_;
};

}  // namespace Agent
