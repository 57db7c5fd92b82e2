// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "Vorn/Vorn.h"
#include "bench/Workload.h"

namespace Bench {

inline Vorn::CongestionData::Ptr newRecorder() {
  return Kes::makePtr<Vorn::CongestionData>(Kes::makePtr<Vorn::Hardware::Status>(), Vorn::testClockFactory(),
                                            Kes::makePtr<Vorn::Config>(),
                                            Kes::makePtr<Vorn::PortMetaDataDumper>());
}

inline std::vector<Pylo::IntfId> interfaceIds(Workload const& workload) {
  std::vector<Pylo::IntfId> ids;
  for (std::string const& name : workload.names()) ids.emplace_back(name);
  return ids;
}

inline std::vector<Kept> keptRecords(Vorn::PortData const& port) {
  std::vector<Kept> records;
  for (Vorn::Chunk::Ptr const& chunk : port.chunkIterator())
    for (Vorn::Entry::Ptr const& entry : chunk->entryIterator())
      records.push_back({entry->timestamp().value(), entry->duration().value(), entry->qLen()});
  return records;
}

inline U64 retainedRecords(Vorn::CongestionData const& recorder) {
  U64 records = 0;
  for (auto const& [intfId, port] : recorder.portDataMap())
    for (Vorn::Chunk::Ptr const& chunk : port->chunkIterator()) records += chunk->entrys();
  return records;
}

// The recorder as a log under test. Of its 500 private and 25/16 times 500 shared slots an interface, half a
// chunk is empty on average, so it keeps about as many records as the others; and an interface takes a chunk
// from another once in 500 appends.
class RecorderLog {
 public:
  static constexpr std::size_t firsts = Vorn::entriesPerChunk;
  static constexpr std::size_t least = Vorn::entriesPerChunk;

  explicit RecorderLog(Workload const& workload) : ids_(interfaceIds(workload)), recorder_(newRecorder()) {
    recorder_->numSharedChunksIs(workload.ports() * 25 / 16 + 1);
  }

  void append(U32 port, U32 qLen, U64 timestamp) {
    recorder_->doAddToLog(ids_[port], Kes::makePtr<Vorn::Entry>(qLen, Vorn::Microseconds(timestamp)));
  }

  void update(U32 port, U32 qLen, U64 timestamp, U64 coalesceTime, U32 key) {
    recorder_->updateEntry(ids_[port], Kes::makePtr<Vorn::Entry>(qLen, Vorn::Microseconds(timestamp)),
                           Vorn::Microseconds(coalesceTime), key);
  }

  std::vector<Kept> kept(U32 port) const {
    Vorn::PortData::Ptr const log = recorder_->portData(ids_[port]);
    return log ? keptRecords(*log) : std::vector<Kept>();
  }

 private:
  std::vector<Pylo::IntfId> ids_;
  Vorn::CongestionData::Ptr recorder_;
};

}  // namespace Bench
