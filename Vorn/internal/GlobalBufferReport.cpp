#include "Vorn/internal/GlobalBufferReport.h"

#include "Kes/Strep.h"
#include "Vorn/internal/Assert.h"
#include "Vorn/internal/ReportFrame.h"

namespace Vorn {

void endGlobalMerge(CongestionData& recorder) {
  if (GlobalBufferChunk::Ptr const log = recorder.globalBufferChunk())
    log->entryTobeMergedIs(GlobalBufferChunk::noEntryTobeMerged);
}

void CongestionData::doDumpGlobalBufferChunk(Kes::VoidPtr stream, Kes::String reportHeader,
                                             Kes::String footer) {
  constexpr char operation[] =
      "void Vorn::CongestionData::doDumpGlobalBufferChunk(Kes::VoidPtr, Kes::String, Kes::String)";
  std::FILE* const out = reportStream(stream, "doDumpGlobalBufferChunk");
  if (out == nullptr) return;
  beginReport(out, clock_->getUTCTime(), reportHeader);
  GlobalBufferChunk::Ptr const log = globalBufferChunk();
  if (!log || log->entrys() == 0) return;
  auto const& slots = log->entrySlots();
  Kes::U32 slot = slots.tail();
  for (Kes::U32 left = slots.count(); left > 0; --left, slot = slots.before(slot)) {
    Entry::Ptr const& entryPtr = slots.slot(slot);
    assertThat(entryPtr != nullptr, operation, "entryPtr");
    entryPtr->dumpGlobalBuffer(out, Kes::DecimalText(entryPtr->timestamp().value()).charPtr());
  }
  endReport(out, footer);
}

void CongestionData::doMergeAndDumpGlobalChunk(Kes::VoidPtr stream, Entry const* entry, bool ascending) {
  std::FILE* const out = reportStream(stream, "doMergeAndDumpGlobalChunk");
  GlobalBufferChunk::Ptr const log = globalBufferChunk();
  if (out == nullptr || !log || log->entrys() == 0) return;
  auto const& slots = log->entrySlots();
  if (log->entryTobeMerged() == GlobalBufferChunk::noEntryTobeMerged) {
    log->numEntriesTobeMergedIs(static_cast<Kes::U16>(slots.count()));
    // Deliberately not wrapped: a descending start below slot 0 is "no entry", and the text report then shows
    // no global records at all.
    log->entryTobeMergedIs(static_cast<Kes::U16>(ascending ? slots.head() : slots.tailNext() - 1));
  }
  while (log->numEntriesTobeMerged() != 0) {
    Kes::U32 const slot = log->entryTobeMerged();
    if (slot >= entriesPerChunk) break;
    if (Entry::Ptr const& global = slots.slot(slot)) {
      bool const before = entry == nullptr || (ascending ? global->timestamp() < entry->timestamp()
                                                         : global->timestamp() > entry->timestamp());
      if (!before) break;
      global->dumpEntry(out, Kes::DecimalText(global->timestamp().value()).charPtr(), "N/A", ascending);
    }
    log->entryTobeMergedIs(static_cast<Kes::U16>(ascending ? slots.after(slot) : slots.before(slot)));
    log->numEntriesTobeMergedIs(static_cast<Kes::U16>(log->numEntriesTobeMerged() - 1));
  }
}

}  // namespace Vorn
