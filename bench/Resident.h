// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "bench/RecorderLog.h"

namespace Bench {

// Resident memory of this process, in bytes.
inline U64 residentBytes() {
  U64 total = 0;
  U64 resident = 0;
  std::ifstream statm("/proc/self/statm");
  if (!(statm >> total >> resident)) throw std::runtime_error("/proc/self/statm cannot be read");
  return resident * static_cast<U64>(sysconf(_SC_PAGESIZE));
}

// What a recorder of 64 interfaces with three shared chunks each takes a record that it retains: records,
// slots, chunks and all else, after so many rounds in which each interface gets a record. All chunks are full
// then, which tells what a record takes; a chunk that is filling takes its 4 KB from the start.
inline double bytesPerRetainedRecord(U64 rounds) {
  constexpr U32 ports = 64;
  constexpr U32 chunksAPort = 4;
  Workload const workload(ports);
  std::vector<Pylo::IntfId> const ids = interfaceIds(workload);
  U64 const before = residentBytes();
  Vorn::CongestionData::Ptr const recorder = newRecorder();
  recorder->numSharedChunksIs((chunksAPort - 1) * ports);
  for (U64 n = 0; n < rounds * ports; ++n)
    recorder->doAddToLog(ids[n % ports], Kes::makePtr<Vorn::Entry>(
                                             Workload::qLen(n), Vorn::Microseconds(Workload::timestamp(n))));
  U64 const taken = residentBytes() - before;
  U64 const retained = retainedRecords(*recorder);
  expect(retained == chunksAPort * ports * U64{Vorn::entriesPerChunk}, "retained records");
  return static_cast<double>(taken) / static_cast<double>(retained);
}

}  // namespace Bench
