// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/TypeTable.h"

#include "Vorn/GenericIf.h"

// The attributes of every type, in declared order: one line each.
namespace Vorn {

using Kes::Define;
using Kes::OpCode;
using Kes::pick;
using Kes::Type;

namespace {

Entry::Ptr newEntry(Kes::U32 qLen, Microseconds timestamp) { return Kes::makePtr<Entry>(qLen, timestamp); }

GlobalBufferChunk::Ptr newGlobalBufferChunk() { return Kes::makePtr<GlobalBufferChunk>(); }

PortMetaDataDumper::Ptr newPortMetaDataDumper() { return Kes::makePtr<PortMetaDataDumper>(); }

PortData::Ptr newPortData(Pylo::IntfId intfId) { return Kes::makePtr<PortData>(intfId); }

CongestionData::Ptr newCongestionData(Hardware::Status::PtrConst vornHwStatus, Clock::Ptr clock,
                                      Config::PtrConst vornConfig,
                                      PortMetaDataDumper::PtrConst portMetaDataDumper) {
  return Kes::makePtr<CongestionData>(vornHwStatus, clock, vornConfig, portMetaDataDumper);
}

// Access by name has no nodes: it answers the chunk that the new one holds.
Chunk::Ptr insertChunk(PortData& port, Kes::U32 key, Chunk::Ptr const& chunk) {
  return port.newChunk(key, chunk).value;
}

// Both kinds of chunk have it.
template <class C>
Kes::Attribute entryCollection() {
  using Define = Define<C>;
  return Define::template collection<&C::entryIterator>(
      "entry",
      {Define::template op<OpCode::member, &C::entry>("key"),
       Define::template op<OpCode::memberIs, &C::entryIs>("key", "value"),
       Define::template op<OpCode::memberDel, pick<EntryIndex>(&C::entryDel)>("key"),
       Define::template op<OpCode::memberDelAll, &C::entryDelAll>(),
       Define::template op<OpCode::enq, &C::entryEnq>("value"),
       Define::template op<OpCode::deq, &C::entryDeq>(), Define::template op<OpCode::count, &C::entrys>(),
       Define::template op<OpCode::modificationCount, &C::entryModificationCount>(),
       Define::template op<OpCode::metadata, &C::entryMetadata>(),
       Define::template op<OpCode::metadataIs, &C::entryMetadataIs>("value"),
       Define::template op<OpCode::notify, &C::entryNotify>("key")});
}

}  // namespace

Type const& Microseconds::GenericIf_::staticType() {
  using Define = Define<Microseconds>;
  static Type const type(
      {.name = "Vorn::Microseconds",
       .attributes = {Define::attribute<&Microseconds::value, &Microseconds::valueIs>("value"),
                      Define::constant<&Microseconds::min>("min"),
                      Define::constant<&Microseconds::max>("max"),
                      Define::constant<&Microseconds::microsecondsInSecond>("microsecondsInSecond"),
                      Define::function<&Microseconds::fromSeconds>("fromSeconds", "seconds"),
                      Define::function<&Microseconds::toSeconds>("toSeconds", "usec")},
       .constructor = Define::valueConstructor()});
  return type;
}

Type const& Entry::GenericIf_::staticType() {
  using Define = Define<Entry>;
  static Type const type(
      {.name = "Vorn::Entry",
       .base = &Kes::ptrInterfaceType,
       .attributes =
           {Define::attribute<&Entry::qLen, &Entry::qLenIs>("qLen"),
            Define::attribute<&Entry::timestamp, &Entry::timestampIs>("timestamp"),
            Define::attribute<&Entry::duration, &Entry::durationIs>("duration"),
            Define::attribute<&Entry::alwaysLog, &Entry::alwaysLogIs>("alwaysLog"),
            Define::function<&Entry::dumpEntry>("dumpEntry", "filePtr", "elapsedTime", "intfName",
                                                "cvsFormat"),
            Define::function<&Entry::dumpDrops>("dumpDrops", "filePtr", "elapsedTime", "intfName"),
            Define::function<&Entry::doSyslog>("doSyslog", "intfName", "lowThreshold", "highThreshold"),
            Define::function<&Entry::dumpTxLatency>("dumpTxLatency", "filePtr", "elapsedTime", "intfName"),
            Define::function<&Entry::dumpGlobalBuffer>("dumpGlobalBuffer", "filePtr", "elapsedTime"),
            Define::function<&Entry::entryToGpbRecord>("entryToGpbRecord", "recordPtr"),
            Define::function<&Entry::entryToGpbGlobalBufferRecord>("entryToGpbGlobalBufferRecord",
                                                                   "recordPtr")},
       .constructor = Define::constructor<&newEntry>("qLen", "timestamp"),
       .wrap = &Define::wrap});
  return type;
}

Type const& EntryIndex::GenericIf_::staticType() {
  using Define = Define<EntryIndex>;
  static Type const type(
      {.name = "Vorn::EntryIndex",
       .attributes = {Define::attribute<&EntryIndex::value, &EntryIndex::valueIs, &EntryIndex::valueInc>(
                          "value"),
                      Define::constant<&EntryIndex::max>("max")},
       .constructor = Define::valueConstructor()});
  return type;
}

Type const& EntryIndexOrNull::GenericIf_::staticType() {
  using Define = Define<EntryIndexOrNull>;
  static Type const type(
      {.name = "Vorn::EntryIndexOrNull",
       .attributes = {Define::attribute<&EntryIndexOrNull::value, &EntryIndexOrNull::valueIs>("value"),
                      Define::constant<&EntryIndexOrNull::null>("null")},
       .constructor = Define::valueConstructor()});
  return type;
}

Type const& Chunk::GenericIf_::staticType() {
  using Define = Define<Chunk>;
  static Type const type(
      {.name = "Vorn::Chunk",
       .base = &Kes::ptrInterfaceType,
       .attributes = {Define::attribute<&Chunk::prevChunk, &Chunk::prevChunkIs>("prevChunk"),
                      Define::attribute<&Chunk::nextChunk, &Chunk::nextChunkIs>("nextChunk"),
                      Define::attribute<&Chunk::intfId, &Chunk::intfIdIs>("intfId"), entryCollection<Chunk>(),
                      Define::procedure<&Chunk::doClear>("doClear")},
       .constructor = Define::constructor<&Chunk::ChunkIs>(),
       .wrap = &Define::wrap});
  return type;
}

Type const& GlobalBufferChunk::GenericIf_::staticType() {
  using C = GlobalBufferChunk;
  using Define = Define<C>;
  static Type const type(
      {.name = "Vorn::GlobalBufferChunk",
       .base = &Kes::ptrInterfaceType,
       .attributes = {entryCollection<C>(),
                      Define::attribute<&C::entryTobeMerged, &C::entryTobeMergedIs>("entryTobeMerged"),
                      Define::attribute<&C::numEntriesTobeMerged, &C::numEntriesTobeMergedIs>(
                          "numEntriesTobeMerged"),
                      Define::attribute<&C::duration, &C::durationIs>("duration"),
                      Define::attribute<&C::maxBuffer, &C::maxBufferIs>("maxBuffer"),
                      Define::attribute<&C::timeOfMaxBuffer, &C::timeOfMaxBufferIs>("timeOfMaxBuffer"),
                      Define::attribute<&C::lastSyslogTime, &C::lastSyslogTimeIs>("lastSyslogTime"),
                      Define::attribute<&C::counter, &C::counterIs, &C::counterInc>("counter")},
       .constructor = Define::constructor<&newGlobalBufferChunk>(),
       .wrap = &Define::wrap});
  return type;
}

Type const& PortMetaData::GenericIf_::staticType() {
  using C = PortMetaData;
  using Define = Define<C>;
  static Type const type(
      {.name = "Vorn::PortMetaData",
       .base = &Kes::ptrInterfaceType,
       .keyAttribute = "identifier",
       .attributes = {Define::fixed<&C::identifier>("identifier"),
                      Define::attribute<&C::counter, &C::counterIs, &C::counterInc>("counter"),
                      Define::fixed<&C::intfId>("intfId"),
                      Define::attribute<&C::maxQLen, &C::maxQLenIs>("maxQLen"),
                      Define::attribute<&C::timeOfMaxQLen, &C::timeOfMaxQLenIs>("timeOfMaxQLen"),
                      Define::attribute<&C::timeOfCongestionStart, &C::timeOfCongestionStartIs>(
                          "timeOfCongestionStart"),
                      Define::attribute<&C::cardSlot, &C::cardSlotIs>("cardSlot"),
                      Define::attribute<&C::chipIndex, &C::chipIndexIs>("chipIndex"),
                      Define::attribute<&C::numCpuQueues, &C::numCpuQueuesIs>("numCpuQueues"),
                      Define::attribute<&C::fabricPeerIntf, &C::fabricPeerIntfIs>("fabricPeerIntf")},
       .constructor = Define::constructor<&portMetaDataFactory>("identifier", "intfId"),
       .wrap = &Define::wrap});
  return type;
}

Type const& PortMetaDataDumper::GenericIf_::staticType() {
  using C = PortMetaDataDumper;
  using Define = Define<C>;
  static Type const type(
      {.name = "Vorn::PortMetaDataDumper",
       .base = &Kes::ptrInterfaceType,
       .attributes = {Define::function<&C::dumpStartMetaData>("dumpStartMetaData", "portMetaData", "filePtr",
                                                              "csvFormat"),
                      Define::function<&C::dumpStatistics>("dumpStatistics", "portMetaData", "filePtr")},
       .constructor = Define::constructor<&newPortMetaDataDumper>(),
       .wrap = &Define::wrap});
  return type;
}

Type const& PortData::GenericIf_::staticType() {
  using C = PortData;
  using Define = Define<C>;
  static Type const type(
      {.name = "Vorn::PortData",
       .base = &Kes::ptrInterfaceType,
       .keyAttribute = "intfId",
       .attributes =
           {Define::fixed<&C::intfId>("intfId"),
            Define::collection<&C::chunkIterator>(
                "chunk",
                {Define::op<OpCode::member, &C::chunk>("key"),
                 Define::op<OpCode::memberIs, &C::chunkIs>("key", "value"),
                 Define::op<OpCode::newMember, &insertChunk>("key", "value"),
                 Define::op<OpCode::memberDel, pick<Kes::U32>(&C::chunkDel)>("key"),
                 Define::op<OpCode::memberDelAll, &C::chunkDelAll>(),
                 Define::op<OpCode::enq, &C::chunkEnq>("value"), Define::op<OpCode::deq, &C::chunkDeq>(),
                 Define::op<OpCode::count, &C::chunks>(), Define::op<OpCode::metadata, &C::chunkMetadata>(),
                 Define::op<OpCode::metadataIs, &C::chunkMetadataIs>("value"),
                 Define::op<OpCode::notify, &C::chunkNotify>("key")}),
            Define::attribute<&C::lastSyslogTime, &C::lastSyslogTimeIs>("lastSyslogTime"),
            Define::attribute<&C::mergeEntries, &C::mergeEntriesIs>("mergeEntries"),
            Define::attribute<&C::chunkTobeMerged, &C::chunkTobeMergedIs>("chunkTobeMerged"),
            Define::attribute<&C::entryTobeMerged, &C::entryTobeMergedIs>("entryTobeMerged"),
            Define::collection<&C::entryIndexIterator>(
                "entryIndex", {Define::op<OpCode::member, &C::entryIndex>("key"),
                               Define::op<OpCode::memberIs, &C::entryIndexIs>("key", "value"),
                               Define::op<OpCode::newMember, &C::newEntryIndex>("key", "value"),
                               Define::op<OpCode::memberDel, pick<Kes::U32>(&C::entryIndexDel)>("key"),
                               Define::op<OpCode::memberDelAll, &C::entryIndexDelAll>(),
                               Define::op<OpCode::notify, &C::entryIndexNotify>("key")}),
            Define::ownedCollection<&C::portMetaDataIterator>(
                "portMetaData", {Define::op<OpCode::member, &C::portMetaData>("key"),
                                 Define::op<OpCode::memberIs, &C::portMetaDataIs>("value"),
                                 Define::op<OpCode::newMember, &C::newPortMetaData>("value"),
                                 Define::op<OpCode::memberDel, pick<Kes::U32>(&C::portMetaDataDel)>("key"),
                                 Define::op<OpCode::memberDelAll, &C::portMetaDataDelAll>(),
                                 Define::op<OpCode::notify, &C::portMetaDataNotify>("key")})},
       .constructor = Define::constructor<&newPortData>("intfId"),
       .wrap = &Define::wrap});
  return type;
}

Type const& Clock::GenericIf_::staticType() {
  using Define = Define<Clock>;
  static Type const type({.name = "Vorn::Clock",
                          .base = &Kes::ptrInterfaceType,
                          .attributes = {Define::procedure<&Clock::getUTCTime>("getUTCTime"),
                                         Define::procedure<&Clock::getTime>("getTime")},
                          .constructor = Define::constructor<&clockFactory>(),
                          .wrap = &Define::wrap});
  return type;
}

Type const& TestClock::GenericIf_::staticType() {
  using Define = Define<TestClock>;
  static Type const type(
      {.name = "Vorn::TestClock",
       .base = &Clock::GenericIf_::staticType,
       .attributes = {Define::procedure<&TestClock::getUTCTime>("getUTCTime"),
                      Define::procedure<&TestClock::getTime>("getTime"),
                      Define::attribute<&TestClock::utcTime, &TestClock::utcTimeIs>("utcTime"),
                      Define::attribute<&TestClock::time, &TestClock::timeIs>("time")},
       .constructor = Define::constructor<&testClockFactory>(),
       .wrap = &Define::wrap});
  return type;
}

Type const& CongestionData::GenericIf_::staticType() {
  using C = CongestionData;
  using Define = Define<C>;
  static Type const type(
      {.name = "Vorn::CongestionData",
       .base = &Kes::ptrInterfaceType,
       .attributes =
           {Define::fixed<&C::vornHwStatus>("vornHwStatus"),
            Define::fixed<&C::clock>("clock"),
            Define::fixed<&C::vornConfig>("vornConfig"),
            Define::fixed<&C::portMetaDataDumper>("portMetaDataDumper"),
            Define::ownedCollection<&C::portDataIterator>(
                "portData", {Define::op<OpCode::member, &C::portData>("key"),
                             Define::op<OpCode::memberIs, &C::portDataIs>("key"),
                             Define::op<OpCode::memberDel, pick<Pylo::IntfId const&>(&C::portDataDel)>("key"),
                             Define::op<OpCode::memberDelAll, &C::portDataDelAll>()}),
            Define::collection<&C::chunkArrayIterator>(
                "chunkArray", {Define::op<OpCode::member, &C::chunkArray>("key"),
                               Define::op<OpCode::memberIs, &C::chunkArrayIs>("key", "value"),
                               Define::op<OpCode::memberDel, &C::chunkArrayDel>("key"),
                               Define::op<OpCode::memberDelAll, &C::chunkArrayDelAll>(),
                               Define::op<OpCode::enq, &C::chunkArrayEnq>("value"),
                               Define::op<OpCode::deq, &C::chunkArrayDeq>(),
                               Define::op<OpCode::count, &C::chunkArrayCount>(),
                               Define::op<OpCode::modificationCount, &C::chunkArrayModificationCount>(),
                               Define::op<OpCode::metadata, &C::chunkArrayMetadata>(),
                               Define::op<OpCode::metadataIs, &C::chunkArrayMetadataIs>("value")}),
            Define::attribute<&C::numSharedChunks, &C::numSharedChunksIs>("numSharedChunks"),
            Define::attribute<&C::globalBufferChunk, &C::globalBufferChunkIs>("globalBufferChunk"),
            Define::function<&C::allocateChunk>("allocateChunk", "intfId"),
            Define::function<&C::updateEntry>("updateEntry", "intfId", "entry", "coalesceTime", "entryKey"),
            Define::function<&C::doAddToLog>("doAddToLog", "intfId", "entry"),
            Define::function<&C::doAddToGlobalLog>("doAddToGlobalLog", "entry"),
            Define::procedure<&C::allocateGlobalChunk>("allocateGlobalChunk"),
            Define::function<&C::doMergeAndDumpEntries>("doMergeAndDumpEntries", "voidPtr", "cmd",
                                                        "reportHeader", "footer"),
            Define::function<&C::doDumpEntriesInCSVFormat>("doDumpEntriesInCSVFormat", "voidPtr",
                                                           "reportHeader", "footer", "showAll"),
            Define::function<&C::handleCommand>("handleCommand", "socket", "command", "reportHeader",
                                                "footer"),
            Define::function<&C::doDumpStatistics>("doDumpStatistics", "voidPtr", "reportHeader", "footer"),
            Define::function<&C::doDumpGlobalBufferChunk>("doDumpGlobalBufferChunk", "voidPtr",
                                                          "reportHeader", "footer"),
            Define::function<&C::doMergeAndDumpGlobalChunk>("doMergeAndDumpGlobalChunk", "filePtr",
                                                            "entryPtr", "csv"),
            Define::attribute<&C::initialized, &C::initializedIs>("initialized"),
            Define::procedure<&C::handleInitialized>("handleInitialized")},
       .constructor = Define::constructor<&newCongestionData>("vornHwStatus", "clock", "vornConfig",
                                                              "portMetaDataDumper"),
       .wrap = &Define::wrap});
  return type;
}

}  // namespace Vorn

