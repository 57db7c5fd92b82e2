// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/ReportChild.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <regex>

#include "Kes/Format.h"
#include "Kes/Trace.h"
#include "Vorn/CommandOptions.h"
#include "agent/base/Journal.h"
#include "agent/base/PatternFault.h"
#include "agent/base/Printable.h"
#include "agent/base/StandardStreams.h"
#include "agent/query/Query.h"
#include "agent/record/InterfaceMatch.h"
#include "agent/record/RecordColumns.h"
#include "agent/record/ReportFooter.h"

namespace Agent {

namespace {

// The recorder says through its error traces alone that a report failed.
bool reportFailed = false;

void noteFailure(Kes::TraceHandle const& handle, Kes::U32 level, std::string_view line) {
  if (level == 0) reportFailed = true;
  std::string const text = printable(line);
  writeToStandardError(Kes::format("%s %u %s", handle.name(), level, text.c_str()).str());
}

// Bytes on their way show that the patterns are done.
ssize_t sendToClient(void* socket, char const* data, std::size_t size) {
  ReportChild::patternsAreDone();
  std::size_t sent = 0;
  while (sent < size) {
    ssize_t const taken = ::send(*static_cast<int*>(socket), data + sent, size - sent, MSG_NOSIGNAL);
    if (taken < 0 && errno != EINTR) break;
    if (taken > 0) sent += static_cast<std::size_t>(taken);
  }
  return static_cast<ssize_t>(sent);
}

std::string writeStream(int socket, ReportWriter const& writer) {
  constexpr std::size_t bufferBytes = 64 * 1024;
  auto const buffer = std::make_unique<char[]>(bufferBytes);
  std::FILE* const stream = ::fopencookie(&socket, "w", {nullptr, &sendToClient, nullptr, nullptr});
  if (stream == nullptr) throwErrno("fopencookie");
  std::setvbuf(stream, buffer.get(), _IOFBF, bufferBytes);
  std::string const failure = writer(stream);
  bool const failed = std::ferror(stream) != 0;
  if (std::fclose(stream) != 0 || failed) reportFailed = true;
  return failure;
}

struct Report {
  Vorn::CongestionData& recorder;
  int socket;
  std::string const& command;
  ReportWriter const& writer;
  InterfaceNames const& interfaces;
  ReportChild::Limits limits;
};

std::string writeRecordersOwn(Report const& report) {
  Vorn::CommandOptions const options = Vorn::parseCommand(report.command);
  writeStream(report.socket, [&](std::FILE* stream) {
    report.recorder.doMergeAndDumpEntries(stream, report.command, columnsFor(options),
                                          footerFor(options, report.recorder));
    return std::string();
  });
  if (options.interfacePatterns.empty()) return "";
  startTimer(ITIMER_PROF, report.limits.patterns);
  return unmatchedPattern(options.interfacePatterns, report.recorder, report.interfaces());
}

// What went wrong, for people; empty: nothing.
std::string write(Report const& report) {
  startTimer(ITIMER_PROF, report.limits.patterns);
  try {
    return report.writer ? writeStream(report.socket, report.writer) : writeRecordersOwn(report);
  } catch (std::regex_error const& error) {
    return std::string("bad interface pattern: ") + patternFault(error.code());
  } catch (QueryError const& error) {
    return printable(error.what());
  }
}

constexpr int brokenOff = 1;

int childMain(Report const& report, SharedText& failure) {
  leaveTheAgent(report.limits.time, report.socket);
  Kes::traceSinkIs(&noteFailure);
  try {
    failure.set(write(report));
    return reportFailed ? brokenOff : 0;
  } catch (std::bad_alloc const&) {
    failure.set("no memory for the report");
    return 0;
  } catch (std::exception const& error) {
    writeToStandardError("report \"" + report.command + "\": " + error.what());
    return brokenOff;
  } catch (...) {
    return brokenOff;
  }
}

std::string signalFailure(int signal) {
  if (signal == SIGALRM) return "the report took too long";
  if (signal == SIGPROF) return "the report's patterns took too long";
  if (signal == SIGKILL) return "the report was stopped";
  note(LOG_WARNING, std::string("a report's process died: ") + ::strsignal(signal));
  return std::string("the report's process died: ") + ::strsignal(signal);
}

}  // namespace

ReportChild::ReportChild(Vorn::CongestionData::Ptr const& recorder, int clientSocket,
                         std::string const& command, ReportWriter const& writer,
                         InterfaceNames const& interfaces, Limits limits)
    : process_([&] {
        return childMain({*recorder, clientSocket, command, writer, interfaces, limits}, failure_);
      }) {}

void ReportChild::patternsAreDone() { startTimer(ITIMER_PROF, std::chrono::milliseconds(0)); }

std::string ReportChild::failure() {
  int const status = process_.await();
  if (!WIFEXITED(status)) return signalFailure(WTERMSIG(status));
  return WEXITSTATUS(status) == 0 ? failure_.text() : "the report broke off";
}

}  // namespace Agent
