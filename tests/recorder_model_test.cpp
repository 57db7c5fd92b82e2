// The recorder against the model: random operations, and every short sequence of whole chunks. After each
// step both must hold the same records in the same slots and have logged the same; reports must agree byte by
// byte.

#include <gtest/gtest.h>

#include <random>

#include "tests/model/ModelRecorder.h"

namespace {

using namespace Test;
using Report = Vorn::CommandOptions::Report;

std::string differenceOf(Vorn::EntryQueue const& real, Model::Slots& model) {
  Vorn::EntryQueue::EntryMetadata const state = real.entryMetadata();
  if (state.count != model.records.size()) return "count " + std::to_string(state.count);
  if (state.head.value() != model.head) return "head " + std::to_string(state.head.value());
  for (U32 k = 0; k < state.count; ++k) {
    U16 const slot = static_cast<U16>(model.slot(k));
    Vorn::Entry const* const entry = real.entry(Vorn::EntryIndex(slot)).get();
    Model::Record const* const record = model.at(slot);
    if ((entry == nullptr) != (record == nullptr)) return "presence in slot " + std::to_string(slot);
    if (entry != nullptr && (entry->qLen() != record->qLen || entry->timestamp() != us(record->timestamp) ||
                             entry->duration() != us(record->duration)))
      return "record in slot " + std::to_string(slot);
  }
  return "";
}

class Pair : public Bench {
 public:
  Pair() { model.numSharedChunks = recorder->numSharedChunks(); }

  Model::Recorder model{*this};
  bool danglingKeys = false;  // a record under a key was deleted by hand
  bool checksEachRecord = false;

  TestEntry::Ptr made(Model::Record const& from) const {
    TestEntry::Ptr const entry = record(from.qLen, from.timestamp);
    entry->durationIs(us(from.duration)).alwaysLogIs(from.alwaysLog);
    entry->result = from.result;
    return entry;
  }
  void update(std::string const& name, Model::Record const& from, U64 coalesceTime, U32 key) {
    model.update(name, from, coalesceTime, key);
    recorder->updateEntry(Pylo::IntfId(name), made(from), us(coalesceTime), key);
    handleRecord();
  }
  void append(std::string const& name, Model::Record const& from) {
    model.append(name, from);
    recorder->doAddToLog(Pylo::IntfId(name), made(from));
    handleRecord();
  }
  void handleRecord() const {
    if (checksEachRecord) {
      EXPECT_EQ(recorder->checkInvariants(), "");
    }
  }
  void del(std::string const& name) {
    model.del(name);
    recorder->portDataDel(Pylo::IntfId(name));
  }
  void numSharedChunksIs(U32 count) {
    model.numSharedChunks = count;
    recorder->numSharedChunksIs(count);
  }

  // What is not the same on both sides, or nothing.
  std::string difference() {
    for (Model::Port& expected : model.ports)
      if (std::string const what = differenceOfPort(expected); !what.empty())
        return expected.name + ": " + what;
    if (recorder->portDataMap().size() != model.ports.size()) return "number of ports";
    if (recorder->chunkArrayCount() != model.pooled()) return "pool";
    if (logged != model.logged) return "system log";
    logged.clear();
    model.logged.clear();
    if (model.global)
      if (std::string const what = differenceOf(*recorder->globalBufferChunk(), *model.global); !what.empty())
        return "global: " + what;
    if (TestEntry::alive != model.records()) return "records alive " + std::to_string(TestEntry::alive);
    std::string const broken = recorder->checkInvariants();
    return danglingKeys && broken.ends_with("outside of the newest chunk") ? "" : broken;
  }

 private:
  std::string differenceOfPort(Model::Port& expected) const {
    Vorn::PortData::Ptr const actual = port(expected.name.c_str());
    if (!actual) return "missing";
    if (actual->chunks() != expected.chunks.size()) return "chunks " + std::to_string(actual->chunks());
    if (actual->lastSyslogTime() != expected.lastSyslog) return "lastSyslogTime";
    for (auto [i, k] = std::pair(actual->chunkIterator(), 0U); i; ++i, ++k)
      if (std::string const what = differenceOf(**i, expected.chunks[k]); !what.empty())
        return "chunk " + std::to_string(k) + ": " + what;
    for (U32 key = 0; key < 4; ++key) {
      auto const known = expected.slotUnderKey.find(key);
      if (actual->entryIndex(key).value() != (known == expected.slotUnderKey.end() ? 500 : known->second))
        return "position under key " + std::to_string(key);
    }
    return "";
  }
};

class RandomDriver : public Pair {
 public:
  explicit RandomDriver(unsigned seed) : random_(seed), failures_(below(2) == 0), surgery_(below(2) == 0) {
    // Some have hundreds of ports, which all begin at the same time.
    for (U32 i = 0; seed % 10 == 0 && i < 150; ++i) names_.push_back("Ethernet" + std::to_string(20 + i));
    for (std::string const& name : names_) append(name, anyRecord());
    checksEachRecord = seed < 20 && names_.size() < 10 && !surgery_;
    status->defHighThresholdIs(70);
    status->defLowThresholdIs(40);
    status->defCpuHighThresholdIs(20);
    status->defCpuLowThresholdIs(10);
    status->defGlobalBufHighThresholdIs(60);
    status->defGlobalBufLowThresholdIs(30);
    numSharedChunksIs(1 + below(6));
  }