namespace Kes {

namespace {

template <class Metadata, auto first, auto second>
struct TwoNumbers {
  using First = std::decay_t<decltype(Metadata{}.*first)>;
  using Second = std::decay_t<decltype(Metadata{}.*second)>;

  static String write(Metadata const& value) {
    return format("%s,%s", Text<First>::write(value.*first), Text<Second>::write(value.*second));
  }
  static Metadata read(StrepPos& pos, StrepPos end) {
    Metadata value;
    value.*first = Text<First>::read(pos, end);
    if (pos == end || *pos != ',') throw ParseException("no comma between two numbers");
    value.*second = Text<Second>::read(++pos, end);
    return value;
  }
};

using Entries = Vorn::EntryQueue::EntryMetadata;
using Chunks = Vorn::PortData::ChunkMetadata;
using Pool = Vorn::CongestionData::ChunkArrayMetadata;
using EntriesText = TwoNumbers<Entries, &Entries::head, &Entries::count>;
using ChunksText = TwoNumbers<Chunks, &Chunks::headKey, &Chunks::nextKey>;
using PoolText = TwoNumbers<Pool, &Pool::head, &Pool::capacity>;

}  // namespace

String Text<Entries>::write(Entries const& value) { return EntriesText::write(value); }
Entries Text<Entries>::read(StrepPos& pos, StrepPos end) { return EntriesText::read(pos, end); }
String Text<Chunks>::write(Chunks const& value) { return ChunksText::write(value); }
Chunks Text<Chunks>::read(StrepPos& pos, StrepPos end) { return ChunksText::read(pos, end); }
String Text<Pool>::write(Pool const& value) { return PoolText::write(value); }
Pool Text<Pool>::read(StrepPos& pos, StrepPos end) { return PoolText::read(pos, end); }

Pylo::IntfId Text<Pylo::IntfId>::read(StrepPos& pos, StrepPos end) {
  std::string_view const name(pos, static_cast<std::size_t>(end - pos));
  pos = end;
  return Pylo::IntfId(name);
}

Type const& GenericOf<Pylo::IntfId>::type() {
  static Type const type({.name = "Pylo::IntfId"});
  return type;
}
Type const& GenericOf<Entries>::type() {
  static Type const type({.name = "Vorn::EntryMetadata"});
  return type;
}
Type const& GenericOf<Chunks>::type() {
  static Type const type({.name = "Vorn::ChunkMetadata"});
  return type;
}
Type const& GenericOf<Pool>::type() {
  static Type const type({.name = "Vorn::ChunkArrayMetadata"});
  return type;
}
Type const& GenericOf<Vorn::Config>::type() {
  static Type const type(
      {.name = "Vorn::Config", .base = &ptrInterfaceType, .wrap = &Define<Vorn::Config>::wrap});
  return type;
}
Type const& GenericOf<Vorn::Hardware::Status>::type() {
  static Type const type({.name = "Vorn::Hardware::Status",
                          .base = &ptrInterfaceType,
                          .wrap = &Define<Vorn::Hardware::Status>::wrap});
  return type;
}

}  // namespace Kes
