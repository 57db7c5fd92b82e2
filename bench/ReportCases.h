// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Kes/Format.h"
#include "agent/query/QueryReport.h"
#include "agent/record/LinuxEntry.h"
#include "bench/Floor.h"
#include "bench/RecorderLog.h"
#include "bench/Workload.h"

// Reports into /dev/null, and what they are checked against.
namespace Bench {

// A stream to nowhere with the buffer that the recorder gives to its own.
class NullStream {
 public:
  NullStream() : buffer_(64 * 1024), stream_(std::fopen("/dev/null", "w")) {
    if (stream_ == nullptr) throw std::runtime_error("/dev/null cannot be opened");
    std::setvbuf(stream_.get(), buffer_.data(), _IOFBF, buffer_.size());
  }
  std::FILE* get() const { return stream_.get(); }

 private:
  struct Close {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };
  std::vector<char> buffer_;
  std::unique_ptr<std::FILE, Close> stream_;
};

// What an operation writes into the stream that it is given.
template <class Write>
std::string writtenBy(Write write) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  if (stream == nullptr) throw std::bad_alloc();
  write(stream);
  std::fclose(stream);
  std::string written(text, size);
  std::free(text);
  return written;
}

// A recorder that holds `records` records of `ports` interfaces, of which none was released: the agent's,
// whose writers put out the lines that operators read.
class ReportCase {
 public:
  ReportCase(U32 ports, U64 records) {
    Workload const workload(ports);
    std::vector<Pylo::IntfId> const ids = interfaceIds(workload);
    recorder_->numSharedChunksIs(static_cast<U32>(records / Vorn::entriesPerChunk) + ports);
    for (U64 n = 0; n < records; ++n) {
      Agent::CongestionUpdate const update{.timestamp = Workload::timestamp(n),
                                           .qLen = Workload::qLen(n),
                                           .peakBound = Workload::qLen(n) + 12'000,
                                           .latency = 4'000};
      Pylo::IntfId const& id = ids[workload.port(n)];
      Vorn::Entry::Ptr const entry =
          Kes::makePtr<Agent::LinuxEntry>(Agent::QueueKey{0}, /*handle=*/U32{0}, update);
      recorder_->doAddToLog(id, entry);
      ledger_.handleRecord(id, *entry);
      sorted_.push_back({entry, id.shortName().str()});
    }
  }

  void report(std::FILE* out, char const* command) const {
    recorder_->doMergeAndDumpEntries(out, command, "", "");
  }
  // As vorn-show asks.
  void ask(std::FILE* out, Agent::Query const& query) const {
    Agent::QueryReport(query, *recorder_, ledger_, {}).write(out);
  }
  // A query of the newest part of the records, in millionths.
  Agent::Query ofNewest(U64 part) const {
    auto const time = [&](std::size_t place) { return sorted_[place].entry->timestamp().value(); };
    U64 const since = time(sorted_.size() - 1 - sorted_.size() * part / 1'000'000);
    return {.since = Kes::format("@%u.%06u", since / 1'000'000, since % 1'000'000).str()};
  }
  void floor(std::FILE* out, bool csv) const { writeSorted(sorted_, out, csv); }

  // Both write the same lines.
  void check(bool csv, char const* command) const {
    std::string const lines = writtenBy([&](std::FILE* out) { floor(out, csv); });
    std::string const whole = writtenBy([&](std::FILE* out) { report(out, command); });
    expect(whole == "\nReport generated at 0.000000\n" + lines, std::string("report ") + command);
    if (csv) return;
    std::string const asked = writtenBy([&](std::FILE* out) { ask(out, {}); });
    expect(asked.ends_with(lines), "query");
  }

 private:
  Vorn::CongestionData::Ptr const recorder_ = newRecorder();
  Agent::BurstLedger ledger_;
  std::vector<SortedRecord> sorted_;
};

}  // namespace Bench
