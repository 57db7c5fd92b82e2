// Ten million records from 64 interfaces over a pool of 8 chunks: memory stays where it was after the first
// hundred thousand, and the report at the end holds exactly what a plain account of the pool says is left.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Vorn/Vorn.h"

namespace {

constexpr std::uint32_t interfaces = 64;
constexpr std::uint32_t poolChunks = 8;
constexpr std::uint64_t warmUp = 100'000;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
constexpr std::uint64_t records = sanitized ? 500'000 : 10'000'000;

class SoakEntry : public Vorn::Entry {
 public:
  using Entry::Entry;
  Kes::S32 dumpEntry(Kes::VoidPtr stream, char const* time, char const* name, bool) const override {
    std::fprintf(static_cast<std::FILE*>(stream), "%s %s %u %ju\n", name, time, qLen(),
                 static_cast<std::uintmax_t>(duration().value()));
    return 0;
  }
};

// What is left in the logs: the first 500 records of every interface, and the chunks of a first-in, first-out
// pool.
struct Account {
  struct Shared {
    std::uint32_t port;
    std::vector<std::uint64_t> times;
  };
  std::vector<std::vector<std::uint64_t>> privates{interfaces};
  std::deque<Shared> pool;

  void add(std::uint32_t port, std::uint64_t time) {
    if (privates[port].size() < Vorn::entriesPerChunk) return privates[port].push_back(time);
    for (auto shared = pool.rbegin(); shared != pool.rend(); ++shared) {
      if (shared->port != port) continue;
      if (shared->times.size() < Vorn::entriesPerChunk) return shared->times.push_back(time);
      break;  // only the newest chunk is appended to
    }
    if (pool.size() == poolChunks) pool.pop_front();
    pool.push_back({port, {time}});
  }

  std::vector<std::string> lines(std::vector<std::string> const& names) const {
    std::vector<std::pair<std::uint64_t, std::uint32_t>> all;
    for (std::uint32_t port = 0; port < interfaces; ++port)
      for (std::uint64_t const time : privates[port]) all.emplace_back(time, port);
    for (Shared const& shared : pool)
      for (std::uint64_t const time : shared.times) all.emplace_back(time, shared.port);
    std::sort(all.begin(), all.end());
    std::vector<std::string> result;
    for (auto const& [time, port] : all)
      result.push_back(names[port] + " " + std::to_string(time) + " " + std::to_string(time % 1000 + 1) +
                       " 3");
    return result;
  }
};

std::uint64_t residentKiB() {
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::vector<std::string> csvLines(Vorn::CongestionData& recorder) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  recorder.doMergeAndDumpEntries(stream, "csv", "", "");
  std::fclose(stream);
  std::unique_ptr<char, decltype(&std::free)> const owned(text, std::free);
  std::istringstream in(std::string(text, size));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    if (line.starts_with("eth")) lines.push_back(line);
  return lines;
}

TEST(Soak, MemoryStaysFlatAndTheReportIsRight) {
  auto const recorder = Kes::makePtr<Vorn::CongestionData>(
      Kes::makePtr<Vorn::Hardware::Status>(), Vorn::testClockFactory(), Kes::makePtr<Vorn::Config>(),
      Kes::makePtr<Vorn::PortMetaDataDumper>());
  recorder->numSharedChunksIs(poolChunks);
  std::vector<std::string> names;
  std::vector<Pylo::IntfId> ids;
  for (std::uint32_t port = 0; port < interfaces; ++port) {
    names.push_back("eth" + std::to_string(port));
    ids.emplace_back(names.back());
  }

  Account account;
  std::uint64_t residentAfterWarmUp = 0;
  // Every second record is an update that merges into the one before: its length rises and it lasts 3 us.
  for (std::uint64_t i = 0; i < records / 2; ++i) {
    auto const port = static_cast<std::uint32_t>((i * 2654435761U >> 7) % interfaces);
    std::uint64_t const time = 1'000'000 + i * 10;
    auto const length = static_cast<std::uint32_t>(time % 1000);
    Vorn::Entry::Ptr const opened = Kes::makePtr<SoakEntry>(length, Vorn::Microseconds(time));
    Vorn::Entry::Ptr const update = Kes::makePtr<SoakEntry>(length + 1, Vorn::Microseconds(time + 3));
    recorder->updateEntry(ids[port], opened, Vorn::Microseconds(0), /*entryKey=*/7);
    recorder->updateEntry(ids[port], update, Vorn::Microseconds(3), /*entryKey=*/7);
    account.add(port, time);
    if (i * 2 == warmUp) residentAfterWarmUp = residentKiB();
  }

  std::uint64_t const residentAtEnd = residentKiB();
  std::printf("%ju records: %ju KiB resident after %ju, %ju KiB at the end\n",
              static_cast<std::uintmax_t>(records), static_cast<std::uintmax_t>(residentAfterWarmUp),
              static_cast<std::uintmax_t>(warmUp), static_cast<std::uintmax_t>(residentAtEnd));
  // A sanitizer keeps freed memory back.
  if (!sanitized) {
    EXPECT_LE(residentAtEnd, residentAfterWarmUp + 256);
  }
  EXPECT_EQ(recorder->chunkArrayCount(), poolChunks);
  EXPECT_EQ(recorder->checkInvariants(), "");
  EXPECT_EQ(csvLines(*recorder), account.lines(names));
}

}  // namespace
