// SPDX-License-Identifier: Apache-2.0
// A recorder's history as bytes and as a file, whole, damaged and forged.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "agent/burst/InterfaceLogs.h"
#include "agent/history/FlowFields.h"
#include "agent/history/HistoryFile.h"
#include "agent/history/HistoryFormat.h"
#include "agent/history/HistoryKeeper.h"
#include "agent/history/HistoryWriter.h"
#include "agent/query/QueryReport.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/ReportFooter.h"
#include "tests/support.h"

using namespace Agent;
using namespace Test;
using namespace std::string_literals;

struct Recorder : Bench {
  explicit Recorder(std::string_view bytes = "", U32 pool = 9) {
    auto const dumper = Kes::makePtr<LinuxPortMetaDataDumper>();
    recorder = Kes::makePtr<Vorn::CongestionData>(status, clock, config, dumper);
    recorder->numSharedChunksIs(pool), clock->utcTimeIs(1795507466.5);
    found = readHistory(bytes, *recorder, ledger);
  }
  void record(U32 seed, U32 records) {
    recorder->allocateGlobalChunk();
    for (U32 const end = seed + records; seed < end; ++seed) {
      U32 const some = static_cast<U32>(Kes::hashNumber(seed) >> 20);
      Pylo::IntfId const intfId("eth" + std::to_string(some % 3));
      CongestionUpdate update = {true, true, false, ++time, some, some, some % 3, some / 2};
      BurstFlows flows{some * 7ULL, some, std::vector<FlowShare>(some % 3, {.bytes = some})};
      if (some % 3 != 0)
        flows.largest[0] = {
            {{1, 2, 3, 4}, {9}, 5, 6, FlowKey::ipv4, 7, 17, 24, true}, some * 5ULL, 9, 8, 7, "/a"};
      if (some % 3 == 2) flows.largest[1].key = {{1, 2, 3, 4, 5}, {8}, 0, 0, FlowKey::ipv6};
      if (some % 4 != 0) update.flows = &flows;
      auto const entry = Kes::makePtr<LinuxEntry>(some % 4, some % 2, update);
      entry->alwaysLogIs(some % 7 == 0);
      recorder->updateEntry(intfId, entry, us(some % 3), some % 4);
      if (some % 5 == 0) recorder->doAddToGlobalLog(entry);
      auto const queue = Vorn::portMetaDataFactory(some % 4, intfId);
      if (some % 3 == 0) {
        QueueTotals totals{.bursts = some + 2U, .congested = seed, .drops = some};
        totals.peak.add(some, QueueTotals::peakBounds);
        totals.latency.add(some / 2, QueueTotals::latencyBounds);
        ledger.accountIs({intfId, some % 4, some % 2, {"tbf"}}, totals);
      }
      queue->counterIs(recorder->globalBufferChunk()->counterInc(1));
      queue->timeOfCongestionStartIs(us(some % 2 * 900));
      recorder->portData(intfId)->portMetaDataIs(queue);
      recorder->portData(intfId)->lastSyslogTimeIs(some % 1000 + 0.25);
    }
  }
  std::string saved() {
    return written(std::bind_front(writeHistory, std::cref(*recorder), std::cref(ledger)));
  }
  // What each interface holds and has lost, and the counts.
  std::string balance() const {
    auto const [appends, merges, steals] = recorder->counts();
    std::string text = std::to_string(appends) + ' ' + std::to_string(merges) + '\n';
    for (auto const& [intfId, log] : recorder->portDataMap()) {
      U64 records = log->loss().records;
      for (auto const& chunk : log->chunkIterator()) records += chunk->entrys();
      text += intfId.stringValue().str() + ' ' + std::to_string(records) + '\n';
    }
    return text;
  }
  // The interfaces that the footer of a report names, and those of which it should.
  std::string namedBelow(std::string const& command) const {
    std::string const text = footerFor(Vorn::parseCommand(command), *recorder).str();
    std::string names;
    for (char const* const name : {"eth0", "eth1", "eth2"})
      if (text.find(std::string("  ") + name + "  ") != std::string::npos) names += name;
    return names;
  }
  std::string missingFrom(std::string const& command, std::string const& selected, bool drops) const {
    Vorn::CommandOptions const options = Vorn::parseCommand(command);
    U64 const now = Vorn::Microseconds::fromSeconds(clock->utcTime()).value(),
              age = options.ageLimit * 1'000'000;
    std::vector<U64> lines;
    for (auto const& [intfId, log] : recorder->portDataMap())
      for (auto const& chunk : log->chunkIterator())
        for (auto const& entry : chunk->entryIterator())
          if (selected.find(intfId.stringValue().view()) != std::string::npos &&
              (!drops || dynamic_cast<LinuxEntry const&>(*entry).drops() != 0))
            lines.push_back(entry->timestamp().value());
    std::sort(lines.rbegin(), lines.rend());
    std::string names;
    for (std::string const name : {"eth0", "eth1", "eth2"}) {
      U64 const lost = port(name.c_str())->loss().newest.value();
      bool const within = options.ageLimit == 0 || lost + age >= now;
      bool const reached = options.entryCount == 0 || options.entryCount > lines.size() ||
                           lines[options.entryCount - 1] <= lost;
      if (within && reached && selected.find(name) != std::string::npos) names += name;
    }
    return names;
  }
  std::string reports() {
    Query const who{.report = Query::Report::who, .form = Query::Form::csv};
    return report("-a") + report("csv -a") + report("-c") + report("-b") +
           written([&](std::FILE* out) { QueryReport(who, *recorder, ledger, {}).write(out); });
  }
  BurstLedger ledger;
  HistoryRead found;
};

