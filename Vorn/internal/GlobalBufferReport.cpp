// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/GlobalBufferReport.h"

#include "Kes/Strep.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

void writeGlobalBufferReport(CongestionData const& recorder, ReportFrame const& frame) {
  constexpr char operation[] =
      "void Vorn::CongestionData::doDumpGlobalBufferChunk(Kes::VoidPtr, Kes::String, Kes::String)";
  frame.begin(recorder.clock()->getUTCTime());
  GlobalBufferChunk::Ptr const log = recorder.globalBufferChunk();
  if (!log || log->entrys() == 0) return;
  auto const& slots = log->entrySlots();
  Kes::U32 slot = slots.tail();
  for (Kes::U32 left = slots.count(); left > 0; --left, slot = slots.before(slot)) {
    Entry::Ptr const& entryPtr = slots.slot(slot);
    assertThat(entryPtr != nullptr, operation, "entryPtr");
    entryPtr->dumpGlobalBuffer(frame.stream, Kes::DecimalText(entryPtr->timestamp().value()).charPtr());
  }
  frame.end();
}

void mergeGlobalRecords(CongestionData const& recorder, std::FILE* stream, Entry const* entry,
                        bool ascending) {
  GlobalBufferChunk::Ptr const log = recorder.globalBufferChunk();
  if (!log || log->entrys() == 0) return;
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
      global->dumpEntry(stream, Kes::DecimalText(global->timestamp().value()).charPtr(), "N/A", ascending);
    }
    log->entryTobeMergedIs(static_cast<Kes::U16>(ascending ? slots.after(slot) : slots.before(slot)));
    log->numEntriesTobeMergedIs(static_cast<Kes::U16>(log->numEntriesTobeMerged() - 1));
  }
}

void endGlobalMerge(CongestionData const& recorder) {
  if (GlobalBufferChunk::Ptr const log = recorder.globalBufferChunk())
    log->entryTobeMergedIs(GlobalBufferChunk::noEntryTobeMerged);
}

}  // namespace Vorn
