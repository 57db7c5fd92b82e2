// SPDX-License-Identifier: Apache-2.0
// Intake and the movement of chunks, case by case; the edges of the reports.

#include <gtest/gtest.h>

#include <regex>

#include "tests/support.h"

namespace {

using namespace Test;
using Vorn::EntryIndex;

class Recorder : public testing::Test, public Bench {
 protected:
  // An interface's chunks, oldest first, each as "QLEN:RECORDS" after its newest record.
  std::string chunks(char const* name) const {
    std::string text;
    for (auto i = port(name)->chunkIterator(); i; ++i) {
      U32 const qLen = (*i)->entry((*i)->entryTailIndex())->qLen();
      text += std::to_string(qLen) + ':' + std::to_string((*i)->entrys()) + ' ';
    }
    EXPECT_EQ(recorder->checkInvariants(), "");
    return text;
  }
};

TEST_F(Recorder, ARecordMayBePassedByTheSlotThatIsAboutToBeCleared) {
  recorder->numSharedChunksIs(1);
  fill("A1", 1);
  fill("A1", 2);
  Vorn::Chunk* const shared = port("A1")->chunkTail();
  Vorn::Entry const* const first = shared->entry(EntryIndex(0)).get();
  append("A1", shared->entry(EntryIndex(0)));
  EXPECT_EQ(port("A1")->chunkTail(), shared);
  EXPECT_EQ(shared->entry(EntryIndex(0)).get(), first);
  EXPECT_EQ(chunks("A1"), "1:500 2:1 ");
  EXPECT_EQ(TestEntry::alive, 501);
}

TEST_F(Recorder, DeletedLogsGiveTheirChunksBack) {
  recorder->numSharedChunksIs(2);
  for (U32 qLen = 1; qLen <= 3; ++qLen) fill("A1", qLen);
  Vorn::PortData::Ptr const kept = port("A1");
  Vorn::Chunk::Ptr const oldestShared = kept->chunk(1);
  kept->mergeEntriesIs(true);
  kept->chunkTobeMergedIs(oldestShared);
  recorder->portDataDel(Pylo::IntfId("A1"));
  EXPECT_FALSE(kept->mergeEntries() || kept->chunkTobeMerged());
  EXPECT_EQ(kept->chunks(), 0U);
  EXPECT_EQ(oldestShared->ptrCount(), 2U);  // here and in the pool
  fill("A1", 4, 501);                       // made again: gets its own old chunk as a free one
  EXPECT_EQ(port("A1")->chunkTail(), oldestShared.get());
  Vorn::Chunk const* const fresh = recorder->allocateChunk(Pylo::IntfId("A1")).get();
  EXPECT_EQ(fresh, port("A1")->chunkTail());
  recorder = nullptr;
  EXPECT_EQ(oldestShared->ptrCount(), 1U);  // no cycle of links holds it
}

TEST_F(Recorder, AChunkMayFindAnOwnerWhileItsLogIsDeleted) {
  recorder->numSharedChunksIs(1);
  fill("", 1);
  TestEntry::Ptr last = record(2, ++time);
  last->onDestroy = [&] { append("", record(9, time)); };
  append("A1", last);
  last = nullptr;
  fill("A1", 2);
  recorder->portDataDel(Pylo::IntfId("A1"));
  EXPECT_EQ(chunks(""), "1:500 9:1 ");
}

TEST_F(Recorder, BrokenInvariantsEndTheProcess) {
  fill("A1", 1);
  EXPECT_DEATH(recorder->handleInitialized(), "Vorn: .*handleInitialized.*: !initialized\\(\\)");
  EXPECT_DEATH(recorder->allocateChunk(Pylo::IntfId("B1")), "Vorn: .*allocateChunk.*: pd");
  EXPECT_DEATH((recorder->numSharedChunksIs(0), fill("A1", 2, 1)), "Vorn: .*allocateChunk.*: newChunk");
  recorder->numSharedChunksIs(1);
  fill("A1", 2);
  fill("B1", 3);
  EXPECT_DEATH((recorder->chunkArray(0)->intfIdIs(Pylo::IntfId("B1")), fill("B1", 4, 1)),
               "allocateChunk.*: dqueuedChunk == newChunk");
  EXPECT_DEATH((port("A1")->chunkDeq(), fill("B1", 4, 1)), "allocateChunk.*: dqueuedChunk->nextChunk\\(\\)");
  port("A1")->chunkDelAll();
  port("A1")->entryIndexIs(7, Vorn::EntryIndexOrNull(0));
  EXPECT_DEATH(update("A1", 1, 1, 1, 7), "updateEntry.*: tailChunk");
  Vorn::Entry::Ptr const plain = Kes::makePtr<Vorn::Entry>(1U, us(1));
  auto const dumper = Kes::makePtr<Vorn::PortMetaDataDumper>();
  EXPECT_DEATH(dumper->dumpStartMetaData(nullptr, stderr, true), "Vorn: .*dumpStartMetaData");
  EXPECT_DEATH(plain->dumpEntry(stderr, "", "", false), "Vorn: .*dumpEntry");
  EXPECT_DEATH(plain->dumpDrops(stderr, "", ""), "Vorn: .*dumpDrops");
  EXPECT_DEATH(plain->dumpTxLatency(stderr, "", ""), "Vorn: .*dumpTxLatency");
  EXPECT_DEATH(plain->dumpGlobalBuffer(stderr, ""), "Vorn: .*dumpGlobalBuffer");
  EXPECT_DEATH(plain->entryToGpbRecord(nullptr), "Vorn: .*entryToGpbRecord");
  EXPECT_DEATH(plain->entryToGpbGlobalBufferRecord(nullptr), "Vorn: .*entryToGpbGlobalBufferRecord");
  // Leave no cycle of links behind.
  recorder->chunkArray(0)->doClear();
  recorder->portDataDelAll();
}

// What the other tests rely on: each way of breaking logs and pool is told, and mending it too.
TEST_F(Recorder, InvariantsAreLookedAt) {
  fill("A1", 1, 501);
  Vorn::PortData::Ptr const log = port("A1");
  Vorn::Chunk::Ptr const first(log->chunk(0)), shared(log->chunk(1)), stranger = Vorn::Chunk::ChunkIs();
  Pylo::IntfId const a1("A1"), b1("B1");
  stranger->intfIdIs(b1);
  EXPECT_EQ(recorder->chunkArrayModificationCount(), 1U);
  std::string told;
  auto const look = [&] { told += recorder->checkInvariants() + '\n'; };
  for (Vorn::Chunk::Ptr const& chunk : {shared, first, stranger})
    recorder->chunkArrayEnq(chunk), look(), recorder->chunkArrayDel(1), look();
  recorder->chunkArrayDel(0), look(), recorder->chunkArrayEnq(shared), look();
  first->intfIdIs(b1), look(), first->intfIdIs(a1), look();
  shared->prevChunkIs(nullptr), look(), shared->prevChunkIs(first), look();
  first->nextChunkIs(nullptr), look(), first->nextChunkIs(shared), look();
  log->entryIndexIs(3, Vorn::EntryIndexOrNull(499)), look(), log->entryIndexIs(3, {}), look();
  EXPECT_EQ(told, R"(a chunk stands in the pool twice

a private chunk is in the pool

a free chunk names an owner

a shared chunk is not in the pool

A1: a chunk names another owner

A1: prevChunk is not the older neighbour

A1: nextChunk is not the newer neighbour

A1: an entry index points outside of the newest chunk

)");
}

// What the model does not reach: differences that wrap, and positions that a host spoils.
TEST_F(Recorder, KeysWithoutAFittingRecordMergeNothing) {
  update("A1", 2, 1028, 0, 2);
  update("A1", 2, 1027, ~U64{0}, 2);
  Vorn::Chunk::Ptr const chunk(port("A1")->chunkTail());
  EXPECT_EQ(chunk->entrys(), 1U);
  EXPECT_EQ(chunk->entry(EntryIndex(0))->duration().value(), ~U64{0});
  Vorn::EntryIndexOrNull rejected;
  EXPECT_THROW(rejected.valueIs(600), Kes::RangeException);
  port("A1")->entryIndexIs(1, rejected);
  EXPECT_EQ(raised([&] { update("A1", 6, 1000, 10, 1); }),
            "EntryIndex::value < 0 or > EntryIndex::max not allowed");
  EXPECT_EQ(chunk->entrys(), 1U);
  fill("A1", 9, 499);
  chunk->entryDeq();  // the queue rolls on: the newest stands in slot 0 when it is full
  update("A1", 7, ++time, 10, 4);
  EXPECT_EQ(port("A1")->entryIndex(4).value(), 0);
  EXPECT_EQ(chunk->entry(EntryIndex(0))->qLen(), 7U);
}

TEST_F(Recorder, HostsMayDeleteThePortWhileItIsJudgedOrEmptied) {
  config->logIntervalIs(1);
  TestEntry::Ptr const entry = record(1, 1);
  entry->alwaysLogIs(true);
  entry->onSyslog = [&] {
    recorder->portDataDel(Pylo::IntfId("A1"));
    append("A1", record(9, 1));
  };
  fill("A1", 2, 3);
  append("A1", entry);
  EXPECT_EQ(chunks("A1"), "1:2 ");
  recorder->updateEntry(Pylo::IntfId("A1"), entry, us(0), 1);
  recorder->updateEntry(Pylo::IntfId("A1"), entry, us(0), 2);
  EXPECT_EQ(chunks("A1"), "1:2 ");
  EXPECT_TRUE(port("A1")->entryIndex(1).isNull());
  EXPECT_EQ(port("A1")->entryIndex(2).value(), 1);
  entry->onSyslog = nullptr;

  // The destructor of a record in a stolen chunk deletes the interface that takes it.
  recorder->portDataDelAll();
  recorder->numSharedChunksIs(1);
  fill("A1", 1);
  TestEntry::Ptr last = record(2, ++time);
  last->onDestroy = [&] { recorder->portDataDel(Pylo::IntfId("B1")); };
  append("A1", last);
  last = nullptr;
  fill("B1", 3, 501);
  EXPECT_EQ(chunks("B1"), "3:1 ");
  EXPECT_EQ(chunks("A1"), "1:500 ");
}

TEST_F(Recorder, HostsMayReplaceTheGlobalLogWhileARecordIsJudged) {
  config->globalLogIntervalIs(1);
  Vorn::Entry::Ptr given;
  auto const judged = [&](std::function<void()> const& host) {
    TestEntry::Ptr entry = record(9, ++time);
    entry->onSyslog = host;
    given = entry;
    entry = nullptr;
    clock->utcTimeIs(clock->utcTime() + 50);
    return raised([&] { EXPECT_EQ(recorder->doAddToGlobalLog(given).value(), time); });
  };
  recorder->allocateGlobalChunk();
  auto const first = recorder->globalBufferChunk();
  auto const second = Kes::makePtr<Vorn::GlobalBufferChunk>();
  EXPECT_EQ(judged([&] { recorder->globalBufferChunkIs(second); }), "");
  EXPECT_EQ(judged([&] { given = nullptr; }), "");
  EXPECT_EQ(judged([&] { recorder->globalBufferChunkIs(nullptr); }), "null ValidPtr");
  EXPECT_EQ(first->entrys(), 0U);
  EXPECT_EQ(second->entrys(), 2U);
}

// Records must not stay in slots that the queue does not know of: nobody would release them.
TEST(Chunk, EverySlotIsReleasedWhateverTheQueueSays) {
  auto const chunk = Vorn::Chunk::ChunkIs();
  auto const refused = [&] {
    for (U32 i = 0; i < 3; ++i) chunk->entryEnq(record(i, i));
    EXPECT_EQ(raised([&] { chunk->entryMetadataIs({EntryIndex(100), 501}); }), "bad size");
  };
  refused();
  for (U32 i = 0; i < 500; ++i) chunk->entryDeq(), chunk->entryEnq(record(i, i));
  EXPECT_LE(TestEntry::alive, 4);  // the appends came round to the slots
  chunk->entryDelAll();
  EXPECT_EQ(TestEntry::alive, 0);
  refused();
  chunk->doClear();
  EXPECT_EQ(TestEntry::alive, 0);

  // Appends while a restore releases slots, and while all records go: the new ones belong to the queue.
  for (bool const restores : {true, false}) {
    chunk->entryMetadataIs({EntryIndex(0), 0});
    for (U32 i = 0; i < 5; ++i) {
      TestEntry::Ptr const entry = record(i, i);
      entry->onDestroy = [&] { chunk->entryEnq(record(9, 9)); };
      chunk->entryEnq(entry);
    }
    restores ? chunk->entryMetadataIs({EntryIndex(7), 0}) : chunk->entryDelAll();
    EXPECT_EQ(chunk->entrys(), 5U);
    EXPECT_TRUE(chunk->entryInvariantsHold());
    EXPECT_EQ(TestEntry::alive, 5);
    chunk->entryDelAll();
    EXPECT_EQ(TestEntry::alive, 0);
  }

  // A restored count may end in holes; nobody meets them.
  chunk->entryEnq(record(1, 1));
  chunk->entryMetadataIs({chunk->entryMetadata().head, 3});
  U32 met = 0;
  for (Vorn::Entry::Ptr const& entry : chunk->entryIterator()) met += entry ? 1U : 100U;
  EXPECT_EQ(met, 1U);
}

TEST(Chunk, IsOneOfALog_andEmptiedWhileItIsWalked) {
  auto const chunk = Vorn::Chunk::ChunkIs();
  for (U32 i = 0; i < 3; ++i) chunk->entryEnq(record(i, i));
  auto at = chunk->entryIterator();
  EXPECT_EQ(chunk->entryDel(at)->qLen() + 10 * (*at)->qLen(), 10U);
  Bench bench;
  bench.append("A1", record(1, 1));
  bench.port("A1")->chunkEnq(chunk);
  EXPECT_EQ(bench.port("A1")->chunkTail(), chunk.get());
}

TEST(Chunk, RejectedIndexesTouchNothing) {
  auto const chunk = Vorn::Chunk::ChunkIs();
  EntryIndex index;
  auto const rejected = [](auto const& operation) {
    EXPECT_EQ(raised(operation), "EntryIndex::value < 0 or > EntryIndex::max not allowed");
  };
  rejected([&] { index.valueIs(600); });
  rejected([&] { chunk->entry(index); });
  rejected([&] { chunk->entryDel(index); });
  rejected([&] { chunk->entryIs(index, record(1, 1)); });
  rejected([&] { chunk->entryIs(index, nullptr); });
  rejected([&] { chunk->entryMetadataIs({index, 1}); });
  EXPECT_EQ(chunk->entrys(), 0U);
}

TEST(Chunk, MayLoseItsLastHolderWhileItIsEmptied) {
  auto holder = Vorn::Chunk::ChunkIs();
  holder->nextChunkIs(Vorn::Chunk::ChunkIs());
  Vorn::Chunk* chunk = holder->nextChunk().get();
  chunk->prevChunkIs(holder);
  holder = nullptr;
  chunk->doClear();  // its neighbour, which alone holds it, is held by it alone
  holder = Vorn::Chunk::ChunkIs();
  holder->nextChunkIs(holder);
  chunk = holder.get();
  holder = nullptr;
  chunk->doClear();
  auto const lost = [&](auto const& operation) {
    holder = Vorn::Chunk::ChunkIs();
    for (U32 i = 0; i < 2; ++i) {
      TestEntry::Ptr const entry = record(i, i);
      entry->onDestroy = [&] { holder = nullptr; };
      holder->entryEnq(entry);
    }
    operation(*holder);
    EXPECT_EQ(holder, nullptr);
    EXPECT_EQ(TestEntry::alive, 0);
  };
  lost([](Vorn::Chunk& c) { c.doClear(); });
  lost([](Vorn::Chunk& c) { c.entryDelAll(); });
  lost([](Vorn::Chunk& c) { c.entryMetadataIs({EntryIndex(0), 0}); });
  lost([](Vorn::Chunk& c) { c.entryIs(EntryIndex(0), record(1, 1)); });
  lost([](Vorn::Chunk& c) { c.entryDel(EntryIndex(0)); });
}

TEST_F(Recorder, StatisticsOfEqualNumbersComeInNaturalOrder) {
  for (char const* name : {"Et1/2/010", "Et1/2/10", "Et1/2/3/4"})
    recorder->portDataIs(Pylo::IntfId(name))
        ->newPortMetaData(Vorn::portMetaDataFactory(1, Pylo::IntfId(name)))
        ->counterIs(1);
  std::string const report = written([&](std::FILE* out) { recorder->doDumpStatistics(out, "", ""); });
  EXPECT_LT(report.find("Et1/2/3/4, 1, 1\nEt1/2/10, 1, 1\nEt1/2/010, 1, 1\n"), report.size()) << report;
}

// The record behind the last one that was tried, in the order of the report.
TEST_F(Recorder, CursorsStandWhereAReportHasEnded) {
  fill("Et1", 1, 2);
  TestEntry::Ptr const full = record(2, ++time);
  append("Et1", full);
  fill("Et1", 3, 502);
  auto const cursorAfter = [&](char const* command) {
    report(command);
    Vorn::PortData::Ptr const at = port("Et1");
    return std::pair(at->mergeEntries() ? at->chunkTobeMerged()->entrys() : 0, U32{at->entryTobeMerged()});
  };
  EXPECT_EQ(cursorAfter("-s1"), std::pair(5U, 2U));
  EXPECT_EQ(cursorAfter("").first, 0U);
  full->result = -1;
  EXPECT_EQ(cursorAfter(""), std::pair(500U, 1U));
  EXPECT_EQ(cursorAfter("csv"), std::pair(500U, 3U));
}

TEST_F(Recorder, NullAndEarlyRecordsChangeNothing) {
  Vorn::Entry::Ptr const none;
  Pylo::IntfId const a1("A1");
  auto const refused = [](auto const& operation) { EXPECT_EQ(raised(operation), "null ValidPtr"); };
  refused([&] { recorder->doAddToLog(a1, none); });
  refused([&] { recorder->updateEntry(a1, none, us(1), 1); });
  refused([&] { recorder->doAddToGlobalLog(record(1, 1)); });
  refused([&] { recorder->chunkArrayEnq(nullptr); });
  recorder->allocateGlobalChunk();
  refused([&] { recorder->doAddToGlobalLog(none); });
  EXPECT_EQ(recorder->globalBufferChunk()->entrys() + recorder->globalBufferChunk()->numEntriesTobeMerged(),
            0U);
  EXPECT_EQ(port("A1"), nullptr);
  auto const log = recorder->portDataIs(a1);
  EXPECT_TRUE(raised([&] { log->portMetaDataIs(nullptr); }).starts_with("null _portMetaData"));
  recorder->doMergeAndDumpEntries(nullptr, "", "", "");
  EXPECT_EQ(recorder->doDumpEntriesInCSVFormat(nullptr, "", "", true), -1);
  EXPECT_EQ(traced.size(), 2U);
  EXPECT_EQ(TestEntry::alive, 0);
}

struct Mourned final : Vorn::PortMetaData {
  Mourned() : PortMetaData(1, Pylo::IntfId("A1")) { timeOfCongestionStartIs(us(1)); }
  ~Mourned() override { std::_Exit(7); }
};

TEST_F(Recorder, StartRecordsStayWithTheRecorder) {
  auto const data = Vorn::portMetaDataFactory(1, Pylo::IntfId("A1"));
  data->timeOfCongestionStartIs(us(1));
  append("A1", record(1, 1000));
  port("A1")->newPortMetaData(data);
  report("");
  EXPECT_EQ(Vorn::startEntry, std::vector{data});
  EXPECT_THROW(report("-i["), std::regex_error);
  EXPECT_TRUE(Vorn::startEntry.empty());
  // A host that ends without destroying its recorder has no objects destroyed behind its own statics.
  static Vorn::CongestionData* kept = nullptr;
  EXPECT_EXIT(
      {
        port("A1")->portMetaDataIs(Kes::makePtr<Mourned>());
        report("");
        port("A1")->portMetaDataDel(1);  // the list alone holds it
        kept = recorder.release();
        std::exit(kept == nullptr);
      },
      testing::ExitedWithCode(0), "");
  recorder = nullptr;
  EXPECT_EQ(data->ptrCount(), 1U);
}

}  // namespace