// Both go on alike: pool, keys and indexes are the same as well. A smaller pool has the newest chunks.
TEST(History, ReadsBackWhatWasWritten) {
  for (U32 const records : {0U, 20U, 700U, 9000U}) {
    Recorder before;
    before.record(1, records);
    Recorder after(before.saved()), small(before.saved(), 3);
    EXPECT_EQ(after.found.fault + small.found.fault, "");
    EXPECT_EQ(small.balance(), before.balance());
    EXPECT_EQ(small.recorder->counts().steals, before.recorder->counts().steals + small.found.chunksLeftOut);
    for (auto i = small.recorder->chunkArrayIterator(); i; ++i)
      EXPECT_EQ((*i)->entry({})->timestamp(), before.recorder->chunkArray(i.key())->entry({})->timestamp());
    for (U32 round = 0; round < 2; ++round) {
      EXPECT_TRUE(after.reports() == before.reports() && after.saved() == before.saved()) << records << round;
      EXPECT_EQ(after.recorder->checkInvariants() + small.recorder->checkInvariants(), "");
      for (Recorder* one : {&before, &after, &small}) one->time = 1'000'000, one->record(7, 3000);
    }
  }
}

// A report ends in words about holes just where its lines reach back past them.
TEST(History, Footer_tellsOfHolesThatTheReportReaches) {
  Recorder before;
  before.record(1, 9000);
  Recorder after(before.saved());
  std::set<std::string> seen;
  for (std::string const name : {"eth0", "eth1", "eth2"}) {
    for (double const late : {0.0000005, 0.0000015}) {  // the loss is just in the last second, or just not
      double const now = Vorn::Microseconds::toSeconds(before.port(name.c_str())->loss().newest) + 1 + late;
      before.clock->utcTimeIs(now), after.clock->utcTimeIs(now);
      for (std::string const kind : {"", " -d", " -l", " -a"}) {
        for (U32 const count : {0U, 1U, 200U, 600U, 1100U, 1400U, 1500U, 1700U, 2100U, 2400U, 9000U}) {
          for (std::string const age : {"", " -t1"}) {
            for (std::string const selected : {"eth0,eth1,eth2", "eth1", "eth0,eth2"}) {
              std::string const command = "-i" + selected + kind + age + " -s" + std::to_string(count);
              std::string const names = before.missingFrom(command, selected, kind == " -d");
              EXPECT_EQ(before.namedBelow(command), names) << command;
              EXPECT_EQ(after.namedBelow(command), names) << command;
              seen.insert(names);
            }
          }
        }
      }
    }
  }
  EXPECT_GE(seen.size(), 6U);
  for (char const* const command : {"csv", "-c", "-b", "-i", "-ieth3", "-t1 -s1"})
    EXPECT_EQ(before.namedBelow(command), "") << command;
  EXPECT_EQ(before.namedBelow(""), "eth0eth1eth2");
  EXPECT_EQ(Recorder().namedBelow(""), "");
}

// Gives the header and each section the checksum of what it holds by now.
void seal(std::string& bytes) {
  U32 sum = 0;
  for (std::size_t at = 0, end = 16; end + 4 <= bytes.size();) {
    sum = HistoryFormat::checksum(sum, std::string_view(bytes).substr(at, end - at));
    for (U32 i = 0; i < 4; ++i) bytes[end++] = static_cast<char>(sum >> (8 * i));
    at = end;
    auto const byte = [&](std::size_t i) {
      return static_cast<unsigned char>(bytes[std::min(i, bytes.size() - 1)]);
    };
    end += 4U + byte(at + 2) + 256U * byte(at + 3);
  }
}

