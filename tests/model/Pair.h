#pragma once

#include <string>

#include "tests/model/ModelRecorder.h"

namespace Test {

// What is not the same in a log and in the model's, or nothing.
inline std::string differenceOf(Vorn::EntryQueue const& real, Model::Slots& model) {
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

// A recorder and its model, which are given the same.
class Pair : public Bench {
 public:
  Pair() { model.numSharedChunks = recorder->numSharedChunks(); }

  Model::Recorder model{*this};
  bool danglingKeys = false;  // a record under a key was deleted by hand
  bool checksEachRecord = false;
  std::string brokenMeanwhile;  // the first fault that such a check found

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
  void handleRecord() {
    if (checksEachRecord && brokenMeanwhile.empty()) brokenMeanwhile = recorder->checkInvariants();
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
    std::string const broken = brokenMeanwhile.empty() ? recorder->checkInvariants() : brokenMeanwhile;
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

}  // namespace Test
