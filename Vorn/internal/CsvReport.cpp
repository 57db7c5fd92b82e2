// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/CsvReport.h"

#include "Kes/Strep.h"
#include "Vorn/internal/Assert.h"
#include "Vorn/internal/GlobalBufferReport.h"
#include "Vorn/internal/MergeCursor.h"
#include "Vorn/internal/StartRecordCursor.h"

namespace Vorn {

Kes::S32 writeCsvReport(CongestionData const& recorder, ReportFrame const& frame,
                        ReportSelection const& selection, bool showAll) {
  constexpr char operation[] =
      "Kes::S32 Vorn::CongestionData::doDumpEntriesInCSVFormat(Kes::VoidPtr, Kes::String, Kes::String, bool)";
  // The clock is the host's code: it is read before the cursor points at anything.
  Kes::Seconds const reportTime = recorder.clock()->getUTCTime();
  MergeCursor cursor(selection.ports, MergeCursor::Direction::oldestFirst);
  frame.begin(reportTime);
  StartRecordCursor startRecords(selection.startRecords, *recorder.portMetaDataDumper(), frame.stream,
                                 /*csvFormat=*/true);
  while (cursor.remaining() != 0) {
    MergeCursor::Choice const next = cursor.choose();
    assertThat(next.port != nullptr, operation, "oldestEntryChunk");
    while (!startRecords.atEnd() && startRecords.time() < next.entry->timestamp()) startRecords.write();
    VORN_TRACE(6, "Oldest chunk " << next.port->intfId() << " numEntries "
                                  << next.port->chunkTobeMerged()->entrys());
    cursor.advance();
    if (showAll) mergeGlobalRecords(recorder, frame.stream, next.entry, /*ascending=*/true);
    Kes::DecimalText const time(next.entry->timestamp().value());
    Kes::S32 const result =
        next.entry->dumpEntry(frame.stream, time.charPtr(), next.shortName, /*cvsFormat=*/true);
    if (result != 0) {
      VORN_TRACE(0, "doDumpEntriesInCSVFormat : entry dump failed ");
      return result;
    }
    cursor.countDown();
  }
  while (!startRecords.atEnd()) startRecords.write();
  if (showAll) mergeGlobalRecords(recorder, frame.stream, nullptr, /*ascending=*/true);
  endGlobalMerge(recorder);
  return frame.end();
}

}  // namespace Vorn