// Version 1 had no totals. Those that cannot be are damage, and cost nothing that stands before them.
TEST(History, Totals_areReadWhereThereAreAny) {
  Recorder before, old;
  before.record(1, 60);
  EXPECT_GE(before.ledger.accounts().size(), 2U);
  std::string whole = before.saved(), first = old.saved();
  first[12] = 1;
  seal(first);
  EXPECT_EQ(Recorder(first).found.fault, "");
  std::size_t const totals = whole.find("\x03\0tbf"s);
  ASSERT_NE(totals, std::string::npos);
  whole[totals + 36] = 1;  // more in a class than there were bursts
  seal(whole);
  Recorder after(whole);
  EXPECT_NE(after.found.fault.find("add up to is none"), std::string::npos) << after.found.fault;
  EXPECT_TRUE(after.ledger.accounts().empty());
  EXPECT_TRUE(after.port("eth0"));
}

// Of no record, or more than a record keeps: damage.
TEST(History, Flows_areOfTheRecordBefore) {
  Recorder before;
  before.record(1, 60);
  std::string whole = before.saved();
  std::size_t const record = whole.find("\x05\0\x29\0"s);  // the first one of a chunk
  ASSERT_NE(record, std::string::npos);
  whole[record] = 9;
  seal(whole);
  EXPECT_NE(Recorder(whole).found.fault.find("flows are of no record"), std::string::npos);
  for (auto const& [count, length] : std::map<std::size_t, std::size_t>{{5, 255}, {4, 256}, {6, 0}}) {
    HistoryFormat::Fields fields;
    addFlows(fields, {1, 1, std::vector<FlowShare>(count, {.cgroup = std::string(length, 'c')})});
    HistoryFormat::FieldReader reader(fields.bytes());
    EXPECT_EQ(takeFlows(reader).has_value(), count == 5) << count;
  }
}

// Cut off or changed anywhere: all that stands before is there, and nothing else. Forged: it is sound.
TEST(History, Damage_costsWhatStandsBehindIt) {
  Recorder before;
  before.record(3, 40);
  std::string const whole = before.saved(), nothing = Recorder().saved();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string changed = whole, forged = whole;
    changed[at] = static_cast<char>(changed[at] ^ (1 << at % 8));
    for (std::string const& bytes : {whole.substr(0, at), changed}) {
      Recorder after(bytes);
      EXPECT_NE(after.found.fault, "") << at;
      std::string const sound = after.saved().substr(0, after.saved().size() - 16);  // without its end
      std::size_t const room = std::max<std::size_t>(at, 68) - sound.size();         // behind the state
      EXPECT_TRUE((at < 68 ? nothing : whole).starts_with(sound) && room < 300) << at;
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
  auto const read = [](std::string const& file) { return readFile(file, HistoryFormat::magic); };
  std::filesystem::create_directory(directory);
  Recorder before;
  before.record(1, 40);
  for (U32 round = 1; round <= 10; ++round) {
    std::string const cut = before.saved().substr(0, before.saved().size() - round);
    replaceFile(path, path + ".new", 0640,
                [&](std::FILE* out) { std::fwrite(cut.data(), 1, cut.size(), out); });
    Recorder after;
    HistoryKeeper keeper(directory, after.recorder, after.ledger, /*poolGrows=*/true);
    EXPECT_EQ(keeper.status().text().find("not kept") != std::string::npos, round == 10);
    EXPECT_EQ(after.reports(), before.reports());
    EXPECT_TRUE(read(round < 10 ? path + ".damaged-" + std::to_string(round) : path) == cut);
    EXPECT_EQ(Recorder(read(path)).reports(), before.reports()) << "what was sound is on the disk at once";
    EXPECT_EQ(Recorder(read(path)).found.poolLimit, 9U);
  }
  std::ofstream(path, std::ios::trunc) << std::string(5000, 'x');
  EXPECT_EQ(read(path), "xxxxxxxx") << "no memory for what is no history";
  std::filesystem::remove_all(directory);
}

// Interfaces that come up later than the agent keep their logs, whatever goes meanwhile.
TEST(History, InterfacesThatWereReadBack_areNotYetGone) {
  Bench bench;
  for (U32 n = 0; n < 300; ++n) bench.append(("eth" + std::to_string(n)).c_str(), record(1, 1 + n));
  BurstLedger ledger;
  InterfaceLogs logs(bench.recorder, ledger);
  for (U32 n = 0; n < 257; ++n) logs.handleQueuePresent(Pylo::IntfId("eth" + std::to_string(n)));
  for (U32 n = 0; n < 257; ++n) logs.handleQueueGone(Pylo::IntfId("eth" + std::to_string(n)));
  EXPECT_EQ(bench.recorder->portDataMap().size(), 299U);
  EXPECT_FALSE(bench.port("eth0")) << "gone longest ago";
}
