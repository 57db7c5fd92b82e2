#pragma once

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/LinuxEntry.h"
#include "bench/Floor.h"
#include "bench/RecorderLog.h"
#include "bench/ReportLine.h"
#include "bench/Workload.h"

// Reports into /dev/null, and what they are checked against.
namespace Bench {

// A platform's record that does the least: one line "TIME,INTERFACE,QLEN,DURATION", with blanks in text
// reports.
class ReportEntry final : public Vorn::Entry {
 public:
  using Entry::Entry;

  Kes::S32 dumpEntry(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst intf,
                     bool csv) const override {
    return write(file, time, intf, csv ? ',' : ' ');
  }
  Kes::S32 dumpDrops(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst intf) const override {
    return write(file, time, intf, ' ');
  }

 private:
  Kes::S32 write(Kes::VoidPtr file, char const* time, char const* intf, char separator) const {
    bool const whole =
        writeLine(static_cast<std::FILE*>(file), {time, intf, qLen(), duration().value()}, separator);
    return whole ? 0 : -1;
  }
};

// Makes the records of a report.
using RecordMaker = Vorn::Entry::Ptr (*)(U32 qLen, Vorn::Microseconds timestamp);

inline Vorn::Entry::Ptr plainRecord(U32 qLen, Vorn::Microseconds timestamp) {
  return Kes::makePtr<ReportEntry>(qLen, timestamp);
}

// A record of the agent's, whose writers put out the lines that operators read.
inline Vorn::Entry::Ptr agentRecord(U32 qLen, Vorn::Microseconds timestamp) {
  Agent::CongestionUpdate const update{
      .timestamp = timestamp.value(), .qLen = qLen, .peakBound = qLen + 12'000, .drainRate = 12'500'000};
  return Kes::makePtr<Agent::LinuxEntry>(Agent::QueueKey{0}, /*handle=*/U32{0}, update);
}

class ReportDumper final : public Vorn::PortMetaDataDumper {
  Kes::S32 dumpStartMetaData(Vorn::PortMetaData const* data, Kes::VoidPtr stream, bool) const override {
    return std::fprintf(static_cast<std::FILE*>(stream), "start %s\n", data->intfId().shortName().charPtr()) >
                   0
               ? 0
               : -1;
  }
};

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

// A recorder that holds `records` records of `ports` interfaces, of which none was released.
class ReportCase {
 public:
  ReportCase(U32 ports, U64 records, RecordMaker make = &plainRecord)
      : make_(make),
        workload_(ports),
        ids_(interfaceIds(workload_)),
        recorder_(newRecorder(Vorn::testClockFactory(), Kes::makePtr<ReportDumper>())) {
    recorder_->numSharedChunksIs(static_cast<U32>(records / Vorn::entriesPerChunk) + ports);
    for (U64 n = 0; n < records; ++n) {
      Pylo::IntfId const& id = ids_[workload_.port(n)];
      Vorn::Entry::Ptr const entry = make_(Workload::qLen(n), time(n));
      recorder_->doAddToLog(id, entry);
      sorted_.push_back({entry, id.shortName().str()});
    }
  }

  // Every interface gets a queue with a counter and a start: one after the other, all before the first
  // record.
  void addMetaData() {
    U64 start = 0;
    for (Pylo::IntfId const& id : ids_) {
      Vorn::PortMetaData::Ptr const queue = Vorn::portMetaDataFactory(1, id);
      queue->counterIs(1);
      queue->timeOfCongestionStartIs(Vorn::Microseconds(++start));
      recorder_->portDataIs(id)->portMetaDataIs(queue);
    }
    withStarts_ = true;
  }
  // Records of the global buffer stand among the others, each with the time of one of them. Not 500: a text
  // report leaves out a full log.
  static constexpr U64 globalRecords = 400;
  void addGlobalRecords() {
    recorder_->allocateGlobalChunk();
    for (U64 n = 0; n < globalRecords; ++n) {
      U64 const twin = n * (sorted_.size() / globalRecords);
      Vorn::Entry::Ptr const entry = make_(Workload::qLen(n), time(twin));
      recorder_->doAddToGlobalLog(entry);
      globalTwins_[twin] = entry;
    }
  }

  void report(std::FILE* out, char const* command) const {
    recorder_->doMergeAndDumpEntries(out, command, "", "");
  }
  void floor(std::FILE* out, bool csv) const { writeSorted(sorted_, out, csv); }

  // The report is the date and then, in order: the starts, the records, and those of the global buffer each
  // behind the record of the same time; the other way round in text, but for the latter.
  void check(bool csv, char const* command) const {
    checkReport(command, writtenBy([&](std::FILE* out) {
                  if (csv) writeStarts(out, ids_.begin(), ids_.end());
                  writeRecords(out, csv);
                  if (!csv) writeStarts(out, ids_.rbegin(), ids_.rend());
                }));
    if (!withStarts_ && globalTwins_.empty())
      checkReport(command, writtenBy([&](std::FILE* out) { floor(out, csv); }));
  }
  // The counters of all queues.
  void checkStatistics() const {
    std::string lines;
    for (Pylo::IntfId const& id : ids_) lines += id.shortName().str() + ", 1, 1\n";
    checkReport("-c", lines + "\nGlobal Hit Count = 0\n");
  }

  U64 records() const { return sorted_.size(); }
  Workload const& workload() const { return workload_; }
  std::vector<Pylo::IntfId> const& ids() const { return ids_; }

 private:
  void checkReport(char const* command, std::string const& lines) const {
    std::string const whole = writtenBy([&](std::FILE* out) { report(out, command); });
    expect(whole == "\nReport generated at 0.000000\n" + lines, std::string("report ") + command);
  }
  template <class Iterator>
  void writeStarts(std::FILE* out, Iterator begin, Iterator end) const {
    for (; withStarts_ && begin != end; ++begin)
      std::fprintf(out, "start %s\n", begin->shortName().charPtr());
  }
  void writeRecords(std::FILE* out, bool csv) const {
    for (U64 i = 0; i < sorted_.size(); ++i) {
      U64 const n = csv ? i : sorted_.size() - 1 - i;
      writeSorted({sorted_[n]}, out, csv);
      if (auto const twin = globalTwins_.find(n); twin != globalTwins_.end())
        writeSorted({{twin->second, "N/A"}}, out, csv);
    }
  }
  static Vorn::Microseconds time(U64 n) { return Vorn::Microseconds(Workload::timestamp(n)); }

  RecordMaker make_;
  Workload workload_;
  std::vector<Pylo::IntfId> ids_;
  Vorn::CongestionData::Ptr recorder_;
  std::vector<SortedRecord> sorted_;
  std::map<U64, Vorn::Entry::Ptr> globalTwins_;  // by the number of the record with the same time
  bool withStarts_ = false;
};

}  // namespace Bench