  void step() {
    U32 const dice = below(100);
    if (dice < 50) return records();
    if (dice < 60) return globalRecords();
    if (dice < 62) return del(anyName());
    if (dice < 65) return numSharedChunksIs(1 + below(6));
    if (dice < 75) return clock->utcTimeIs(clock->utcTime() + 0.5 * below(4));
    if (dice < 82) return settings();
    if (dice < 90) return metaData();
    if (surgery_) surgery();
  }

  // A report of random options, checked on both sides.
  void compareReports() {
    // The clock stands so that an age limit falls among the records.
    U32 const age = below(3) == 0 ? 1 + below(3) : 0;
    clock->utcTimeIs(age + static_cast<double>(time - below(2000)) / 1e6);
    Vorn::CommandOptions options;
    std::string command = "unknown";
    options.ageLimit = age;
    if (age != 0) command += " -t" + std::to_string(age);
    if (below(3) == 0) command += " -s" + std::to_string(options.entryCount = below(400));
    if ((options.drops = below(8) == 0)) command += " -d";
    if ((options.latency = below(8) == 0)) command += " -l";
    if ((options.showAll = below(2) == 0)) command += " -a";
    if (below(3) == 0) {
      static char const* const filters[] = {"", "Et1,Et3/2", "Et[13].*,Fabric", ".*1,Cp.*", "Et10"};
      char const* const filter = filters[below(5)];
      command += std::string(" -i") + filter;
      options.allInterfaces = false;
      Vorn::split(filter, ",", options.interfacePatterns);
      for (std::string& pattern : options.interfacePatterns)
        if (pattern == "Fabric") pattern = "Fc.*";
    }
    U32 const kind = below(10);
    options.report = kind < 5   ? Report::text
                     : kind < 8 ? Report::csv
                     : kind < 9 ? Report::statistics
                                : Report::globalBuffer;
    command += kind < 5 ? "" : kind < 8 ? " csv" : kind < 9 ? " -c" : " -b";
    std::vector<std::string> order;
    for (auto i = recorder->portDataIterator(); i; ++i) order.push_back(i.key().stringValue().str());
    std::string const expected = model.report(options, order);
    ASSERT_EQ(report(command), expected) << command;
    ++(expected.ends_with(footer) ? complete : broken);
    starts += expected.find("start ") != std::string::npos;
    globals += expected.find(" N/A ") != std::string::npos;
  }

  // What was reached, over all drivers.
  static inline int complete = 0, broken = 0, starts = 0, globals = 0, messages = 0;

 private:
  U32 below(U32 limit) { return static_cast<U32>(random_() % limit); }
  std::string const& anyName() { return names_[below(static_cast<U32>(names_.size()))]; }

  Model::Record anyRecord() {
    time += below(3);
    U64 const timestamp = below(30) == 0 ? time - below(900) : time;
    Model::Record result{below(100), timestamp, below(4) == 0 ? below(4) : 0, below(50) == 0};
    if (failures_ && below(1500) == 0) result.result = below(2) == 0 ? -1 : 1;
    return result;
  }

  void records() {
    std::string const& name = anyName();
    U32 const series = below(3);
    for (U32 left = below(4) == 0 ? below(700) : below(8); left > 0; --left)
      if (series == 0)
        append(name, anyRecord());
      else
        update(name, anyRecord(), below(4), below(3));
    messages += static_cast<int>(logged.size());
  }

  void globalRecords() {
    recorder->allocateGlobalChunk();
    if (!model.global) model.global.emplace();
    for (U32 left = below(4) == 0 ? below(600) : below(8); left > 0; --left) {
      Model::Record const from = anyRecord();
      model.appendGlobal(from);
      recorder->doAddToGlobalLog(made(from));
    }
    recorder->globalBufferChunk()->counterIs(model.global->counter = below(3));
  }

  void settings() {
    static Kes::Seconds const intervals[] = {0.0, 0.5, 1.0};
    config->logIntervalIs(intervals[below(3)]);
    config->globalLogIntervalIs(intervals[below(3)]);
    config->defaultThresholdsConfigIs({50 + below(50), below(50), below(2) == 0});
    config->globalThresholdsConfigIs({50 + below(50), below(50), below(2) == 0});
    if (below(2) == 0)
      config->portConfigIs(anyName(), {below(100), below(100)});
    else
      config->portConfigDel(anyName());
  }

