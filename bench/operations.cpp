// SPDX-License-Identifier: Apache-2.0
// One operation over and over, for callgrind and perf: scripts/count-instructions counts what it takes.
//
//   operations append COUNT [INTERFACES]   records into logs, in turns; the pool is the default one
//   operations merge COUNT [INTERFACES]    updates, of which all but the first under each key merge
//   operations line COUNT [INTERFACES]     lines of comma-separated reports of 20,000 records of the agent's
//
// It needs nothing but the library and the agent's record, so that it can be built beside any older state
// too.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Vorn/Vorn.h"
#if __has_include("agent/record/LinuxEntry.h")
#include "agent/record/LinuxEntry.h"
#else
#include "agent/LinuxEntry.h"
#endif

namespace {

using Kes::U32;

class Operations {
 public:
  explicit Operations(U32 interfaces) {
    for (U32 i = 0; i < interfaces; ++i) ids_.emplace_back("Ethernet" + std::to_string(i));
  }

  void append(U32 count) const {
    for (U32 n = 0; n < count; ++n) recorder_->doAddToLog(id(n), record(n));
  }

  void merge(U32 count) const {
    Vorn::Microseconds const hour(3'600'000'000);
    for (U32 n = 0; n < count; ++n) recorder_->updateEntry(id(n), record(n), hour, n & 7);
  }

  void lines(U32 count) const {
    constexpr U32 records = 20'000;
    for (U32 n = 0; n < records; ++n) {
      Agent::CongestionUpdate const update{
          .timestamp = 1000 + n, .qLen = n, .peakBound = n + 12'000, .latency = 4'000};
      recorder_->doAddToLog(id(n), Kes::makePtr<Agent::LinuxEntry>(Agent::QueueKey{0}, U32{0}, update));
    }
    std::FILE* const out = std::fopen("/dev/null", "w");
    if (out == nullptr) std::abort();
    for (U32 written = 0; written < count; written += records)
      recorder_->doMergeAndDumpEntries(out, "csv", "", "");
    std::fclose(out);
  }

 private:
  // In an order in which neighbours do not follow each other.
  Pylo::IntfId const& id(U32 n) const { return ids_[n * 7 % ids_.size()]; }
  static Vorn::Entry::Ptr record(U32 n) { return Kes::makePtr<Vorn::Entry>(n, Vorn::Microseconds(1000 + n)); }

  std::vector<Pylo::IntfId> ids_;
  Vorn::CongestionData::Ptr recorder_ = Kes::makePtr<Vorn::CongestionData>(
      Kes::makePtr<Vorn::Hardware::Status>(), Vorn::testClockFactory(), Kes::makePtr<Vorn::Config>(),
      Kes::makePtr<Vorn::PortMetaDataDumper>());
};

}  // namespace

int main(int argc, char** argv) {
  char const* const what = argc > 2 ? argv[1] : "";
  auto const number = [&](int at) { return static_cast<U32>(std::strtoul(argv[at], nullptr, 10)); };
  U32 const count = argc > 2 ? number(2) : 0;
  Operations const operations(argc > 3 ? number(3) : 64);
  if (std::strcmp(what, "append") == 0) return operations.append(count), 0;
  if (std::strcmp(what, "merge") == 0) return operations.merge(count), 0;
  if (std::strcmp(what, "line") == 0) return operations.lines(count), 0;
  std::fprintf(stderr, "usage: operations append|merge|line COUNT [INTERFACES]\n");
  return 2;
}
