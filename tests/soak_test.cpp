// Ten million records from 64 interfaces over a pool of 8 chunks: memory stays where it was after the first
// hundred thousand.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tests/support.h"

namespace {

using namespace Test;

constexpr U32 interfaces = 64;
constexpr U32 poolChunks = 8;
constexpr U64 warmUp = 100'000;
#ifdef VORN_SANITIZED
constexpr bool sanitized = true;  // keeps freed memory back, and takes its time
constexpr U64 records = 500'000;
#else
constexpr bool sanitized = false;
constexpr U64 records = 10'000'000;
#endif

std::string nameOf(U32 port) { return "eth" + std::to_string(port); }
U32 lengthAt(U64 time) { return static_cast<U32>(time % 1000); }

U64 residentKiB() {
  U64 total = 0;
  U64 resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<U64>(sysconf(_SC_PAGESIZE)) / 1024;
}

TEST(Soak, MemoryStaysFlatAndTheReportIsRight) {
  Bench bench;
  bench.recorder->numSharedChunksIs(poolChunks);
  std::vector<Pylo::IntfId> ids;
  for (U32 port = 0; port < interfaces; ++port) ids.emplace_back(nameOf(port));
  U64 residentAfterWarmUp = 0;
  // Every second record is an update that merges into the one before: its length rises and it lasts 3 us.
  for (U64 i = 0; i < records / 2; ++i) {
    auto const port = static_cast<U32>((i * 2654435761U >> 7) % interfaces);
    U64 const time = 1'000'000 + i * 10;
    bench.recorder->updateEntry(ids[port], record(lengthAt(time), time), us(0), /*entryKey=*/7);
    bench.recorder->updateEntry(ids[port], record(lengthAt(time) + 1, time + 3), us(3), /*entryKey=*/7);
    if (i * 2 == warmUp) residentAfterWarmUp = residentKiB();
  }
  U64 const residentAtEnd = residentKiB();
  std::printf("%ju records: %ju KiB resident after %ju, %ju KiB at the end\n", records, residentAfterWarmUp,
              warmUp, residentAtEnd);
  if (!sanitized) {
    EXPECT_LE(residentAtEnd, residentAfterWarmUp + 256);
  }
  EXPECT_EQ(bench.recorder->chunkArrayCount(), poolChunks);
  EXPECT_EQ(bench.recorder->checkInvariants(), "");

  std::string const report = bench.report("csv");
  auto const lines = static_cast<U64>(std::count(report.begin(), report.end(), '\n') - 4);  // frame
  EXPECT_GE(lines, interfaces * Vorn::entriesPerChunk);
  EXPECT_LE(lines, (interfaces + poolChunks) * Vorn::entriesPerChunk);
}

}  // namespace
