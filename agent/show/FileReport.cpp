// SPDX-License-Identifier: Apache-2.0
#include "agent/show/FileReport.h"

#include <array>
#include <cstdio>
#include <exception>
#include <regex>

#include "Vorn/CommandOptions.h"
#include "agent/base/FileDescriptor.h"
#include "agent/base/PatternFault.h"
#include "agent/base/PoolLimit.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/byname/ObjectChange.h"
#include "agent/byname/ObjectLookup.h"
#include "agent/byname/ObjectPath.h"
#include "agent/history/HistoryFile.h"
#include "agent/history/HistoryFormat.h"
#include "agent/history/HistoryReader.h"
#include "agent/query/QueryReport.h"
#include "agent/record/InterfaceMatch.h"
#include "agent/record/LinuxEntryType.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/RecordColumns.h"
#include "agent/record/ReportFooter.h"
#include "agent/show/PrintableOutput.h"

namespace Agent {

namespace {

using Kind = AnswerEnd::Kind;

// A stream that hands on what is written to it. What the output throws must not pass through the C library:
// it fails the stream, and is raised by finish().
class Passage {
 public:
  explicit Passage(Output output)
      : output_(std::move(output)), stream_(::fopencookie(this, "w", {nullptr, &pass, nullptr, nullptr})) {
    if (stream_ == nullptr) throwErrno("fopencookie");
    std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
  }
  Passage(Passage const&) = delete;
  Passage& operator=(Passage const&) = delete;
  ~Passage() { std::fclose(stream_); }

  std::FILE* stream() const { return stream_; }
  void finish() {
    std::fflush(stream_);
    if (fault_) std::rethrow_exception(fault_);
  }

 private:
  static ssize_t pass(void* cookie, char const* data, std::size_t size) {
    Passage& self = *static_cast<Passage*>(cookie);
    if (self.fault_) return 0;
    try {
      self.output_({data, size});
      return static_cast<ssize_t>(size);
    } catch (...) {
      self.fault_ = std::current_exception();
      return 0;
    }
  }

  Output const output_;
  std::array<char, 65536> buffer_;
  std::exception_ptr fault_;
  std::FILE* const stream_;
};

AnswerEnd endOf(std::string const& failure) {
  return failure.empty() ? AnswerEnd{Kind::whole} : AnswerEnd{Kind::refused, failure};
}

AnswerEnd write(Vorn::CongestionData::Ptr const& recorder, BurstLedger const& ledger,
                std::string const& request, std::FILE* out) {
  if (ObjectLookup::claims(request)) {
    ObjectLookup(recorder, request).write(out);
    return {Kind::whole};
  }
  if (isQuery(request)) {
    QueryReport report(queryFrom(request), *recorder, ledger, /*present=*/{}, QueryReport::Origin::file);
    return endOf(report.write(out));
  }
  Vorn::CommandOptions const options = Vorn::parseCommand(request);
  recorder->doMergeAndDumpEntries(out, request, columnsFor(options), footerFor(options, *recorder));
  return endOf(unmatchedPattern(options.interfacePatterns, *recorder, /*present=*/{}));
}

}  // namespace

AnswerEnd reportFromFile(std::string const& path, ShowCommand const& command, Output output) {
  std::string const request(Protocol::requestIn(command.request));
  if (request.starts_with(Protocol::statusRequest) || request == Protocol::saveRequest ||
      request.starts_with(Protocol::metricsRequest) || request == Protocol::configRequest ||
      isObjectChange(request))
    return {Kind::refused, "a file answers reports, types, type and get: ask an agent for the rest"};
  registerLinuxEntry();
  auto const clock = Vorn::testClockFactory();
  auto const recorder = Kes::makePtr<Vorn::CongestionData>(Kes::makePtr<Vorn::Hardware::Status>(), clock,
                                                           Kes::makePtr<Vorn::Config>(),
                                                           Kes::makePtr<LinuxPortMetaDataDumper>());
  recorder->numSharedChunksIs(maxPoolChunks);  // all that is in the file
  BurstLedger ledger;
  HistoryRead const read = readHistory(readFile(path, HistoryFormat::magic), *recorder, ledger);
  if (read.savedAt == Vorn::Microseconds(0)) return {Kind::refused, path + ": " + read.fault};
  recorder->numSharedChunksIs(read.poolLimit);
  clock->utcTimeIs(Vorn::Microseconds::toSeconds(read.savedAt));
  // What belongs into a file does as it is.
  PrintableOutput report(output, command.colour);
  bool const asItIs = !command.file.empty();
  AnswerEnd end{Kind::whole};
  try {
    Passage passage(asItIs ? output : Output([&report](std::string_view bytes) { report.take(bytes); }));
    end = write(recorder, ledger, request, passage.stream());
    passage.finish();
    report.finish();
  } catch (std::regex_error const& error) {
    return {Kind::refused, std::string("bad interface pattern: ") + patternFault(error.code())};
  } catch (ObjectError const& error) {
    return {Kind::refused, error.what()};
  } catch (QueryError const& error) {
    return {Kind::refused, error.what()};
  }
  if (read.kind == HistoryRead::Kind::whole || end.kind != Kind::whole) return end;
  return {Kind::broken, path + ": " + read.fault + "; what stands before that is shown"};
}

}  // namespace Agent
