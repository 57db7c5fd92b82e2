#include "agent/show/FileReport.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
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
#include "agent/history/HistoryReader.h"
#include "agent/record/InterfaceMatch.h"
#include "agent/record/LinuxEntryType.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/ReportColumns.h"
#include "agent/show/PrintableOutput.h"

namespace Agent {

namespace {

using Kind = AnswerEnd::Kind;

// A stream into memory.
class Memory {
 public:
  Memory() : stream_(::open_memstream(&text_, &size_)) {
    if (stream_ == nullptr) throwErrno("open_memstream");
  }
  Memory(Memory const&) = delete;
  Memory& operator=(Memory const&) = delete;
  ~Memory() {
    std::fclose(stream_);
    std::free(text_);
  }
  std::FILE* stream() const { return stream_; }
  std::string_view text() const {
    if (std::fflush(stream_) != 0) throw std::bad_alloc();
    return {text_, size_};
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* const stream_;
};

AnswerEnd write(Vorn::CongestionData::Ptr const& recorder, std::string const& request, std::FILE* out) {
  if (ObjectLookup::claims(request)) {
    ObjectLookup(recorder, request).write(out);
    return {Kind::whole};
  }
  Vorn::CommandOptions const options = Vorn::parseCommand(request);
  recorder->doMergeAndDumpEntries(out, request, columnsFor(options), /*footer=*/"");
  auto const unmatched = firstWithoutMatch(options.interfacePatterns, *recorder, /*present=*/{});
  if (!unmatched) return {Kind::whole};
  return {Kind::refused, "no interface of the file matches " +
                             options.interfacePatterns[static_cast<std::size_t>(*unmatched)]};
}

}  // namespace

AnswerEnd reportFromFile(std::string const& path, ShowCommand const& command, ReportFilter::Output output) {
  std::string const& request = command.request;
  if (request == Protocol::statusRequest || request == Protocol::saveRequest || isObjectChange(request))
    return {Kind::refused, "a file answers reports, types, type and get: ask an agent for the rest"};
  registerLinuxEntry();
  auto const clock = Vorn::testClockFactory();
  auto const recorder = Kes::makePtr<Vorn::CongestionData>(Kes::makePtr<Vorn::Hardware::Status>(), clock,
                                                           Kes::makePtr<Vorn::Config>(),
                                                           Kes::makePtr<LinuxPortMetaDataDumper>());
  recorder->numSharedChunksIs(maxPoolChunks);  // all that is in the file
  HistoryRead const read = readHistory(readFile(path), *recorder);
  if (read.savedAt == Vorn::Microseconds(0)) return {Kind::refused, path + ": " + read.fault};
  recorder->numSharedChunksIs(read.poolLimit);
  clock->utcTimeIs(Vorn::Microseconds::toSeconds(read.savedAt));
  Memory memory;
  AnswerEnd end{Kind::whole};
  try {
    end = write(recorder, request, memory.stream());
  } catch (std::regex_error const& error) {
    return {Kind::refused, std::string("bad interface pattern: ") + patternFault(error.code())};
  } catch (ObjectError const& error) {
    return {Kind::refused, error.what()};
  }
  ReportFilter filter(command.form, std::move(output));
  PrintableOutput report([&filter](std::string_view bytes) { filter.take(bytes); });
  report.take(memory.text());
  report.finish();
  filter.finish();
  if (read.kind == HistoryRead::Kind::whole || end.kind != Kind::whole) return end;
  return {Kind::broken, path + ": " + read.fault + "; what stands before that is shown"};
}

}  // namespace Agent
