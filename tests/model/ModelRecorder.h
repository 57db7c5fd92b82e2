// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support.h"

// The recorder once more, as plainly as it can be said: values in vectors, nothing shared, every search a
// linear scan. Slow, and the measure of the real one.
namespace Model {

using Kes::U16;
using Kes::U32;
using Kes::U64;

struct Record {
  U32 qLen;
  U64 timestamp;
  U64 duration = 0;
  bool alwaysLog = false;
  Kes::S32 result = 0;

  bool operator==(Record const&) const = default;
};

// Records in the order of their age, the k-th in slot (head + k) mod 500; an empty one is a hole.
struct Slots {
  U32 head = 0;
  std::deque<std::optional<Record>> records;

  U32 slot(std::size_t k) const { return static_cast<U32>((head + k) % Vorn::entriesPerChunk); }
  U32 tail() const { return slot(records.size() - 1); }
  bool operator==(Slots const&) const = default;

  std::size_t place(U32 slot) const { return (slot + Vorn::entriesPerChunk - head) % Vorn::entriesPerChunk; }
  Record* at(U32 slot) {
    std::size_t const k = place(slot);
    return k < records.size() && records[k] ? &*records[k] : nullptr;
  }
  void del(U32 slot) {
    bool const oldest = slot == head;
    bool const newest = slot == tail();
    if (at(slot) != nullptr) records[place(slot)].reset();
    for (; oldest && !records.empty() && !records.front(); head = this->slot(1)) records.pop_front();
    for (; newest && !records.empty() && !records.back();) records.pop_back();
  }
};

struct Chunk : Slots {
  U64 handedOut = 0;  // when, as a serial number: 0 for an interface's private first chunk
};

struct MetaData {
  U32 counter = 0;
  U64 start = 0;
};

struct Port {
  std::string name;
  std::vector<Chunk> chunks;
  std::map<U32, U32> slotUnderKey;
  Kes::Seconds lastSyslog = 0;
  std::map<U32, MetaData> metaData;
  U64 lost = 0, newestLost = 0;
};

struct GlobalLog : Slots {
  Kes::Seconds lastSyslog = 0;
  U32 counter = 0;
  U16 next = 65535;  // report cursor
  U16 left = 0;
};

class Recorder {
 public:
  explicit Recorder(Test::Bench const& inputs)
      : config_(inputs.config), status_(inputs.status), clock_(inputs.clock) {}

  U32 numSharedChunks = 200;
  std::vector<Port> ports;
  std::optional<GlobalLog> global;
  std::vector<std::string> logged;
  Vorn::CongestionData::Counts counts;

  Port* find(std::string const& name) {
    for (Port& port : ports)
      if (port.name == name) return &port;
    return nullptr;
  }

  Port& findOrMake(std::string const& name) {
    if (Port* const port = find(name)) return *port;
    ports.push_back({});
    ports.back().name = name;
    return ports.back();
  }

  void update(std::string const& name, Record const& record, U64 coalesceTime, U32 key) {
    Port& port = findOrMake(name);
    if (auto const known = port.slotUnderKey.find(key); known != port.slotUnderKey.end())
      if (Record* const matched = port.chunks.back().at(known->second)) {
        U64 const span = record.timestamp - matched->timestamp;
        if (span - matched->duration <= coalesceTime) {
          matched->duration = span;
          matched->qLen = std::max(matched->qLen, record.qLen);
          ++counts.merges;
          return;
        }
      }
    append(name, record);
    port.slotUnderKey[key] = port.chunks.back().tail();
  }

  void append(std::string const& name, Record const& record) {
    Port& port = findOrMake(name);
    Vorn::ThresholdsConfig thresholds = config_->defaultThresholdsConfig();
    if (!thresholds.configured) thresholds = {status_->defHighThreshold(), status_->defLowThreshold()};
    if (name.rfind("Cpu", 0) == 0 || name.rfind("Copp", 0) == 0)
      thresholds = {status_->defCpuHighThreshold(), status_->defCpuLowThreshold()};
    if (auto const* own = config_->portConfig(name)) thresholds = {own->highThreshold, own->lowThreshold};
    judge(port.lastSyslog, config_->logInterval(), Pylo::IntfId(name).shortName().str(), record,
          record.alwaysLog, thresholds);
    if (port.chunks.empty()) {
      port.chunks.emplace_back();
    } else if (port.chunks.back().records.size() == Vorn::entriesPerChunk) {
      if (pooled() >= numSharedChunks) takeOldestShared();
      port.chunks.emplace_back().handedOut = ++handedOut_;
      port.slotUnderKey.clear();
    }
    port.chunks.back().records.emplace_back(record);
    ++counts.appends;
  }

