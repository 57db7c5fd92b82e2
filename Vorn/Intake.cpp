#include "Kes/Exception.h"
#include "Vorn/Assert.h"
#include "Vorn/CongestionData.h"
#include "Vorn/Trace.h"
#include "Vorn/VornUtils.h"

// How a record enters the recorder, step by step: merge or append, threshold message, chunk, slot.

namespace Vorn {

namespace {

void expectValid(Entry::Ptr const& entry) {
  if (!entry) [[unlikely]]
    throw Kes::RangeException("null ValidPtr");
}

// The record in the newest chunk that updates under a key may be merged into; null when there is none.
Entry::Ptr latestUnderKey(PortData const& port, Kes::U32 entryKey) {
  EntryIndexOrNull const position = port.entryIndex(entryKey);
  if (position.isNull()) return nullptr;
  Chunk const* const tailChunk = port.chunkTail();
  assertThat(tailChunk != nullptr,
             "const Vorn::Microseconds Vorn::CongestionData::updateEntry(Pylo::IntfId, const Ptr&, "
             "const Vorn::Microseconds&, Kes::U32)",
             "tailChunk");
  EntryIndex const slot(position.value());
  return tailChunk->entrySlots().contains(slot.value()) ? tailChunk->entry(slot) : nullptr;
}

// Extends `matched` up to the start of `entry` if the gap between them is small enough. All differences wrap:
// a record from before the end of the matched one has a huge gap and is not merged.
bool merge(Entry& matched, Entry const& entry, Microseconds coalesceTime) {
  Kes::U64 const span = entry.timestamp().value() - matched.timestamp().value();
  Kes::U64 const gap = span - matched.duration().value();
  if (gap > coalesceTime.value()) return false;
  matched.durationIs(Microseconds(span));
  if (entry.qLen() > matched.qLen()) matched.qLenIs(entry.qLen());
  return true;
}

void traceTail(PortData const& port) {
  if (defaultTraceHandle().enabled(8) && port.chunkTail() != nullptr) [[unlikely]]
    VORN_TRACE(8, "tailChunk->entrys() " << port.chunkTail()->entrys());
}

}  // namespace

Microseconds CongestionData::updateEntry(Pylo::IntfId intfId, Entry::Ptr const& entry,
                                         Microseconds const& coalesceTime, Kes::U32 entryKey) {
  expectValid(entry);
  PortData& port = portFor(intfId, "updateEntry");
  traceTail(port);
  Entry::Ptr const matched = latestUnderKey(port, entryKey);
  if (matched && merge(*matched, *entry, coalesceTime)) return entry->timestamp();
  // A counted copy: the caller's reference may be the very slot that is cleared on the way.
  Entry::Ptr const record = entry;
  PortData& holder = append(intfId, &port, record);
  holder.entryIndexIs(entryKey, EntryIndexOrNull(holder.chunkTail()->entryTailIndex().value()));
  return record->timestamp();
}

Microseconds CongestionData::doAddToLog(Pylo::IntfId intfId, Entry::Ptr const& entry) {
  expectValid(entry);
  Entry::Ptr const record = entry;
  append(intfId, /*port=*/nullptr, record);
  return record->timestamp();
}

// The interface's log, made if there is none. Good until the host's code runs.
PortData& CongestionData::portFor(Pylo::IntfId const& intfId, char const* operation) {
  if (PortData::Ptr const* const found = portData_.find(intfId)) [[likely]]
    return **found;
  PortData::Ptr const port = portDataIs(intfId);
  VORN_TRACE(8, operation << " : Created portData for Port " << intfId);
  return *port;
}

// Appends a record to an interface's log, which the caller may have looked up already; returns the log that
// now holds it as its newest. What runs the host's code (judging, releasing the records of a stolen chunk)
// may do anything to the log, so it is looked up again behind it.
PortData& CongestionData::append(Pylo::IntfId const& intfId, PortData* port, Entry::Ptr const& entry) {
  static constexpr char operation[] =
      "const Vorn::Microseconds Vorn::CongestionData::doAddToLog(Pylo::IntfId, const Ptr&)";
  VORN_TRACE(8, operation);
  if (port == nullptr) port = &portFor(intfId, "doAddToLog");
  Kes::Seconds const now = clock_->getUTCTime();
  traceTail(*port);
  if (judge(intfId, *port, *entry, now)) port = &portFor(intfId, "doAddToLog");
  Chunk* tailChunk = port->chunkTail();
  while (tailChunk == nullptr || tailChunk->entrys() == entriesPerChunk) {
    allocateChunk(intfId);
    port = &portFor(intfId, "doAddToLog");
    tailChunk = port->chunkTail();
  }
  tailChunk->entryEnq(entry);
  assertThat(tailChunk->entrys() <= entriesPerChunk, operation,
             "tailChunk->entrys() <= ( EntryIndex::max() + 1 )");
  VORN_TRACE(8, "timestamp " << entry->timestamp() << " qLen " << entry->qLen() << " entry "
                             << tailChunk->entrys() << " port " << intfId);
  return *port;
}

// Raises the record's threshold message if one is due; whether it was.
bool CongestionData::judge(Pylo::IntfId const& intfId, PortData& port, Entry const& entry, Kes::Seconds now) {
  Kes::Seconds const interval = vornConfig_->logInterval();
  if (interval == 0.0) return false;
  if (!(now > port.lastSyslogTime() + interval) && !entry.alwaysLog()) return false;
  port.lastSyslogTimeIs(now);
  Thresholds const thresholds = portThresholds(vornConfig_, vornHwStatus_, intfId);
  entry.doSyslog(intfId.shortName().charPtr(), thresholds.low, thresholds.high);
  return true;
}

Microseconds CongestionData::doAddToGlobalLog(Entry::Ptr const& entry) {
  VORN_TRACE(8, "const Vorn::Microseconds Vorn::CongestionData::doAddToGlobalLog(const Ptr&)");
  expectValid(entry);
  Entry::Ptr const record = entry;
  GlobalBufferChunk::Ptr log = globalBufferChunk();
  if (!log) throw Kes::RangeException("null ValidPtr");
  Kes::Seconds const now = clock_->getUTCTime();
  Kes::Seconds const interval = vornConfig_->globalLogInterval();
  if (interval != 0.0 && now > log->lastSyslogTime() + interval) {
    log->lastSyslogTimeIs(now);
    Thresholds const thresholds = globalThresholds(vornConfig_, vornHwStatus_);
    record->doSyslog("", thresholds.low, thresholds.high);
    // The host's code may have put another log in its place.
    if (globalBufferChunk()) log = globalBufferChunk();
  }
  // Released only when the new record stands in its place: that runs the host's code.
  Entry::Ptr const dropped = log->entrys() >= entriesPerChunk ? log->entryDeq() : nullptr;
  log->entryEnq(record);
  return record->timestamp();
}

}  // namespace Vorn
