// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/Time.h"
#include "Vorn/EntryQueue.h"
#include "Vorn/Export.h"

namespace Vorn {

// The congestion history of the chip's shared packet buffer: one ring of 500 records, oldest at the head, and
// its running statistics. The recorder holds at most one. `duration`, `maxBuffer`, `timeOfMaxBuffer` and
// `counter` are kept by the components that feed the recorder; it stores them only.
class VORN_EXPORT GlobalBufferChunk final : public Kes::PtrInterface, public EntryQueue {
 public:
  using Ptr = Kes::Ptr<GlobalBufferChunk>;
  using PtrConst = Kes::Ptr<GlobalBufferChunk const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  // `entryTobeMerged` of a chunk in no report: not a slot.
  static constexpr Kes::U16 noEntryTobeMerged = 65535;

  std::string_view fwkType() const override { return "Vorn::GlobalBufferChunk"; }

  // Report cursor: the slot of the next record that a merged report writes, 65535 when none is under way.
  Kes::U16 entryTobeMerged() const { return entryTobeMerged_; }
  void entryTobeMergedIs(Kes::U16 slot) { entryTobeMerged_ = slot; }
  // Report cursor: how many records that report still has to write.
  Kes::U16 numEntriesTobeMerged() const { return numEntriesTobeMerged_; }
  void numEntriesTobeMergedIs(Kes::U16 count) { numEntriesTobeMerged_ = count; }

  // Duration of the buffer's congestion.
  Microseconds duration() const { return duration_; }
  void durationIs(Microseconds const& duration) { duration_ = duration; }
  // Largest usage seen, in the units of Entry::qLen, and when.
  Kes::U32 maxBuffer() const { return maxBuffer_; }
  void maxBufferIs(Kes::U32 maxBuffer) { maxBuffer_ = maxBuffer; }
  Microseconds timeOfMaxBuffer() const { return timeOfMaxBuffer_; }
  void timeOfMaxBufferIs(Microseconds const& time) { timeOfMaxBuffer_ = time; }
  // When the last threshold message was raised, in the clock's UTC seconds.
  Kes::Seconds lastSyslogTime() const { return lastSyslogTime_; }
  void lastSyslogTimeIs(Kes::Seconds const& time) { lastSyslogTime_ = time; }
  // The global hit count of the statistics report; wraps at 2^32. counterInc returns the new value.
  Kes::U32 counter() const { return counter_; }
  void counterIs(Kes::U32 counter) { counter_ = counter; }
  Kes::U32 counterInc(Kes::U32 amount) { return counter_ += amount; }

  GlobalBufferChunk() = default;

 protected:
  ~GlobalBufferChunk() override;

 private:
  Kes::U16 entryTobeMerged_ = noEntryTobeMerged;
  Kes::U16 numEntriesTobeMerged_ = 0;
  Kes::U32 maxBuffer_ = 0;
  Microseconds duration_;
  Microseconds timeOfMaxBuffer_;
  Kes::Seconds lastSyslogTime_ = 0.0;
  Kes::U32 counter_ = 0;
};

}  // namespace Vorn
