// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "Kes/HashMap.h"
#include "Kes/Strep.h"
#include "Vorn/Clock.h"
#include "Vorn/Entry.h"
#include "Vorn/PortData.h"
#include "bench/Workload.h"

// The least that anything could do which gives the same result: what the recorder is measured against. The
// floors do without names, thresholds and a pool: their callers hold an array index. The host's clock is read
// for each record that is appended, as the recorder has to.
namespace Bench {

// Gives a class memory from a stack of free blocks of its size. Blocks are never given back.
template <class T>
class FromSlab {
 public:
  static void* operator new(std::size_t) {
    if (free_ == nullptr) grow();
    return std::exchange(free_, free_->next);
  }
  static void operator delete(void* block) noexcept { free_ = new (block) Block{free_}; }

 private:
  struct Block {
    Block* next;
  };

  static void grow() {
    constexpr std::size_t blocks = 4096;
    auto* const slab = static_cast<std::byte*>(::operator new(blocks * sizeof(T)));
    slabs_.push_back(slab);
    for (std::size_t i = blocks; i > 0; --i) FromSlab::operator delete(slab + (i - 1) * sizeof(T));
  }

  inline static Block* free_ = nullptr;
  inline static std::vector<void*> slabs_;  // keeps them reachable
};

// A record as drivers hand them over: counted, with virtual functions.
class SlabEntry final : public Vorn::Entry, public FromSlab<SlabEntry> {
 public:
  using Entry::Entry;
  using FromSlab::operator new;
  using FromSlab::operator delete;
};

// Append: array index, ring, slab record. Merge: array index, flat table from key to place in the ring.
class FloorLog {
 public:
  static constexpr std::size_t firsts = 0;
  static constexpr std::size_t least = capacity;

  explicit FloorLog(Workload const& workload) : ports_(workload.ports()) {}

  void append(U32 port, U32 qLen, U64 timestamp) {
    ports_[port].add(Handle(new Record(qLen, Vorn::Microseconds(timestamp))), clock_->getUTCTime());
  }

  void update(U32 port, U32 qLen, U64 timestamp, U64 coalesceTime, U32 key) {
    Handle record(new Record(qLen, Vorn::Microseconds(timestamp)));
    Port& log = ports_[port];
    U32 const* const latest = log.keys.find(key);
    if (latest != nullptr && log.next - *latest <= capacity &&
        merged(*log.ring[*latest % capacity], *record, coalesceTime))
      return;
    log.keys.put(key, log.next);
    log.add(std::move(record), clock_->getUTCTime());
  }

  std::vector<Kept> kept(U32 port) const {
    std::vector<Kept> records;
    Port const& log = ports_[port];
    for (U32 i = log.next - std::min(log.next, capacity); i != log.next; ++i) {
      Record const& record = *log.ring[i % capacity];
      records.push_back({record.timestamp().value(), record.duration().value(), record.qLen()});
    }
    return records;
  }

 private:
  using Record = SlabEntry;
  using Handle = Kes::Ptr<Record>;

  struct Port {
    Kes::HashMap<U32, U32, Vorn::PortData::KeyHash> keys;
    U32 next = 0;  // counts up; the ring's slot is the remainder
    Kes::Seconds lastTime = 0.0;
    std::array<Handle, capacity> ring{};

    void add(Handle record, Kes::Seconds time) {
      lastTime = time;
      ring[next++ % capacity] = std::move(record);
    }
  };

  static bool merged(Record& latest, Record const& record, U64 coalesceTime) {
    U64 const span = record.timestamp().value() - latest.timestamp().value();
    if (span - latest.duration().value() > coalesceTime) return false;
    latest.durationIs(Vorn::Microseconds(span));
    if (record.qLen() > latest.qLen()) latest.qLenIs(record.qLen());
    return true;
  }

  Vorn::Clock::Ptr const clock_ = Vorn::testClockFactory();
  std::vector<Port> ports_;
};

// Report: records that stand in order already, through the same writer into the same kind of stream.
struct SortedRecord {
  Vorn::Entry::Ptr entry;
  std::string shortName;
};

inline void writeSorted(std::vector<SortedRecord> const& records, std::FILE* out, bool csv) {
  auto const write = [out, csv](SortedRecord const& record) {
    Kes::DecimalText const time(record.entry->timestamp().value());
    expect(record.entry->dumpEntry(out, time.charPtr(), record.shortName.c_str(), csv) == 0, "a writer");
  };
  if (csv)
    std::for_each(records.begin(), records.end(), write);
  else
    std::for_each(records.rbegin(), records.rend(), write);
}

// Interface filter: each pattern is compiled whenever it is tried.
inline bool matchesCompilingEach(std::vector<std::string> const& patterns, std::string const& shortName) {
  return std::any_of(patterns.begin(), patterns.end(), [&](std::string const& pattern) {
    return std::regex_match(shortName, std::regex(pattern));
  });
}

}  // namespace Bench
