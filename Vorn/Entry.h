// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/SlabPool.h"
#include "Kes/Types.h"
#include "Vorn/Export.h"
#include "Vorn/Microseconds.h"

namespace Vorn {

// One congestion record: how long a queue got, when, and for how long. Platforms derive their own record from
// it, add the counters that they have (drops, latency) and write themselves into reports.
//
// Logs hold records by counted pointer and never copy them: a producer that keeps its pointer and changes the
// object changes what the log shows. A record is freed when its last holder lets go.
//
// Contract of what a platform overrides: the writers (dump...) are called while a report walks the recorder.
// They write to the stream they are given and change neither records nor the recorder. Setters change their
// record alone. doSyslog and destructors may call anything but reports; the recorder holds no position across
// them.
class VORN_EXPORT Entry : public Kes::PtrInterface, public Kes::SlabAllocated {
 public:
  using Ptr = Kes::Ptr<Entry>;
  using PtrConst = Kes::Ptr<Entry const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  // `duration` starts at 0, `alwaysLog` false.
  Entry(Kes::U32 qLen, Microseconds const& timestamp) : timestamp_(timestamp), qLen_(qLen) {}

  std::string_view fwkType() const override { return "Vorn::Entry"; }

  // Writers. `filePtr` is the report's FILE*, `elapsedTime` the timestamp in decimal microseconds, `intfName`
  // the interface's short name ("N/A" for records of the global buffer), `cvsFormat` whether the line is one
  // of the comma-separated report. Plain records cannot be written: each of these is an assertion here.
  //
  // Result: 0 when written. In a text report (dumpEntry, dumpDrops, dumpTxLatency) -1 ends the report without
  // its footer, and after any other value it goes on without counting the line for -s. In a comma-separated
  // report (dumpEntry) any value but 0 ends it so. Results for records of the global buffer
  // (dumpGlobalBuffer, and dumpEntry where -a merges them in) are not looked at.
  virtual Kes::S32 dumpEntry(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime, Kes::CharPtrConst intfName,
                             bool cvsFormat) const;
  virtual Kes::S32 dumpDrops(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                             Kes::CharPtrConst intfName) const;

  // Judges the record's length: at or above `highThreshold` logs QUEUEMONITOR_LENGTH_OVER_THRESHOLD with the
  // high text, else at or above `lowThreshold` with the low text, else nothing. The high threshold is tested
  // first, also where it is the lower one.
  virtual void doSyslog(Kes::CharPtrConst intfName, Kes::U32 lowThreshold, Kes::U32 highThreshold) const;

  // More writers, as above.
  virtual Kes::S32 dumpTxLatency(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                                 Kes::CharPtrConst intfName) const;
  virtual Kes::S32 dumpGlobalBuffer(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime) const;
  // Fill a protocol-buffer record of the platform's.
  virtual void entryToGpbRecord(Kes::VoidPtr recordPtr) const;
  virtual void entryToGpbGlobalBufferRecord(Kes::VoidPtr recordPtr) const;

  // Queue length reached, in the driver's units.
  Kes::U32 qLen() const { return qLen_; }
  virtual Entry& qLenIs(Kes::U32 qLen);
  // When the congestion started.
  Microseconds timestamp() const { return timestamp_; }
  virtual Entry& timestampIs(Microseconds timestamp);
  // How long it lasted; grows as the recorder merges updates.
  Microseconds duration() const { return duration_; }
  virtual Entry& durationIs(Microseconds duration);
  // Raise this record's threshold message also within the interface's log interval.
  bool alwaysLog() const { return alwaysLog_; }
  virtual Entry& alwaysLogIs(bool alwaysLog);

 protected:
  ~Entry() override;

 private:
  Microseconds timestamp_;
  Microseconds duration_;
  Kes::U32 qLen_;
  bool alwaysLog_ = false;
};

}  // namespace Vorn
