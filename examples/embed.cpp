// SPDX-License-Identifier: Apache-2.0
// The smallest host of the recorder: a record type of its own, one recorder, a few records of two ports,
// reports.
//
// docs/integration.md walks through it.

#include <cinttypes>
#include <cstdio>

#include "Vorn/Vorn.h"

namespace {

// What this platform knows of a congestion beyond queue length, time and duration: the packets that were
// lost. It writes itself into reports; the writers that no report of ours asks for are left as they are.
class PortEntry final : public Vorn::Entry {
 public:
  PortEntry(Kes::U32 qLen, Vorn::Microseconds timestamp, Kes::U32 drops)
      : Entry(qLen, timestamp), drops_(drops) {}

  Kes::S32 dumpEntry(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime, Kes::CharPtrConst intfName,
                     bool cvsFormat) const override {
    std::FILE* const out = file(filePtr);
    Kes::U64 const lasted = duration().value();
    if (cvsFormat)
      return result(std::fprintf(out, "%s,%s,%" PRIu64 ",%u\n", elapsedTime, intfName, lasted, qLen()));
    return result(std::fprintf(out, "%16s us  %-6s  %6" PRIu64 " us  %8u bytes\n", elapsedTime, intfName,
                               lasted, qLen()));
  }

  Kes::S32 dumpDrops(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                     Kes::CharPtrConst intfName) const override {
    return result(std::fprintf(file(filePtr), "%16s us  %-6s  %u dropped\n", elapsedTime, intfName, drops_));
  }

 private:
  static std::FILE* file(Kes::VoidPtr filePtr) { return static_cast<std::FILE*>(filePtr); }
  // Writers return 0, or -1 to end the report.
  static Kes::S32 result(int written) { return written < 0 ? -1 : 0; }

  Kes::U32 const drops_;
};

// A congestion that lasts longer than its interface's history reaches back.
class PortMetaDataDumper final : public Vorn::PortMetaDataDumper {
 public:
  Kes::S32 dumpStartMetaData(Vorn::PortMetaData const* portMetaData, Kes::VoidPtr stream,
                             bool csvFormat) const override {
    std::FILE* const out = static_cast<std::FILE*>(stream);
    Kes::U64 const start = portMetaData->timeOfCongestionStart().value();
    char const* const name = portMetaData->intfId().shortName().charPtr();
    int const written = csvFormat
                            ? std::fprintf(out, "%" PRIu64 ",%s,,\n", start, name)
                            : std::fprintf(out, "%16" PRIu64 " us  %-6s  congestion began\n", start, name);
    return written < 0 ? -1 : 0;
  }
};

// Threshold messages go to the system log unless a host takes them.
void printMessage(Kes::LogHandle const& handle, Kes::String const& text) {
  std::printf("message: %s: %s\n", handle.name(), text.charPtr());
}

Vorn::CongestionData::Ptr makeRecorder(Vorn::Clock::Ptr const& clock) {
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  status->vornEnabledByDefaultIs(true);
  status->defHighThresholdIs(100'000);
  status->defLowThresholdIs(20'000);
  auto const config = Kes::makePtr<Vorn::Config>();
  config->logIntervalIs(1.0);
  return Kes::makePtr<Vorn::CongestionData>(status, clock, config, Kes::makePtr<PortMetaDataDumper>());
}

// What a driver does with a queue that it sees congested: the same record again and again, as long as it
// lasts. Those that follow each other within a millisecond become one.
void feed(Vorn::CongestionData& recorder) {
  Pylo::IntfId const first("Ethernet1");
  Pylo::IntfId const second("Ethernet2");
  Vorn::Microseconds const coalesceTime(1000);
  Kes::U32 const queue = 3;  // tells the queues of one interface apart
  auto const record = [&](Pylo::IntfId const& port, Kes::U32 qLen, Kes::U64 time, Kes::U32 drops) {
    auto const entry = Kes::makePtr<PortEntry>(qLen, Vorn::Microseconds(time), drops);
    recorder.updateEntry(port, entry, coalesceTime, queue);
  };
  record(first, 30'000, 1'000'000, 0);
  record(first, 90'000, 1'000'800, 0);    // 800 us later: the same congestion, now 800 us long
  record(second, 150'000, 1'001'000, 7);  // over the high threshold
  record(first, 40'000, 1'005'000, 0);    // 4,200 us later: a new one
}

void report(Vorn::CongestionData& recorder, char const* command) {
  std::printf("--- \"%s\"\n", command);
  std::fflush(stdout);
  recorder.doMergeAndDumpEntries(stdout, command, /*reportHeader=*/"", /*footer=*/"");
}

}  // namespace

int main() {
  Kes::logSinkIs(printMessage);
  // Time stands still here, so that each run prints the same; a host uses Vorn::clockFactory().
  auto const clock = Vorn::testClockFactory();
  clock->utcTimeIs(1.5);
  auto const recorder = makeRecorder(clock);
  feed(*recorder);
  report(*recorder, "");
  report(*recorder, "-iEt2 -d");
  report(*recorder, "csv");
}
