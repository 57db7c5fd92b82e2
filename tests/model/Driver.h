// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <random>

#include "tests/model/ModelReports.h"

namespace Test {

// A recorder and its model, which are given the same: what `choose` says, which is any number below a limit.
// `seed` makes the records; where it ends in 0 there are many more ports.
class Driver : public Bench {
 public:
  Driver(unsigned seed, std::function<U32(U32 limit)> choose)
      : random_(seed), choose_(std::move(choose)), failures_(below(2) == 0), surgery_(below(2) == 0) {
    // Some have hundreds of ports, which all begin at the same time.
    for (U32 i = 0; seed % 10 == 0 && i < 150; ++i) names_.push_back("Ethernet" + std::to_string(20 + i));
    for (std::string const& name : names_) append(name, anyRecord());
    checksEachRecord_ = seed < 20 && names_.size() < 10 && !surgery_;
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

  // What is not the same on both sides, or nothing.
  std::string difference() {
    for (Model::Port& expected : model_.ports)
      if (std::string const what = differenceOfPort(expected); !what.empty())
        return expected.name + ": " + what;
    if (recorder->portDataMap().size() != model_.ports.size()) return "number of ports";
    if (recorder->chunkArrayCount() != model_.pooled()) return "pool";
    auto const [privates, shared, free] = recorder->chunkCounts();
    if (shared + free != model_.pooled() || free != model_.free()) return "free chunks";
    if (privates != model_.ports.size() || recorder->counts() != model_.counts) return "counts";
    if (logged != model_.logged) return "system log";
    logged.clear();
    model_.logged.clear();
    if (model_.global && slotsOf(*recorder->globalBufferChunk()) != *model_.global) return "global log";
    if (TestEntry::alive != model_.records()) return "records alive " + std::to_string(TestEntry::alive);
    std::string const fault = brokenMeanwhile_.empty() ? recorder->checkInvariants() : brokenMeanwhile_;
    return danglingKeys_ && fault.ends_with("outside of the newest chunk") ? "" : fault;
  }

  // What is not the same in a report of some options, or nothing.
  std::string differenceOfReports() {
    // The clock stands so that an age limit falls among the records, or behind some: their age wraps.
    U32 const age = below(3) == 0 ? 1 + below(3) : 0;
    clock->utcTimeIs((below(8) == 0 ? 0 : age) + static_cast<double>(time - below(2000)) / 1e6);
    std::string command = "unknown";
    if (age != 0) command += " -t" + std::to_string(age);
    if (below(3) == 0) command += " -s" + std::to_string(below(400));
    for (char const* const option : {" -d", " -l", " -a", " -a", " -a"})
      if (below(8) == 0) command += option;
    static char const* const filters[] = {"", "Et1,Et3/2", "Et[13].*,Fabric", ".*1,Cp.*", "Et10"};
    if (below(3) == 0) command += std::string(" -i") + filters[below(5)];
    static char const* const kinds[] = {"", "", "", "", "", " csv", " csv", " csv", " -c", " -b"};
    command += kinds[below(10)];
    std::vector<std::string> order;
    for (auto i = recorder->portDataIterator(); i; ++i) order.push_back(i.key().stringValue().str());
    std::string const expected =
        Model::Reports(model_, clock->utcTime()).report(Vorn::parseCommand(command), order);
    if (std::string const actual = report(command); actual != expected)
      return command + '\n' + actual + expected;
    ++(expected.ends_with(footer) ? complete : broken);
    starts += expected.find("start ") != std::string::npos;
    globals += expected.find(" N/A ") != std::string::npos;
    return "";
  }

  // What was reached, over all drivers.
  static inline int complete = 0, broken = 0, starts = 0, globals = 0, messages = 0;

 private:
  U32 below(U32 limit) { return choose_(limit); }
  U32 chance(U32 limit) { return static_cast<U32>(random_() % limit); }
  std::string const& anyName() { return names_[below(static_cast<U32>(names_.size()))]; }

  Model::Record anyRecord() {
    time += chance(3);
    U64 const timestamp = chance(30) == 0 ? time - chance(900) : time;
    Model::Record result{chance(100), timestamp, chance(4) == 0 ? chance(4) : 0, chance(50) == 0};
    if (failures_ && chance(1500) == 0) result.result = chance(2) == 0 ? -1 : 1;
    return result;
  }

  TestEntry::Ptr made(Model::Record const& from) const {
    TestEntry::Ptr const entry = record(from.qLen, from.timestamp);
    entry->durationIs(us(from.duration)).alwaysLogIs(from.alwaysLog);
    entry->result = from.result;
    return entry;
  }
  void append(std::string const& name, Model::Record const& from) {
    model_.append(name, from);
    recorder->doAddToLog(Pylo::IntfId(name), made(from));
  }
  void numSharedChunksIs(U32 count) {
    model_.numSharedChunks = count;
    recorder->numSharedChunksIs(count);
  }
  void del(std::string const& name) {
    model_.del(name);
    recorder->portDataDel(Pylo::IntfId(name));
  }

  void records() {
    std::string const& name = anyName();
    U32 const series = below(3);
    for (U32 left = below(4) == 0 ? below(700) : below(8); left > 0; --left) {
      Model::Record const from = anyRecord();
      if (series == 0) {
        append(name, from);
      } else {
        U64 const coalesceTime = chance(4);
        U32 const key = chance(3);
        model_.update(name, from, coalesceTime, key);
        recorder->updateEntry(Pylo::IntfId(name), made(from), us(coalesceTime), key);
      }
      if (checksEachRecord_ && brokenMeanwhile_.empty()) brokenMeanwhile_ = recorder->checkInvariants();
    }
    messages += static_cast<int>(logged.size());
  }

  void globalRecords() {
    recorder->allocateGlobalChunk();
    if (!model_.global) model_.global.emplace();
    for (U32 left = below(4) == 0 ? below(600) : below(8); left > 0; --left) {
      Model::Record const from = anyRecord();
      model_.appendGlobal(from);
      recorder->doAddToGlobalLog(made(from));
    }
    recorder->globalBufferChunk()->counterIs(model_.global->counter = below(3));
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
    U64 const oldest = model_.find(names_[index])->chunks.front().records.front()->timestamp;
    U64 const about = below(2) == 0 ? time - below(900) : oldest + below(3);
    U64 const start = below(4) == 0 ? 0 : about / unit * unit + index * 2 + identifier;
    Model::MetaData& expected = model_.find(names_[index])->metaData[identifier];
    expected = {below(3), start};
    if (!data->portMetaData(identifier))
      data->newPortMetaData(Vorn::portMetaDataFactory(identifier, data->intfId()));
    data->portMetaData(identifier)->counterIs(expected.counter);
    data->portMetaData(identifier)->timeOfCongestionStartIs(us(start));
  }

  // Deletes a record by hand: inside any chunk, at the ends of the newest only.
  void surgery() {
    Model::Port* const from = model_.find(anyName());
    if (from == nullptr) return;
    U32 const k = below(static_cast<U32>(from->chunks.size()));
    Model::Chunk& chunk = from->chunks[k];
    bool const newest = k + 1 == from->chunks.size();
    if (chunk.records.size() < 3) return;
    U32 const size = static_cast<U32>(chunk.records.size());
    U32 const slot = newest && below(2) == 0 ? (below(2) == 0 ? chunk.head : chunk.tail())
                                             : chunk.slot(1 + below(size - 2));
    danglingKeys_ = true;
    chunk.del(slot);
    auto i = port(from->name.c_str())->chunkIterator();
    for (U32 skipped = 0; skipped < k; ++skipped) ++i;
    (*i)->entryDel(Vorn::EntryIndex(static_cast<U16>(slot)));
  }

  // A log as the model holds it.
  static Model::Slots slotsOf(Vorn::EntryQueue const& log) {
    Vorn::EntryQueue::EntryMetadata const state = log.entryMetadata();
    Model::Slots slots{state.head.value(), std::deque<std::optional<Model::Record>>(state.count)};
    for (auto i = log.entryIterator(); i; ++i) {
      auto const& entry = static_cast<TestEntry const&>(**i);
      slots.records[slots.place(i.key().value())] = {
          entry.qLen(), entry.timestamp().value(), entry.duration().value(), entry.alwaysLog(), entry.result};
    }
    return slots;
  }

  std::string differenceOfPort(Model::Port& expected) const {
    Vorn::PortData::Ptr const actual = port(expected.name.c_str());
    if (!actual) return "missing";
    if (actual->chunks() != expected.chunks.size()) return "chunks " + std::to_string(actual->chunks());
    if (actual->lastSyslogTime() != expected.lastSyslog) return "lastSyslogTime";
    if (actual->loss() != Vorn::PortData::Loss{expected.lost, us(expected.newestLost)}) return "loss";
    for (auto [i, k] = std::pair(actual->chunkIterator(), 0U); i; ++i, ++k)
      if (slotsOf(**i) != expected.chunks[k]) return "chunk " + std::to_string(k);
    for (U32 key = 0; key < 4; ++key) {
      auto const known = expected.slotUnderKey.find(key);
      if (actual->entryIndex(key).value() != (known == expected.slotUnderKey.end() ? 500 : known->second))
        return "position under key " + std::to_string(key);
    }
    return "";
  }

  Model::Recorder model_{*this};
  bool danglingKeys_ = false;  // a record under a key was deleted by hand
  bool checksEachRecord_ = false;
  std::string brokenMeanwhile_{};  // the first fault that such a check found
  std::mt19937 random_;
  std::function<U32(U32)> const choose_;
  bool const failures_;
  bool const surgery_;
  // By number some are equal, and some in another order than by name.
  std::vector<std::string> names_{"Ethernet1", "Fabric1", "Cpu1/0", "Ethernet3/2", "Fabric3/1", "Ethernet10"};
};

}  // namespace Test
