// SPDX-License-Identifier: Apache-2.0
// What a recorder takes of memory, beside a formula that predicts it: so much a chunk, a retained record and
// an interface (below); and what of the latest records a pool keeps when all interfaces are busy. Each row is
// measured in a process of its own.
//
//   memory             prints a line a row; takes some seconds
//   memory --smoke     small sizes: shows that all can be measured

#include <cstdio>
#include <cstring>
#include <exception>

#include "bench/ChildProcess.h"
#include "bench/Resident.h"

namespace {

using namespace Bench;

// The formula's figures: a chunk with what the allocator adds, a record with its part of a slab's own data,
// all else that an interface takes.
constexpr double bytesPerChunk = 4064;
constexpr double bytesPerRecord = sizeof(Vorn::Entry) * 1.006;
constexpr double bytesPerInterface = 600;

struct Taken {
  U64 bytes;
  U64 retained;
};

// Interfaces with a record each: a recorder after so many appends at random.
class Rig {
 public:
  explicit Rig(U32 interfaces, U32 pool = Vorn::ChunkPool::defaultLimit)
      : workload_(interfaces), before_(residentBytes()), ids_(interfaceIds(workload_)) {
    recorder_->numSharedChunksIs(pool);
    for (U32 port = 0; port < interfaces; ++port) append(port, port);
  }

  void append(U64 records) {
    for (U64 n = 0; n < records; ++n) append(workload_.port(n), workload_.ports() + n);
  }
  void addMetaData(U32 each) {
    for (Pylo::IntfId const& id : ids_)
      for (U32 identifier = 0; identifier < each; ++identifier)
        recorder_->portData(id)->newPortMetaData(Vorn::portMetaDataFactory(identifier, id));
  }
  Taken taken() const { return {residentBytes() - before_, retainedRecords(*recorder_)}; }
  U32 sharedChunks() const { return recorder_->chunkArrayCount(); }
  // Of the records that append() was given, from the n-th on.
  U64 retainedFrom(U64 n) const {
    U64 records = 0;
    for (Pylo::IntfId const& id : ids_)
      for (Kept const& record : keptRecords(*recorder_->portData(id)))
        records += record.timestamp >= Workload::timestamp(workload_.ports() + n);
    return records;
  }

 private:
  void append(U32 port, U64 n) {
    recorder_->doAddToLog(
        ids_[port], Kes::makePtr<Vorn::Entry>(Workload::qLen(n), Vorn::Microseconds(Workload::timestamp(n))));
  }

  Workload workload_;
  U64 before_;
  std::vector<Pylo::IntfId> ids_;
  Vorn::CongestionData::Ptr recorder_ = newRecorder();
};

void printSizes() {
  std::printf("sizeof: Entry %zu, Chunk %zu, PortData %zu, PortMetaData %zu\n", sizeof(Vorn::Entry),
              sizeof(Vorn::Chunk), sizeof(Vorn::PortData), sizeof(Vorn::PortMetaData));
}

void printQuiet(U32 interfaces) {
  U64 const bytes = resultOfChild([&] { return Rig(interfaces).taken().bytes; });
  std::printf("%u quiet interfaces with one record each: %.0f bytes an interface\n", interfaces,
              static_cast<double>(bytes) / interfaces);
}

void printMetaData(U32 interfaces) {
  constexpr U32 each = 8;
  U64 const bytes = resultOfChild([&] {
    Rig rig(interfaces);
    U64 const before = rig.taken().bytes;
    rig.addMetaData(each);
    return rig.taken().bytes - before;
  });
  std::printf("%u metadata objects on each of %u interfaces: %.0f bytes an object\n", each, interfaces,
              static_cast<double>(bytes) / (double{each} * interfaces));
}

void printRecorder(U32 interfaces, U64 appends) {
  struct Result {
    Taken taken;
    U32 sharedChunks;
  };
  auto const [taken, sharedChunks] = resultOfChild([&] {
    Rig rig(interfaces);
    rig.append(appends);
    return Result{rig.taken(), rig.sharedChunks()};
  });
  double const formula = (interfaces + sharedChunks) * bytesPerChunk +
                         static_cast<double>(taken.retained) * bytesPerRecord +
                         interfaces * bytesPerInterface;
  std::printf("%u interfaces, %u shared chunks: %ju records retained, %ju KiB, formula %.0f KiB\n",
              interfaces, sharedChunks, taken.retained, taken.bytes / 1024, formula / 1024);
}

void printRecent(U32 interfaces, U32 pool, U64 appends) {
  U64 const recent = resultOfChild([&] {
    Rig rig(interfaces, pool);
    rig.append(appends);
    return rig.retainedFrom(appends / 2);
  });
  std::printf("%u busy interfaces, a pool of %u: %ju records retained of the last half of %ju\n", interfaces,
              pool, recent, appends);
}

}  // namespace

int main(int argc, char** argv) {
  bool const smoke = argc == 2 && std::strcmp(argv[1], "--smoke") == 0;
  if (argc > 1 && !smoke) {
    std::fprintf(stderr, "usage: memory [--smoke]\n");
    return 2;
  }
  try {
    printSizes();
    printQuiet(smoke ? 64 : 4096);
    printMetaData(smoke ? 64 : 4096);
    for (U32 const interfaces : {64U, 512U, 4096U}) {
      printRecorder(interfaces, smoke ? 100'000 : 8'000'000);
      if (smoke) break;
    }
    for (U32 const interfaces : {64U, 128U, 200U, 256U, 400U, 512U}) {
      for (U32 const pool : {200U, 600U, 1024U, 2 * interfaces})
        printRecent(interfaces, pool, smoke ? 100'000 : 8'000'000);
      if (smoke) break;
    }
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "memory: %s\n", failure.what());
    return 1;
  }
}
