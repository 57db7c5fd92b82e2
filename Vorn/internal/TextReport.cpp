// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/TextReport.h"

#include "Kes/Strep.h"
#include "Vorn/internal/Assert.h"
#include "Vorn/internal/GlobalBufferReport.h"
#include "Vorn/internal/MergeCursor.h"
#include "Vorn/internal/StartRecordCursor.h"

namespace Vorn {

namespace {

class TextReport {
 public:
  TextReport(CongestionData const& recorder, std::FILE* stream, ReportSelection const& selection,
             CommandOptions const& options, Kes::Seconds reportTime)
      : recorder_(recorder),
        stream_(stream),
        ports_(selection.ports),
        options_(options),
        reportTime_(reportTime),
        startRecords_(selection.startRecords, *recorder.portMetaDataDumper(), stream, /*csvFormat=*/false) {}

  // Record lines, and the start records that come before each; false when a writer failed.
  bool writeEntries();
  // The start records that are left, and the global buffer's.
  void writeRest();

 private:
  bool hasStartRecords() const { return !options_.drops && !options_.latency; }
  // A start record that its writer reports as written counts as a line.
  void writeStartRecord() {
    if (startRecords_.write() == 0) ++lines_;
  }
  void writeStartRecordsAfter(Microseconds time);
  bool countReached() const { return options_.entryCount != 0 && lines_ >= options_.entryCount; }
  bool tooOld(Microseconds time) const;
  Kes::S32 writeEntry(Entry const& entry, Kes::CharPtrConst intfName);

  CongestionData const& recorder_;
  std::FILE* const stream_;
  std::vector<PortData::Ptr> const& ports_;
  CommandOptions const& options_;
  Kes::Seconds const reportTime_;
  StartRecordCursor startRecords_;
  Kes::U32 lines_ = 0;  // records and start records whose writer returned 0
};

bool TextReport::writeEntries() {
  MergeCursor cursor(ports_, MergeCursor::Direction::newestFirst);
  while (cursor.remaining() != 0) {
    MergeCursor::Choice const next = cursor.choose();
    assertThat(next.port != nullptr,
               "void Vorn::CongestionData::doMergeAndDumpEntries(Kes::VoidPtr, Kes::String, Kes::String, "
               "Kes::String)",
               "mostRecentEntryChunk");
    Microseconds const time = next.entry->timestamp();
    if (hasStartRecords()) writeStartRecordsAfter(time);
    VORN_TRACE(6, "Most recent chunk " << next.port->intfId());
    cursor.advance();
    if (countReached() || tooOld(time)) break;
    Kes::S32 const result = writeEntry(*next.entry, next.shortName);
    if (result == -1) {
      VORN_TRACE(0, "doMergeAndDumpEntries : entry dump failed");
      return false;
    }
    if (result == 0) ++lines_;
    cursor.countDown();
  }
  return true;
}

void TextReport::writeStartRecordsAfter(Microseconds time) {
  while (!startRecords_.atEnd() && startRecords_.time() > time) {
    writeStartRecord();
    if (countReached()) break;
  }
}

// The age wraps for a record from after the report's time, which ends the report.
bool TextReport::tooOld(Microseconds time) const {
  if (options_.ageLimit == 0) return false;
  Kes::U64 const age = Microseconds::fromSeconds(reportTime_).value() - time.value();
  if (age <= Microseconds::fromSeconds(options_.ageLimit).value()) return false;
  VORN_TRACE(6, "mostRecentTimestamp " << time << " is more than " << options_.ageLimit << " old ");
  return true;
}

Kes::S32 TextReport::writeEntry(Entry const& entry, Kes::CharPtrConst intfName) {
  Kes::DecimalText const time(entry.timestamp().value());
  if (options_.drops) return entry.dumpDrops(stream_, time.charPtr(), intfName);
  if (options_.latency) return entry.dumpTxLatency(stream_, time.charPtr(), intfName);
  if (options_.showAll) mergeGlobalRecords(recorder_, stream_, &entry, /*ascending=*/false);
  return entry.dumpEntry(stream_, time.charPtr(), intfName, /*cvsFormat=*/false);
}

void TextReport::writeRest() {
  while (hasStartRecords() && !startRecords_.atEnd()) {
    writeStartRecord();
    // Without a count limit this ends the records when not a single line has been written so far.
    if (lines_ == options_.entryCount) break;
  }
  if (options_.showAll) mergeGlobalRecords(recorder_, stream_, nullptr, /*ascending=*/false);
}

}  // namespace

void writeTextReport(CongestionData const& recorder, ReportFrame const& frame,
                     ReportSelection const& selection, CommandOptions const& options,
                     Kes::Seconds reportTime) {
  frame.begin(reportTime);
  TextReport report(recorder, frame.stream, selection, options, reportTime);
  if (!report.writeEntries()) return;
  report.writeRest();
  endGlobalMerge(recorder);
  frame.end();
}

}  // namespace Vorn
