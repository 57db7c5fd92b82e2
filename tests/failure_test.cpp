// SPDX-License-Identifier: Apache-2.0
// What goes wrong around the recorder: streams and allocations that fail, and hosts that change it while it
// runs their code.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "tests/FailingAllocations.h"
#include "tests/support.h"

namespace {

using namespace Test;
using Kes::GenericIf;
using Kes::OpCode;
using Kes::toGeneric;
using Vorn::EntryIndex;

Pylo::IntfId const a1("A1");
Pylo::IntfId const b1("B1");

// A stream that takes some bytes, fails to write the next, and takes everything behind that write.
struct Refusing {
  Refusing(std::size_t bytes, int buffering) : room(bytes) {
    std::setvbuf(stream, nullptr, buffering, BUFSIZ);
  }
  ~Refusing() { std::fclose(stream); }
  static ssize_t write(void* cookie, char const* data, std::size_t size) {
    auto& self = *static_cast<Refusing*>(cookie);
    std::size_t const taken = std::min(size, self.room);
    self.room = taken < size ? forever : self.room - taken;
    self.text.append(data, taken);
    errno = ENOSPC;
    return static_cast<ssize_t>(taken);
  }
  std::size_t room;
  std::string text{};
  std::FILE* stream = ::fopencookie(this, "w", {nullptr, &write, nullptr, nullptr});
};

// Records, start records, statistics and global records.
struct Full : Bench {
  Full() {
    recorder->allocateGlobalChunk();
    recorder->globalBufferChunk()->counterIs(6);
    for (char const* name : {"A1", "B1"}) {
      fill(name, 5, 2);
      recorder->doAddToGlobalLog(record(8, time));
      for (U32 const identifier : {1U, 3U}) {
        auto const data =
            port(name)->newPortMetaData(Vorn::portMetaDataFactory(identifier, Pylo::IntfId(name)));
        data->counterIs(4);
        data->timeOfCongestionStartIs(us(++start));
      }
    }
  }
  U64 start = 900;
};

TEST(Streams, MayRefuseAnyWriteOfAnyReport) {
  Full bench;
  std::vector<std::string> const full = {"0 dumpStatistics : No space left on device"};
  std::vector<std::string> const failed = {full[0], "0 doDumpStatistics : statistics dump failed"};
  for (std::string const command : {"", "-a", "-d", "-l", "csv", "csv -a", "-c", "-b"}) {
    std::string const whole = bench.report(command);
    std::size_t const lines = whole.find(header) + std::strlen(header);
    for (std::size_t room = 0; room <= whole.size(); ++room) {
      traced.clear();
      Refusing unbuffered(room, _IONBF);
      bench.recorder->doMergeAndDumpEntries(unbuffered.stream, command, header, footer);
      bool const stops = command == "-c" && room >= lines && room < whole.size() - std::strlen(footer);
      EXPECT_TRUE(stops ? unbuffered.text == whole.substr(0, room)
                        : unbuffered.text.starts_with(whole.substr(0, room)))
          << command << room;
      EXPECT_EQ(traced, !stops                          ? std::vector<std::string>()
                        : room < whole.find("\nGlobal") ? failed
                                                        : full)
          << command << room;
      EXPECT_EQ(bench.recorder->checkInvariants(), "");
      Refusing buffered(room, _IOFBF);
      bench.recorder->doMergeAndDumpEntries(buffered.stream, command, header, footer);
      std::fflush(buffered.stream);
      EXPECT_TRUE(buffered.text.starts_with(whole.substr(0, room))) << command << room;
    }
    EXPECT_EQ(bench.report(command), whole) << "a report that failed leaves nothing behind";
  }
}

TEST(Streams, CsvAnswersTheFootersLengthOrWhatFailed) {
  Full bench;
  TestEntry::Ptr const last = record(1, ++bench.time);
  bench.append("A1", last);
  auto const result = [&](std::FILE* out, char const* end) {
    for (auto const& [intfId, port] : bench.recorder->portDataMap()) port->mergeEntriesIs(true);
    return bench.recorder->doDumpEntriesInCSVFormat(out, "", end, /*showAll=*/true);
  };
  for (std::string const end : {"", "f", "footer %d\n"}) {
    S32 const length = static_cast<S32>(end.size());
    std::string const whole =
        Bench::written([&](std::FILE* out) { EXPECT_EQ(result(out, end.c_str()), length); });
    for (std::size_t room = 0; room < whole.size(); ++room) {
      Refusing stream(room, _IONBF);
      EXPECT_EQ(result(stream.stream, end.c_str()), room < whole.size() - end.size() ? length : -1) << room;
    }
    for (S32 const failure : {1, -1, -7}) {
      last->result = failure;
      Bench::written([&](std::FILE* out) { EXPECT_EQ(result(out, end.c_str()), failure); });
    }
    last->result = 0;
    bench.recorder->globalBufferChunk()->entryTobeMergedIs(Vorn::GlobalBufferChunk::noEntryTobeMerged);
  }
}

// Records, pool and logs as text.
std::string stateOf(Bench& bench) {
  auto const& recorder = *bench.recorder;
  if (recorder.globalBufferChunk()) recorder.globalBufferChunk()->entryTobeMergedIs(65535);
  auto const pool = recorder.chunkArrayMetadata();
  std::string state = bench.report("-a") + bench.report("-c") + std::to_string(recorder.chunkArrayCount()) +
                      ' ' + std::to_string(pool.head) + ' ' + std::to_string(pool.capacity);
  std::map<Pylo::IntfId, std::string> logs;
  for (auto const& [intfId, port] : recorder.portDataMap()) {
    std::string& log = logs[intfId];
    auto const keys = port->chunkMetadata();
    log = std::to_string(keys.headKey) + ' ' + std::to_string(keys.nextKey);
    for (auto i = port->chunkIterator(); i; ++i)
      log += ' ' + std::to_string((*i)->entryMetadata().head.value()) + '+' + std::to_string((*i)->entrys());
    for (U32 key = 0; key < 8; ++key) log += ' ' + std::to_string(port->entryIndex(key).value());
    if (port->chunks() == 0) logs.erase(intfId);  // it may have been made
  }
  for (auto const& [intfId, log] : logs) state += '\n' + intfId.stringValue().str() + ' ' + log;
  return state;
}

// What was logged, and when.
std::string messagesOf(Bench& bench) {
  std::string messages;
  for (auto const& text : logged) messages += text + '\n';
  for (auto const& [intfId, port] : bench.recorder->portDataMap())
    messages += std::to_string(port->lastSyslogTime()) + '\n';
  auto const global = bench.recorder->globalBufferChunk();
  return messages + (global ? std::to_string(global->lastSyslogTime()) : "");
}

void byName(GenericIf::Ptr const& object, char const* attribute, OpCode code, Kes::GenericArgs const& args) {
  object->attributeOp({object->attributeId(attribute), code}, args);
}

// Takes pool and log of A1 over into another recorder; keeps the chunks that it makes.
void restore(Bench const& from, Bench& to, std::vector<Vorn::Chunk::Ptr>& made) {
  for (auto const& chunk : made) chunk->doClear();
  made.clear();
  auto const source = from.port("A1");
  auto const log = to.recorder->portDataIs(a1);
  for (auto i = source->chunkIterator(); i; ++i) {
    made.push_back(Vorn::Chunk::ChunkIs());
    Vorn::Chunk::Ptr const chunk = made.back();
    chunk->intfIdIs(a1);
    chunk->entryMetadataIs((*i)->entryMetadata());
    for (auto entry = (*i)->entryIterator(); entry; ++entry) chunk->entryIs(entry.key(), *entry);
    if (made.size() > 1) made[made.size() - 2]->nextChunkIs(chunk), chunk->prevChunkIs(made[made.size() - 2]);
    if (made.size() % 2 == 0)
      log->chunkIs(i.key(), chunk);
    else
      log->chunkDel(i.key()), log->newChunk(i.key(), chunk);
    for (auto p = from.recorder->chunkArrayIterator(); p; ++p)
      if (*p == *i) to.recorder->chunkArrayIs(p.key(), chunk);
  }
  to.recorder->chunkArrayMetadataIs(from.recorder->chunkArrayMetadata());
  log->chunkMetadataIs(source->chunkMetadata());
  for (auto i = source->entryIndexIterator(); i; ++i) log->entryIndexIs(i.key(), *i);
  for (auto i = source->portMetaDataIterator(); i; ++i) log->portMetaDataIs(*i);
}

struct Case {
  char const* name;
  std::function<void(Bench&)> prepare;
  std::function<void(Bench&, Vorn::Entry::Ptr const&)> run;
  bool partial = false;
};

TEST(Allocations, FailAtEveryPointInTurn) {
  Kes::threadSafePtrsIs(true);  // small objects come from the general allocator, too
  Bench original;
  original.recorder->numSharedChunksIs(9);
  for (U32 i = 0; i < 5800; ++i) original.update("A1", i, ++original.time, 0, i % 4);
  original.port("A1")->chunk(5)->entryDel(EntryIndex(7));
  original.port("A1")->newPortMetaData(Vorn::portMetaDataFactory(8, a1))->counterIs(5);
  std::vector<Vorn::Chunk::Ptr> made;
  auto const chunks = [](U32 pool, U32 count) {
    return [=](Bench& b) { b.recorder->numSharedChunksIs(pool), b.fill("A1", 5, 500 * count); };
  };
  auto const full = [](Bench& b) {
    b.fill("B1", 6), b.recorder->numSharedChunksIs(1), b.fill("A1", 5, 1000);
  };
  auto const few = [](Bench& b) { b.fill("A1", 5, 9), b.fill("B1", 6, 9); };
  auto const nothing = [](Bench&) {};
  auto const add = [](char const* name) { return [name](Bench& b, auto& r) { b.append(name, r); }; };
  auto const update = [](char const* name) {
    return [name](Bench& b, auto& r) { b.recorder->updateEntry(Pylo::IntfId(name), r, us(0), 7); };
  };
  auto const write = [](char const* command) { return [command](Bench& b, auto&) { b.report(command); }; };
  Case const cases[] = {
      {"new interface", nothing, add("A1")},
      {"new interface under a key", nothing, update("A1")},
      {"new key", [](Bench& b) { b.update("A1", 1, 1, 0, 1), b.update("A1", 1, 2, 0, 2); }, update("A1")},
      {"shared chunk", chunks(200, 1), add("A1")},
      {"shared chunk under a key", chunks(200, 1), update("A1")},
      {"ninth shared chunk", chunks(200, 9), add("A1")},
      {"ninth shared chunk under a key", chunks(200, 9), update("A1")},
      {"stealing from another", full, update("B1")},
      {"stealing from itself", full, update("A1")},
      {"message due", [&](Bench& b) { full(b), b.clock->utcTimeIs(50), b.config->logIntervalIs(1); },
       update("B1")},
      {"log that goes while it is judged",
       [](Bench& b) {
         b.clock->utcTimeIs(50), b.config->logIntervalIs(1), b.config->portConfigIs("A1", {99, 99});
       },
       [&](Bench& b, auto& r) {
         dynamic_cast<TestEntry&>(*r).onSyslog = [&b] {
           if (b.port("A1")->chunks() == 0) b.recorder->portDataDel(a1);
         };
         update("A1")(b, r);
       },
       true},
      {"global",
       [](Bench& b) {
         b.recorder->allocateGlobalChunk(), b.clock->utcTimeIs(50), b.config->globalLogIntervalIs(1);
       },
       [](Bench& b, auto& r) { b.recorder->doAddToGlobalLog(r); }},
      {"global log", nothing, [](Bench& b, auto&) { b.recorder->allocateGlobalChunk(); }},
      {"by name", full,
       [](Bench& b, auto& r) {
         byName(toGeneric(b.recorder), "doAddToLog", OpCode::call,
                {{"intfId", toGeneric("B1")}, {"entry", toGeneric(r)}});
       }},
      {"chunk by name", full,
       [](Bench& b, auto&) {
         byName(toGeneric(b.recorder), "allocateChunk", OpCode::call, {{"intfId", toGeneric("B1")}});
       }},
      {"removal by name", few,
       [](Bench& b, auto&) {
         byName(toGeneric(b.port("A1")->chunk(0)), "entry", OpCode::memberDel, {{"key", toGeneric("3")}});
       }},
      {"walk by name", full,
       [](Bench& b, auto&) {
         for (auto i = toGeneric(b.recorder)->attributeIterator(134); *i; ++*i) i->value()->clone();
       }},
      {"restored", nothing, [&](Bench& b, auto&) { restore(original, b, made); }, true},
      {"text", few, write("-a -iA.*,B1")},
      {"csv", few, write("csv -a")},
      {"statistics", few, write("-c")}};
  for (Case const& c : cases) {
    std::string expected;
    std::size_t failures = 0;
    for (bool failed = true; failed; ++failures) {
      Bench bench;
      c.prepare(bench);
      logged.reserve(8);
      TestEntry::Ptr const entry = record(9, ++bench.time);
      std::string const before = stateOf(bench);
      if (expected.empty()) {  // the run that never fails
        Bench other;
        c.prepare(other), c.run(other, entry), expected = stateOf(other) + messagesOf(other);
        logged.clear();
      }
      int const alive = TestEntry::alive;
      allocationsLeft = failures;
      try {
        c.run(bench, entry);
        failed = allocationsLeft == forever;
      } catch (std::bad_alloc const&) {
      }
      allocationsLeft = forever;
      if (failed && !c.partial) {
        EXPECT_EQ(stateOf(bench), before) << c.name << ' ' << failures;
        EXPECT_EQ(entry->ptrCount(), 1U) << c.name << ' ' << failures;
        EXPECT_EQ(TestEntry::alive, alive);
        EXPECT_EQ(bench.recorder->checkInvariants(), "") << c.name << ' ' << failures;
      }
      if (failed) c.run(bench, entry);
      EXPECT_EQ(stateOf(bench) + messagesOf(bench), expected) << c.name << ' ' << failures;
      EXPECT_EQ(bench.recorder->checkInvariants(), "") << c.name << ' ' << failures;
    }
    EXPECT_GT(failures, 1U) << c.name;
  }
  Kes::threadSafePtrsIs(false);
}

}  // namespace
