// SPDX-License-Identifier: Apache-2.0
// A recorder's history as bytes and as a file, whole, damaged and forged.

#include <gtest/gtest.h>

#include <filesystem>

#include "agent/history/HistoryFile.h"
#include "agent/history/HistoryFormat.h"
#include "agent/history/HistoryKeeper.h"
#include "agent/history/HistoryWriter.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "tests/support.h"

using namespace Agent;
using namespace Test;

struct Recorder : Bench {
  explicit Recorder(std::string_view bytes = "", U32 pool = 9) {
    auto const dumper = Kes::makePtr<LinuxPortMetaDataDumper>();
    recorder = Kes::makePtr<Vorn::CongestionData>(status, clock, config, dumper);
    recorder->numSharedChunksIs(pool), clock->utcTimeIs(1795507466.5);
    found = readHistory(bytes, *recorder);
  }
  void record(U32 seed, U32 records) {
    recorder->allocateGlobalChunk();
    for (U32 const end = seed + records; seed < end; ++seed) {
      U32 const some = static_cast<U32>(Kes::hashNumber(seed) >> 20);
      Pylo::IntfId const intfId("eth" + std::to_string(some % 3));
      CongestionUpdate const update = {true, true, false, ++time, some, some, some % 3, some / 2};
      auto const entry = Kes::makePtr<LinuxEntry>(some % 4, some % 2, update);
      entry->alwaysLogIs(some % 7 == 0);
      recorder->updateEntry(intfId, entry, us(some % 3), some % 4);
      if (some % 5 == 0) recorder->doAddToGlobalLog(entry);
      auto const queue = Vorn::portMetaDataFactory(some % 4, intfId);
      queue->counterIs(recorder->globalBufferChunk()->counterInc(1));
      queue->timeOfCongestionStartIs(us(some % 2 * 900));
      recorder->portData(intfId)->portMetaDataIs(queue);
      recorder->portData(intfId)->lastSyslogTimeIs(some % 1000 + 0.25);
    }
  }
  std::string saved() { return written(std::bind_front(writeHistory, std::cref(*recorder))); }
  std::string reports() { return report("-a") + report("csv -a") + report("-c") + report("-b"); }
  HistoryRead found;
};

// Both go on alike: pool, keys and indexes are the same as well. A smaller pool has the newest chunks.
TEST(History, ReadsBackWhatWasWritten) {
  for (U32 const records : {0U, 20U, 700U, 9000U}) {
    Recorder before;
    before.record(1, records);
    Recorder after(before.saved()), small(before.saved(), 3);
    EXPECT_EQ(after.found.fault + small.found.fault, "");
    for (auto i = small.recorder->chunkArrayIterator(); i; ++i)
      EXPECT_EQ((*i)->entry({})->timestamp(), before.recorder->chunkArray(i.key())->entry({})->timestamp());
    for (U32 round = 0; round < 2; ++round) {
      EXPECT_TRUE(after.reports() == before.reports() && after.saved() == before.saved()) << records << round;
      EXPECT_EQ(after.recorder->checkInvariants() + small.recorder->checkInvariants(), "");
      for (Recorder* one : {&before, &after, &small}) one->time = 1'000'000, one->record(7, 3000);
    }
  }
}

// Gives the header and each section the checksum of what it holds by now.
void seal(std::string& bytes) {
  U32 sum = 0;
  for (std::size_t at = 0, end = 16; end + 4 < bytes.size();) {
    sum = HistoryFormat::checksum(sum, std::string_view(bytes).substr(at, end - at));
    for (U32 i = 0; i < 4; ++i) bytes[end++] = static_cast<char>(sum >> (8 * i));
    at = end;
    end += 4U + static_cast<unsigned char>(bytes[std::min(at + 2, bytes.size() - 1)]);
  }
}

// Cut off or changed anywhere: all that stands before is there, and nothing else. Forged: it is sound.
TEST(History, Damage_costsWhatStandsBehindIt) {
  Recorder before;
  before.record(3, 60);
  std::string const whole = before.saved();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string changed = whole, forged = whole;
    changed[at] = static_cast<char>(changed[at] ^ (1 << at % 8));
    for (std::string const& bytes : {whole.substr(0, at), changed}) {
      Recorder after(bytes);
      EXPECT_NE(after.found.fault, "") << at;
      std::string const sound = after.saved().substr(0, after.saved().size() - 16);  // without its end
      std::size_t const room = std::max<std::size_t>(at, 44) - sound.size();         // behind the state
      EXPECT_TRUE(whole.starts_with(sound) && room < 56) << at;
    }
    forged[at] = static_cast<char>(at * 7 % 11);
    seal(forged);
    Recorder after(forged);
    EXPECT_EQ(after.found.kind == HistoryRead::Kind::newer, at >= 12 && at < 16 && forged != whole) << at;
    after.record(6, 20);
    EXPECT_TRUE(after.reports() != "" && after.recorder->checkInvariants() == "") << at;
  }
}

TEST(History, File_isPutAside_neverOverTheLast) {
  std::string const directory = std::filesystem::temp_directory_path() / std::to_string(::getpid());
  std::string const path = directory + "/history.vorn";
  std::filesystem::create_directory(directory);
  Recorder before;
  before.record(1, 40);
  for (U32 round = 1; round <= 10; ++round) {
    std::string const cut = before.saved().substr(0, before.saved().size() - round);
    replaceFile(path, path + ".new", 0640,
                [&](std::FILE* out) { std::fwrite(cut.data(), 1, cut.size(), out); });
    Recorder after;
    HistoryKeeper keeper(directory, after.recorder);
    EXPECT_EQ(keeper.status().find("not kept") != std::string::npos, round == 10);
    EXPECT_EQ(after.reports(), before.reports());
    EXPECT_EQ(readFile(round < 10 ? path + ".damaged-" + std::to_string(round) : path), cut);
  }
  std::filesystem::remove_all(directory);
}
