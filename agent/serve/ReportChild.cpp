// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/ReportChild.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <regex>

#include "Kes/Format.h"
#include "Kes/Trace.h"
#include "Vorn/CommandOptions.h"
#include "agent/base/Journal.h"
#include "agent/base/PatternFault.h"
#include "agent/base/Printable.h"
#include "agent/base/StandardStreams.h"
#include "agent/record/InterfaceMatch.h"
#include "agent/record/RecordColumns.h"
#include "agent/record/ReportFooter.h"

namespace Agent {

namespace {

// How the child tells its parent what happened: its exit status, since it has no other channel. A bad pattern
// is `badPattern` plus the regular-expression library's error code. A pattern that matches nothing is
// `nothingMatches` plus its place in the request, or `farOff` if the place is too large to tell.
enum ExitStatus : int {
  whole = 0,
  broken = 1,
  outOfMemory = 2,
  failedOtherwise = 3,
  badPattern = 64,
  nothingMatches = 128,
  farOff = 255
};

// The recorder says through its error traces alone that a report failed.
bool reportFailed = false;

void noteFailure(Kes::TraceHandle const& handle, Kes::U32 level, std::string_view line) {
  if (level == 0) reportFailed = true;
  std::string const text = printable(line);
  writeToStandardError(Kes::format("%s %u %s", handle.name(), level, text.c_str()).str());
}

// Bytes on their way show that the patterns are done.
ssize_t sendToClient(void* socket, char const* data, std::size_t size) {
  startTimer(ITIMER_PROF, std::chrono::milliseconds(0));
  std::size_t sent = 0;
  while (sent < size) {
    ssize_t const taken = ::send(*static_cast<int*>(socket), data + sent, size - sent, MSG_NOSIGNAL);
    if (taken < 0 && errno != EINTR) break;
    if (taken > 0) sent += static_cast<std::size_t>(taken);
  }
  return static_cast<ssize_t>(sent);
}

void writeStream(int socket, ReportWriter const& writer) {
  constexpr std::size_t bufferBytes = 64 * 1024;
  auto const buffer = std::make_unique<char[]>(bufferBytes);
  std::FILE* const stream = ::fopencookie(&socket, "w", {nullptr, &sendToClient, nullptr, nullptr});
  if (stream == nullptr) throwErrno("fopencookie");
  std::setvbuf(stream, buffer.get(), _IOFBF, bufferBytes);
  writer(stream);
  bool const failed = std::ferror(stream) != 0;
  if (std::fclose(stream) != 0 || failed) reportFailed = true;
}

struct Report {
  Vorn::CongestionData& recorder;
  int socket;
  std::string const& command;
  ReportWriter const& writer;
  InterfaceNames const& interfaces;
  ReportChild::Limits limits;
};

int write(Report const& report) {
  if (report.writer) {
    writeStream(report.socket, report.writer);
    return whole;
  }
  Vorn::CommandOptions const options = Vorn::parseCommand(report.command);
  if (!options.interfacePatterns.empty()) startTimer(ITIMER_PROF, report.limits.patterns);
  writeStream(report.socket, [&](std::FILE* stream) {
    report.recorder.doMergeAndDumpEntries(stream, report.command, columnsFor(options),
                                          footerFor(options, report.recorder));
  });
  if (options.interfacePatterns.empty()) return whole;
  startTimer(ITIMER_PROF, report.limits.patterns);
  auto const unmatched = firstWithoutMatch(options.interfacePatterns, report.recorder, report.interfaces());
  return unmatched ? std::min<int>(nothingMatches + *unmatched, farOff) : whole;
}

int childMain(Report const& report) {
  leaveTheAgent(report.limits.time, report.socket);
  Kes::traceSinkIs(&noteFailure);
  try {
    int const status = write(report);
    return reportFailed ? broken : status;
  } catch (std::regex_error const& error) {
    return badPattern + static_cast<int>(error.code());
  } catch (std::bad_alloc const&) {
    return outOfMemory;
  } catch (std::exception const& error) {
    writeToStandardError("report \"" + report.command + "\": " + error.what());
    return failedOtherwise;
  } catch (...) {
    return failedOtherwise;
  }
}

std::string exitFailure(int status, std::string const& command) {
  if (status == whole) return "";
  if (status == outOfMemory) return "no memory for the report";
  if (status == farOff) return "no interface matches one of the last patterns";
  if (status >= nothingMatches) {
    auto const patterns = Vorn::parseCommand(command).interfacePatterns;
    return "no interface matches " +
           printable(patterns.at(static_cast<std::size_t>(status - nothingMatches)), /*longest=*/200);
  }
  if (status >= badPattern)
    return std::string("bad interface pattern: ") +
           patternFault(static_cast<std::regex_constants::error_type>(status - badPattern));
  return "the report broke off";
}

std::string signalFailure(int signal) {
  if (signal == SIGALRM) return "the report took too long";
  if (signal == SIGPROF) return "the report's patterns took too long";
  if (signal == SIGKILL) return "the report was stopped";
  note(LOG_WARNING, std::string("a report's process died: ") + ::strsignal(signal));
  return std::string("the report's process died: ") + ::strsignal(signal);
}

}  // namespace

ReportChild::ReportChild(Vorn::CongestionData::Ptr const& recorder, int clientSocket, std::string command,
                         ReportWriter const& writer, InterfaceNames const& interfaces, Limits limits)
    : command_(std::move(command)), process_([&] {
        return childMain({*recorder, clientSocket, command_, writer, interfaces, limits});
      }) {}

std::string ReportChild::failure() {
  int const status = process_.await();
  return WIFEXITED(status) ? exitFailure(WEXITSTATUS(status), command_) : signalFailure(WTERMSIG(status));
}

}  // namespace Agent
