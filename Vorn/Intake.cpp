// SPDX-License-Identifier: Apache-2.0
#include "Kes/Exception.h"
#include "Vorn/CongestionData.h"
#include "Vorn/Trace.h"
#include "Vorn/VornUtils.h"
#include "Vorn/internal/Assert.h"

// How a record enters the recorder, step by step: merge or append, threshold message, chunk, slot.

namespace Vorn {

namespace {

[[noreturn, gnu::cold]] void raiseNull() { throw Kes::RangeException("null ValidPtr"); }

inline Entry const& valid(Entry::Ptr const& entry) {
  if (!entry) [[unlikely]]
    raiseNull();
  return *entry;
}

// The record in the newest chunk that updates under a key may be merged into; null when there is none.
inline Entry* latestUnderKey(PortData const& port, Kes::U32 entryKey) {
  EntryIndexOrNull const position = port.entryIndex(entryKey);
  if (position.isNull()) return nullptr;
  Chunk const* const tailChunk = port.chunkTail();
  assertThat(tailChunk != nullptr,
             "const Vorn::Microseconds Vorn::CongestionData::updateEntry(Pylo::IntfId, const Ptr&, "
             "const Vorn::Microseconds&, Kes::U32)",
             "tailChunk");
  EntryIndex const slot(position.value());
  EntryQueue::Slots const& slots = tailChunk->entrySlots();
  return slots.contains(slot.value()) ? slots.slot(slot.value()).get() : nullptr;
}

// Extends `matched` up to the start of `entry` if the gap between them is small enough. All differences wrap:
// a record from before the end of the matched one has a huge gap and is not merged.
inline bool merge(Entry& matched, Entry const& entry, Microseconds coalesceTime) {
  Kes::U64 const span = entry.timestamp().value() - matched.timestamp().value();
  Kes::U64 const gap = span - matched.duration().value();
  if (gap > coalesceTime.value()) return false;
  matched.durationIs(Microseconds(span));
  if (entry.qLen() > matched.qLen()) matched.qLenIs(entry.qLen());
  return true;
}

// As many as fit into a second-level cache of 1 MiB, as measured.
constexpr std::size_t cachedInterfaces = 128;

constexpr char addOperation[] =
    "const Vorn::Microseconds Vorn::CongestionData::doAddToLog(Pylo::IntfId, const Ptr&)";

inline bool hasRoom(Chunk const* tailChunk) {
  return tailChunk != nullptr && tailChunk->entrys() != entriesPerChunk;
}

// The level first: it is off.
inline void traceTail(Chunk const* tailChunk) {
  if (defaultTraceHandle().enabled(8) && tailChunk != nullptr) [[unlikely]]
    VORN_TRACE(8, "tailChunk->entrys() " << tailChunk->entrys());
}

// Has a record judged as the log's latest. The time stands in the log before the host's code runs, which may
// append to it. Where judging fails (composing a message takes memory) the log has not been judged.
template <class Log>
void judge(Log const& log, Kes::Seconds now, Entry const& record, Kes::CharPtrConst name,
           Thresholds const& thresholds) {
  Kes::Seconds const before = log->lastSyslogTime();
  log->lastSyslogTimeIs(now);
  try {
    record.doSyslog(name, thresholds.low, thresholds.high);
  } catch (...) {
    log->lastSyslogTimeIs(before);
    throw;
  }
}

}  // namespace

// The interface's log, made if there is none. Good until the host's code runs.
inline PortData& CongestionData::portFor(Pylo::IntfId const& intfId, char const* operation) {
  PortData::Ptr const* const found = portData_.find(intfId);
  return found != nullptr ? **found : newPort(intfId, operation);
}

[[gnu::cold]] PortData& CongestionData::newPort(Pylo::IntfId const& intfId, char const* operation) {
  PortData::Ptr const port = portDataIs(intfId);
  VORN_TRACE(8, operation << " : Created portData for Port " << intfId);
  return *port;
}

// Appends a record, and notes its slot under a key if one is given. Forced inline into doAddToLog and
// updateEntry: that takes 6 to 10 % off an append (bench/README.md).
[[gnu::always_inline]] inline Microseconds CongestionData::append(Pylo::IntfId const& intfId, PortData& port,
                                                                  Entry::Ptr const& entry,
                                                                  Kes::U32 const* entryKey) {
  // Nothing is held: until the record is in its slot, the only code of the host's that runs is its clock, and
  // that changes nothing. To find the slot the chunk's count must be read, which may miss the caches as the
  // slot itself may; so the likely slot is fetched meanwhile, unless there are so few interfaces that the
  // caches hold all.
  Entry const& record = *entry;
  Chunk* const tailChunk = port.chunkTail();
  if (portData_.size() > cachedInterfaces && tailChunk != nullptr)
    tailChunk->entrySlots().prefetch(port.nextSlot());
  // What fails for lack of memory fails before the record is in the log.
  if (entryKey != nullptr) port.entryIndexReserve();
  Kes::Seconds const now = clock_->getUTCTime();
  traceTail(tailChunk);
  bool const due = messageDue(port, record, now);
  if (due || tailChunk == nullptr || !tailChunk->entryTryEnq(entry)) [[unlikely]]
    return appendSlow(intfId, port, entry, entryKey, due, now);
  noteAppended(intfId, port, *tailChunk, record, entryKey);
  return record.timestamp();
}

// Judging, and releasing records that stood in the way or in a stolen chunk, run the host's code, which may
// do anything to the log: it is looked up again after that. What is used is held; the caller's reference may
// be the very slot that is cleared on the way.
[[gnu::cold]] Microseconds CongestionData::appendSlow(Pylo::IntfId const& intfId, PortData& judged,
                                                      Entry::Ptr const& given, Kes::U32 const* entryKey,
                                                      bool due, Kes::Seconds now) {
  Entry::Ptr const entry = given;
  if (due)
    judge(PortData::Ptr(&judged), now, *entry, intfId.shortName().charPtr(),
          portThresholds(vornConfig_, vornHwStatus_, intfId));
  for (;;) {
    // From here on an update that did not merge is an add.
    PortData::Ptr const port(&portFor(intfId, "doAddToLog"));
    if (entryKey != nullptr) port->entryIndexReserve();
    Chunk::Ptr const tailChunk(port->chunkTail());
    if (!hasRoom(tailChunk.get())) {
      pool_.allocate(portData_, *port);
      continue;
    }
    Entry::Ptr const inTheWay = tailChunk->entryTakeNext();
    tailChunk->entryTryEnq(entry);
    noteAppended(intfId, *port, *tailChunk, *entry, entryKey);
    return entry->timestamp();
  }
}

// Whether the interface's threshold message is to be judged by this record.
inline bool CongestionData::messageDue(PortData const& port, Entry const& entry, Kes::Seconds now) const {
  Kes::Seconds const interval = vornConfig_->logInterval();
  return interval != 0.0 && (now > port.lastSyslogTime() + interval || entry.alwaysLog());
}

// The last step: what is kept of the record and of where it stands. Forced inline, as a part of append.
[[gnu::always_inline]] inline void CongestionData::noteAppended(Pylo::IntfId const& intfId, PortData& port,
                                                                Chunk const& tailChunk, Entry const& record,
                                                                Kes::U32 const* entryKey) {
  if (entryKey != nullptr) port.entryIndexIs(*entryKey, EntryIndexOrNull(tailChunk.entryTailIndex().value()));
  port.nextSlotIs(static_cast<Kes::U16>(tailChunk.entrys()));
  ++appends_;
  assertThat(tailChunk.entrys() <= entriesPerChunk, addOperation,
             "tailChunk->entrys() <= ( EntryIndex::max() + 1 )");
  VORN_TRACE(8, "timestamp " << record.timestamp() << " qLen " << record.qLen() << " entry "
                             << tailChunk.entrys() << " port " << intfId);
}

Microseconds CongestionData::updateEntry(Pylo::IntfId intfId, Entry::Ptr const& entry,
                                         Microseconds const& coalesceTime, Kes::U32 entryKey) {
  Entry const& record = valid(entry);
  PortData& port = portFor(intfId, "updateEntry");
  traceTail(port.chunkTail());
  Entry* const matched = latestUnderKey(port, entryKey);
  if (matched != nullptr && merge(*matched, record, coalesceTime)) {
    ++merges_;
    return record.timestamp();
  }
  VORN_TRACE(8, addOperation);
  return append(intfId, port, entry, &entryKey);
}

Microseconds CongestionData::doAddToLog(Pylo::IntfId intfId, Entry::Ptr const& entry) {
  valid(entry);
  VORN_TRACE(8, addOperation);
  return append(intfId, portFor(intfId, "doAddToLog"), entry, /*entryKey=*/nullptr);
}

Microseconds CongestionData::doAddToGlobalLog(Entry::Ptr const& entry) {
  VORN_TRACE(8, "const Vorn::Microseconds Vorn::CongestionData::doAddToGlobalLog(const Ptr&)");
  valid(entry);
  Entry::Ptr const record = entry;
  GlobalBufferChunk::Ptr log = globalBufferChunk();
  if (!log) raiseNull();
  Kes::Seconds const now = clock_->getUTCTime();
  Kes::Seconds const interval = vornConfig_->globalLogInterval();
  if (interval != 0.0 && now > log->lastSyslogTime() + interval) {
    judge(log, now, *record, "", globalThresholds(vornConfig_, vornHwStatus_));
    // The host's code may have put another log in its place, or taken it away.
    log = globalBufferChunk();
    if (!log) raiseNull();
  }
  // Released only when the new record stands in its place: that runs the host's code.
  Entry::Ptr const dropped = log->entrys() >= entriesPerChunk ? log->entryDeq() : nullptr;
  log->entryEnq(record);
  return record->timestamp();
}

}  // namespace Vorn