  void appendGlobal(Record const& record) {
    Vorn::ThresholdsConfig thresholds = config_->globalThresholdsConfig();
    if (!thresholds.configured)
      thresholds = {status_->defGlobalBufHighThreshold(), status_->defGlobalBufLowThreshold()};
    judge(global->lastSyslog, config_->globalLogInterval(), "", record, false, thresholds);
    if (global->records.size() == Vorn::entriesPerChunk) global->del(global->head);
    global->records.emplace_back(record);
  }

  void del(std::string const& name) {
    Port* const port = find(name);
    if (port == nullptr) return;
    for (Chunk const& chunk : port->chunks)
      if (chunk.handedOut != 0) free_.push_back(chunk.handedOut);
    ports.erase(ports.begin() + (port - ports.data()));
  }

  // Chunks in the pool, those of deleted ports included.
  std::size_t pooled() const {
    std::size_t count = free_.size();
    for (Port const& port : ports) count += port.chunks.empty() ? 0 : port.chunks.size() - 1;
    return count;
  }

  std::size_t free() const { return free_.size(); }

  // Records held, in all logs.
  int records() const {
    auto const count = [](Slots const& slots) {
      return static_cast<int>(std::count_if(slots.records.begin(), slots.records.end(),
                                            [](auto const& record) { return record.has_value(); }));
    };
    int sum = global ? count(*global) : 0;
    for (Port const& port : ports)
      for (Chunk const& chunk : port.chunks) sum += count(chunk);
    return sum;
  }

 private:
  void judge(Kes::Seconds& lastSyslog, Kes::Seconds interval, std::string const& intf, Record const& record,
             bool always, Vorn::ThresholdsConfig const& thresholds) {
    Kes::Seconds const now = clock_->utcTime();
    if (interval == 0 || !(now > lastSyslog + interval || always)) return;
    lastSyslog = now;
    bool const high = record.qLen >= thresholds.highThreshold;
    if (!high && record.qLen < thresholds.lowThreshold) return;
    logged.push_back("QUEUEMONITOR_LENGTH_OVER_THRESHOLD: Interface " + intf + " queue length is over " +
                     (high ? "high threshold of " : "low threshold of ") +
                     std::to_string(high ? thresholds.highThreshold : thresholds.lowThreshold) +
                     ", current length is " + std::to_string(record.qLen));
  }

  // Takes the shared chunk that was handed out longest ago from whoever has it.
  void takeOldestShared() {
    U64 oldest = ~U64{0};
    for (U64 const handedOut : free_) oldest = std::min(oldest, handedOut);
    for (Port const& port : ports)
      for (Chunk const& chunk : port.chunks)
        if (chunk.handedOut != 0) oldest = std::min(oldest, chunk.handedOut);
    std::erase(free_, oldest);
    for (Port& port : ports) {
      if (!port.chunks.empty() && port.chunks.back().handedOut == oldest) port.slotUnderKey.clear();
      for (Chunk const& chunk : port.chunks) {
        if (chunk.handedOut != oldest) continue;
        ++counts.steals;
        for (auto const& record : chunk.records)
          if (record) ++port.lost, port.newestLost = std::max(port.newestLost, record->timestamp);
      }
      std::erase_if(port.chunks, [&](Chunk const& chunk) { return chunk.handedOut == oldest; });
    }
  }

  Vorn::Config::Ptr const config_;
  Vorn::Hardware::Status::Ptr const status_;
  Vorn::TestClock::Ptr const clock_;
  std::vector<U64> free_;  // when the chunks of deleted ports had been handed out
  U64 handedOut_ = 0;
};

}  // namespace Model
