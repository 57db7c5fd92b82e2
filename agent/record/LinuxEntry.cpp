// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxEntry.h"

#include "agent/base/Saturated.h"
#include "agent/record/ReportColumns.h"

namespace Agent {

using Kes::CharPtrConst;
using Kes::S32;
using Kes::U32;
using Kes::U64;
using Kes::VoidPtr;

LinuxEntry::LinuxEntry(QueueKey queue, U32 handle, CongestionUpdate const& update)
    : Entry(update.qLen, Vorn::Microseconds(update.timestamp)),
      queue_(queue),
      handle_(handle),
      peakBound_(update.peakBound),
      drops_(update.drops),
      latency_(update.latency) {}

LinuxEntry::~LinuxEntry() = default;

void LinuxEntry::updateIs(CongestionUpdate const& update, Vorn::Microseconds until) {
  durationIs(Vorn::Microseconds(until.value() - timestamp().value()));
  qLenIs(update.qLen);
  peakBound_ = update.peakBound;
  drops_ = saturated(U64{drops_} + update.drops);
  latency_ = update.latency;
}

Kes::String LinuxEntry::queueName() const { return Kes::String(QueueName::ofKey(queue_).text()); }

Kes::String LinuxEntry::handleName() const {
  return handle_ == 0 ? Kes::String() : Kes::String(QueueName::ofHandle(handle_).text());
}

S32 LinuxEntry::dumpEntry(VoidPtr filePtr, CharPtrConst elapsedTime, CharPtrConst intfName,
                          bool cvsFormat) const {
  if (cvsFormat) return dumpCsv(filePtr, elapsedTime, intfName);
  ReportLine line = lineFor(intfName);
  line.addNumber(columns::length, qLen(), " B");
  line.addNumber(columns::peakBound, peakBound_, " B");
  line.addMilliseconds(columns::duration, duration());
  addLatency(line);
  line.addNumber(columns::drops, drops_, "");
  return line.write(filePtr);
}

S32 LinuxEntry::dumpCsv(VoidPtr filePtr, CharPtrConst elapsedTime, CharPtrConst intfName) const {
  ReportLine line;
  if (queue_ == noQueue) {
    line.addField("global");
    line.addField(intfName);
    line.addEmptyFields(3);
  } else {
    line.addField("record");
    line.addField(intfName);
    line.addField(QueueName::ofKey(queue_).text());
    line.addField(queue_);
    if (handle_ != 0)
      line.addField(QueueName::ofHandle(handle_).text());
    else
      line.addEmptyFields(1);
  }
  line.addField(elapsedTime);
  line.addField(duration().value());
  line.addField(qLen());
  line.addField(peakBound_);
  if (latency_ != 0)
    line.addField(latency_);
  else
    line.addEmptyFields(1);
  line.addField(drops_);
  return line.write(filePtr);
}

S32 LinuxEntry::dumpDrops(VoidPtr filePtr, CharPtrConst, CharPtrConst intfName) const {
  if (drops_ == 0) return 1;
  ReportLine line = lineFor(intfName);
  line.addMilliseconds(columns::duration, duration());
  line.addNumber(columns::drops, drops_, "");
  return line.write(filePtr);
}

S32 LinuxEntry::dumpTxLatency(VoidPtr filePtr, CharPtrConst, CharPtrConst intfName) const {
  ReportLine line = lineFor(intfName);
  line.addNumber(columns::length, qLen(), " B");
  addLatency(line);
  return line.write(filePtr);
}

S32 LinuxEntry::dumpGlobalBuffer(VoidPtr filePtr, CharPtrConst) const {
  ReportLine line;
  line.addTime(columns::time, timestamp());
  line.addNumber(columns::length, qLen(), " B");
  line.addNumber(columns::peakBound, peakBound_, " B");
  line.addMilliseconds(columns::duration, duration());
  line.addNumber(columns::drops, drops_, "");
  return line.write(filePtr);
}

ReportLine LinuxEntry::lineFor(CharPtrConst intfName) const {
  ReportLine line;
  line.addTime(columns::time, timestamp());
  line.addText(columns::interface, intfName);
  line.addText(columns::queue, QueueName::ofKey(queue_).text());
  return line;
}

void LinuxEntry::addLatency(ReportLine& line) const {
  if (latency_ != 0)
    line.addMilliseconds(columns::latency, Vorn::Microseconds(latency_));
  else
    line.addText(columns::latency, "-");
}

}  // namespace Agent
