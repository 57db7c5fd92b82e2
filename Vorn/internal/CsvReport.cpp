#include "Kes/Strep.h"
#include "Vorn/CongestionData.h"
#include "Vorn/internal/Assert.h"
#include "Vorn/internal/GlobalBufferReport.h"
#include "Vorn/internal/MergeCursor.h"
#include "Vorn/internal/ReportFrame.h"
#include "Vorn/internal/StartRecordCursor.h"

namespace Vorn {

namespace {

constexpr char operation[] =
    "Kes::S32 Vorn::CongestionData::doDumpEntriesInCSVFormat(Kes::VoidPtr, Kes::String, Kes::String, bool)";

}  // namespace

Kes::S32 CongestionData::doDumpEntriesInCSVFormat(Kes::VoidPtr stream, Kes::String reportHeader,
                                                  Kes::String footer, bool showAll) {
  std::FILE* const out = reportStream(stream, "doDumpEntriesInCSVFormat");
  if (out == nullptr) return -1;
  // The clock is the host's code: it is read before the cursor points at anything.
  Kes::Seconds const reportTime = clock_->getUTCTime();
  MergeCursor cursor(portData_, MergeCursor::Direction::oldestFirst);
  beginReport(out, reportTime, reportHeader);
  StartRecordCursor startRecords(portMetaDataDumper_, out, /*csvFormat=*/true);
  while (cursor.total() != 0) {
    MergeCursor::Choice const next = cursor.choose();
    assertThat(next.port != nullptr, operation, "oldestEntryChunk");
    while (!startRecords.atEnd() && startRecords.time() < next.entry->timestamp()) startRecords.write();
    VORN_TRACE(6, "Oldest chunk " << next.port->intfId() << " numEntries "
                                  << next.port->chunkTobeMerged()->entrys());
    cursor.advance();
    if (showAll) doMergeAndDumpGlobalChunk(out, next.entry, /*ascending=*/true);
    Kes::DecimalText const time(next.entry->timestamp().value());
    Kes::S32 const result = next.entry->dumpEntry(out, time.charPtr(), next.shortName, /*cvsFormat=*/true);
    if (result != 0) {
      VORN_TRACE(0, "doDumpEntriesInCSVFormat : entry dump failed ");
      return result;
    }
    cursor.countOff();
  }
  while (!startRecords.atEnd()) startRecords.write();
  if (showAll) doMergeAndDumpGlobalChunk(out, nullptr, /*ascending=*/true);
  endGlobalMerge(*this);
  return endReport(out, footer);
}

}  // namespace Vorn
