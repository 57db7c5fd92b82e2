// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "bench/RecorderLog.h"
#include "bench/Workload.h"

// The ways a record can take on its way in, each as a case that runs over and over in a steady state.
namespace Bench {

// Appends into logs that are full: each append makes a record, and on average releases one.
template <class Log>
class AppendCase {
 public:
  explicit AppendCase(Workload const& workload) : workload_(workload), log_(workload) {}

  // So many records that every bound is reached.
  void fill() { run(workload_.ports() * U64{capacity} * 3 / 2); }
  // Records come and go until memory lies as it does after a long time: what is allocated one by one then
  // stands in no order any more.
  void age() { run(4'000'000); }

  double run(U64 count) {
    U64 const end = next_ + count;
    return secondsOf([&] {
      for (; next_ != end; ++next_)
        log_.append(workload_.port(next_), Workload::qLen(next_), Workload::timestamp(next_));
    });
  }

  void check() const {
    for (U32 const port : checkedPorts(workload_.ports()))
      checkHistory(workload_.recordsOf(port, next_), log_.kept(port), Log::firsts, Log::least);
  }

 private:
  Workload const& workload_;
  Log log_;
  U64 next_ = 0;
};

// Updates that merge into the record under their key: all of them, once it is filled.
template <class Log>
class MergeCase {
 public:
  explicit MergeCase(Workload const& workload) : workload_(workload), log_(workload) {}

  // So many updates that every key of every interface has been met.
  void fill() { run(workload_.ports() * U64{8} * 20); }

  double run(U64 count) {
    constexpr U64 coalesceTime = 3'600'000'000;
    U64 const end = next_ + count;
    return secondsOf([&] {
      for (; next_ != end; ++next_)
        log_.update(workload_.port(next_), Workload::qLen(next_), Workload::timestamp(next_), coalesceTime,
                    Workload::key(next_));
    });
  }

  void check() const {
    for (U32 const port : checkedPorts(workload_.ports()))
      expect(log_.kept(port) == workload_.mergedRecordsOf(port, next_), "merged records");
  }

 private:
  Workload const& workload_;
  Log log_;
  U64 next_ = 0;
};

// Appends of which every single one takes a full chunk from another interface. All shared chunks are full,
// one an interface, and a pass gives each interface one record more, in an order in which the chunk that was
// handed out longest ago is never the taker's own. After the pass the taken chunks are filled again.
class StealCase {
 public:
  explicit StealCase(U32 ports) : workload_(ports), ids_(interfaceIds(workload_)), recorder_(newRecorder()) {
    recorder_->numSharedChunksIs(ports);
    addRounds(2 * Vorn::entriesPerChunk);
  }

  // Seconds that the appends of one pass took.
  double runPass() {
    U32 const ports = workload_.ports();
    ++firstTaker_;
    double const seconds = secondsOf([&] {
      for (U32 i = 0; i < ports; ++i) add((firstTaker_ + i) % ports);
    });
    released_ += U64{Vorn::entriesPerChunk} * ports;
    expect(retainedRecords(*recorder_) + released_ == next_, "each append releases a whole chunk");
    addRounds(Vorn::entriesPerChunk - 1);
    return seconds;
  }

  // Each interface holds its first 500 records, and in the chunk that it took last what came since: one of
  // the pass, and one of each round behind it.
  void check() const {
    U32 const ports = workload_.ports();
    U64 const pass = next_ - U64{Vorn::entriesPerChunk} * ports;
    for (U32 const port : checkedPorts(ports)) {
      std::vector<Kept> expected;
      auto const add = [&](U64 n) { expected.push_back({Workload::timestamp(n), 0, Workload::qLen(n)}); };
      for (U32 round = 0; round < Vorn::entriesPerChunk; ++round) add(U64{round} * ports + port);
      add(pass + (port + ports - firstTaker_ % ports) % ports);
      for (U32 round = 1; round < Vorn::entriesPerChunk; ++round) add(pass + U64{round} * ports + port);
      expect(keptRecords(*recorder_->portData(ids_[port])) == expected, "records beside a taken chunk");
    }
  }

 private:
  void add(U32 port) {
    recorder_->doAddToLog(
        ids_[port],
        Kes::makePtr<Vorn::Entry>(Workload::qLen(next_), Vorn::Microseconds(Workload::timestamp(next_))));
    ++next_;
  }
  void addRounds(U32 rounds) {
    for (U32 round = 0; round < rounds; ++round)
      for (U32 port = 0; port < workload_.ports(); ++port) add(port);
  }

  Workload workload_;
  std::vector<Pylo::IntfId> ids_;
  Vorn::CongestionData::Ptr recorder_;
  U32 firstTaker_ = 0;
  U64 next_ = 0;
  U64 released_ = 0;
};

// The floor of stealing: as many records, made in the same order, are just released, 500 at a time.
class ReleaseCase {
 public:
  explicit ReleaseCase(U32 ports) : chunks_(ports, Chunk(Vorn::entriesPerChunk)) { fill(); }

  double runPass() {
    double const seconds = secondsOf([&] {
      for (Chunk& chunk : chunks_)
        for (Vorn::Entry::Ptr& entry : chunk) entry = nullptr;
    });
    fill();
    return seconds;
  }

 private:
  using Chunk = std::vector<Vorn::Entry::Ptr>;

  void fill() {
    for (U32 slot = 0; slot < Vorn::entriesPerChunk; ++slot)
      for (Chunk& chunk : chunks_) chunk[slot] = Kes::makePtr<Vorn::Entry>(slot, Vorn::Microseconds(slot));
  }

  std::vector<Chunk> chunks_;
};

}  // namespace Bench