  // Start times are unique, since equal ones have no order, but among those of the records.
  void metaData() {
    U32 const index = below(static_cast<U32>(names_.size()));
    Vorn::PortData::Ptr const data = port(names_[index].c_str());
    if (!data) return;
    U32 const identifier = 1 + below(2);
    U64 const unit = names_.size() * 2;
    U64 const oldest = model.find(names_[index])->chunks.front().records.front()->timestamp;
    U64 const about = below(2) == 0 ? time - below(900) : oldest + below(3);
    U64 const start = below(4) == 0 ? 0 : about / unit * unit + index * 2 + identifier;
    Model::MetaData& expected = model.find(names_[index])->metaData[identifier];
    expected = {below(3), start};
    if (!data->portMetaData(identifier))
      data->newPortMetaData(Vorn::portMetaDataFactory(identifier, data->intfId()));
    data->portMetaData(identifier)->counterIs(expected.counter);
    data->portMetaData(identifier)->timeOfCongestionStartIs(us(start));
  }

  // Deletes a record by hand: inside any chunk, at the ends of the newest only.
  void surgery() {
    Model::Port* const from = model.find(anyName());
    if (from == nullptr) return;
    U32 const k = below(static_cast<U32>(from->chunks.size()));
    Model::Chunk& chunk = from->chunks[k];
    bool const newest = k + 1 == from->chunks.size();
    if (chunk.records.size() < 3) return;
    U32 const size = static_cast<U32>(chunk.records.size());
    U32 const slot = newest && below(2) == 0 ? (below(2) == 0 ? chunk.head : chunk.tail())
                                             : chunk.slot(1 + below(size - 2));
    danglingKeys = true;
    chunk.del(slot);
    auto i = port(from->name.c_str())->chunkIterator();
    for (U32 skipped = 0; skipped < k; ++skipped) ++i;
    (*i)->entryDel(Vorn::EntryIndex(static_cast<U16>(slot)));
  }

  std::mt19937 random_;
  bool const failures_;
  bool const surgery_;
  // By number some are equal, and some in another order than by name.
  std::vector<std::string> names_{"Ethernet1", "Fabric1", "Cpu1/0", "Ethernet3/2", "Fabric3/1", "Ethernet10"};
};

TEST(RecorderModel, RandomOperations) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    RandomDriver driver(seed);
    for (int step = 0; step < 150; ++step) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
      driver.step();
      ASSERT_EQ(driver.difference(), "");
      if (step % 6 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(driver.compareReports());
    }
  }
  EXPECT_EQ(TestEntry::alive, 0);
  // The driver went where it was meant to go.
  EXPECT_GT(RandomDriver::complete, 500);
  EXPECT_GT(RandomDriver::broken, 50);
  EXPECT_GT(RandomDriver::starts, 100);
  EXPECT_GT(RandomDriver::globals, 100);
  EXPECT_GT(RandomDriver::messages, 100);
}

// Every sequence of six operations on three interfaces, for pools of one to three chunks: "a whole chunk of
// records", "one update under a key" and "log deleted" for each; but the interfaces come into play in order,
// since their names do not matter. A chunk becomes full by its queue state, its last slots holes, so that a
// sequence takes microseconds.
TEST(RecorderModel, AllShortSequences) {
  static char const* const names[] = {"A1", "B2", "C3"};
  constexpr int choices = 9;
  int run = 0;
  for (int sequence = 0; sequence < choices * choices * choices * choices * choices * choices; ++sequence) {
    int inPlay = 0;
    bool inOrder = true;
    for (int rest = sequence, i = 0; i < 6; ++i, rest /= choices) {
      int const which = rest % choices / 3;
      inOrder = inOrder && (which < inPlay || (which == inPlay && rest % 3 != 2));
      inPlay = std::max(inPlay, which + 1);
    }
    for (U32 pool = 1; inOrder && pool <= 3; ++pool, ++run) {
      Pair pair;
      pair.numSharedChunksIs(pool);
      for (int rest = sequence, i = 0; i < 6; ++i, rest /= choices) {
        char const* const name = names[rest % choices / 3];
        Model::Record const from{static_cast<U32>(i), ++pair.time};
        if (rest % 3 == 2) pair.del(name);
        if (rest % 3 == 1) pair.update(name, from, /*coalesceTime=*/100, /*key=*/1);
        if (rest % 3 != 0) continue;
        pair.append(name, from);
        pair.model.find(name)->chunks.back().records.resize(Vorn::entriesPerChunk);
        pair.port(name)->chunkTail()->entryMetadataIs({Vorn::EntryIndex(), Vorn::entriesPerChunk});
      }
      ASSERT_EQ(pair.difference(), "") << "pool " << pool << " sequence " << sequence;
    }
  }
  EXPECT_GT(run, 80'000);
  EXPECT_EQ(TestEntry::alive, 0);
}

}  // namespace
