// SPDX-License-Identifier: Apache-2.0
#include <signal.h>
#include <sys/socket.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Vorn/CommandOptions.h"
#include "Vorn/CongestionData.h"
#include "Vorn/StartEntry.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/CsvReport.h"
#include "Vorn/internal/GlobalBufferReport.h"
#include "Vorn/internal/StatisticsReport.h"
#include "Vorn/internal/TextReport.h"

// How a show-command is answered: socket, stream, options, selection, report. Reports only read the recorder,
// but for the cursors in it; what an operation must leave to be seen is set here.

namespace Vorn {

namespace {

// Reports are written in pieces of this size.
constexpr std::size_t streamBufferSize = 64 * 1024;

// What a socket is asked to buffer, in bytes, so that most reports never wait for their reader.
constexpr int socketBufferSize = 8000000;

// While one of these lives, writing to a socket whose reader has gone is an error and not the death of the
// process: SIGPIPE is blocked for this thread, and one that came meanwhile is taken away again. What the host
// does with the signal elsewhere stays untouched.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    wasPending_ = isPending();
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  BrokenPipeGuard(BrokenPipeGuard const&) = delete;
  BrokenPipeGuard& operator=(BrokenPipeGuard const&) = delete;
  ~BrokenPipeGuard() {
    timespec const noWait{};
    if (!wasPending_ && isPending()) sigtimedwait(&pipe_, nullptr, &noWait);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  static bool isPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  sigset_t pipe_;
  sigset_t before_;
  bool wasPending_;
};

struct CloseStream {
  void operator()(std::FILE* stream) const {
    if (std::fclose(stream) == 0) return;
    int const error = errno;
    VORN_TRACE(0, "fclose failed : " << std::strerror(error));
  }
};
using StreamPtr = std::unique_ptr<std::FILE, CloseStream>;

}  // namespace

void CongestionData::handleCommand(Kes::U32 socket, Kes::String command, Kes::String reportHeader,
                                   Kes::String footer) {
  VORN_TRACE(6, "Socket: " << socket << ", Command:" << command << "end");
  int const descriptor = static_cast<int>(socket);
  if (setsockopt(descriptor, SOL_SOCKET, SO_SNDBUFFORCE, &socketBufferSize, sizeof socketBufferSize) == -1) {
    int const error = errno;
    VORN_TRACE(0, "setsockopt failed : " << std::strerror(error));
    return;
  }
  auto const buffer = std::make_unique<char[]>(streamBufferSize);
  BrokenPipeGuard const guard;
  StreamPtr const stream(fdopen(descriptor, "w"));
  if (!stream) {
    int const error = errno;
    VORN_TRACE(0, "fdopen failed:  " << std::strerror(error));
    return;
  }
  std::setvbuf(stream.get(), buffer.get(), _IOFBF, streamBufferSize);
  doMergeAndDumpEntries(stream.get(), command, reportHeader, footer);
}

void CongestionData::doMergeAndDumpEntries(Kes::VoidPtr stream, Kes::String command, Kes::String reportHeader,
                                           Kes::String footer) {
  ReportFrame const frame{static_cast<std::FILE*>(stream), reportHeader, footer};
  if (!frame.hasStream("doMergeAndDumpEntries")) return;
  // Read before anything else, as it is what ages count from. Reports other than text date themselves.
  Kes::Seconds const reportTime = clock_->getUTCTime();
  CommandOptions const options = parseCommand(command.str());
  using Report = CommandOptions::Report;
  if (options.report == Report::statistics) return writeStatisticsReport(*this, frame);
  if (options.report == Report::globalBuffer) return writeGlobalBufferReport(*this, frame);
  startEntry.clear();
  for (auto const& [intfId, port] : portData_) port->mergeEntriesIs(false);
  ReportSelection const selection = selectionOf(*this, options);
  for (PortData::Ptr const& port : selection.ports) port->mergeEntriesIs(true);
  startEntry = selection.startRecords;
  if (options.report == Report::csv)
    writeCsvReport(*this, frame, selection, options.showAll);
  else
    writeTextReport(*this, frame, selection, options, reportTime);
}

// The selection is what the latest command, or the host, has left in mergeEntries and startEntry.
Kes::S32 CongestionData::doDumpEntriesInCSVFormat(Kes::VoidPtr stream, Kes::String reportHeader,
                                                  Kes::String footer, bool showAll) {
  ReportFrame const frame{static_cast<std::FILE*>(stream), reportHeader, footer};
  if (!frame.hasStream("doDumpEntriesInCSVFormat")) return -1;
  ReportSelection selection{{}, startEntry};
  for (auto const& [intfId, port] : portData_)
    if (port->mergeEntries() && port->chunks() != 0) selection.ports.push_back(port);
  return writeCsvReport(*this, frame, selection, showAll);
}

void CongestionData::doDumpStatistics(Kes::VoidPtr stream, Kes::String reportHeader, Kes::String footer) {
  ReportFrame const frame{static_cast<std::FILE*>(stream), reportHeader, footer};
  if (frame.hasStream("doDumpStatistics")) writeStatisticsReport(*this, frame);
}

void CongestionData::doDumpGlobalBufferChunk(Kes::VoidPtr stream, Kes::String reportHeader,
                                             Kes::String footer) {
  ReportFrame const frame{static_cast<std::FILE*>(stream), reportHeader, footer};
  if (frame.hasStream("doDumpGlobalBufferChunk")) writeGlobalBufferReport(*this, frame);
}

void CongestionData::doMergeAndDumpGlobalChunk(Kes::VoidPtr stream, Entry const* entry, bool ascending) {
  ReportFrame const frame{static_cast<std::FILE*>(stream), {}, {}};
  if (frame.hasStream("doMergeAndDumpGlobalChunk")) mergeGlobalRecords(*this, frame.stream, entry, ascending);
}

}  // namespace Vorn
