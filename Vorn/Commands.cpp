#include <signal.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Vorn/CommandOptions.h"
#include "Vorn/CongestionData.h"
#include "Vorn/StartEntry.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/InterfaceFilter.h"
#include "Vorn/internal/ReportFrame.h"
#include "Vorn/internal/TextReport.h"

// How a show-command is answered: socket, stream, options, interfaces, report.

namespace Vorn {

std::vector<PortMetaData::Ptr> startEntry;

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
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using StreamPtr = std::unique_ptr<std::FILE, CloseStream>;

// The oldest record that an interface still holds; null when it holds none.
Entry::Ptr oldestEntry(PortData const& port) {
  for (PortData::ChunkIterator i = port.chunkIterator(); i; ++i)
    if (EntryQueue::EntryIterator first = (*i)->entryIterator()) return *first;
  return nullptr;
}

// Adds the congestions of an interface whose opening record has been overwritten.
void addStartRecords(PortData const& port) {
  Entry::Ptr const oldest = oldestEntry(port);
  if (!oldest) return;
  for (auto i = port.portMetaDataIterator(); i; ++i) {
    Microseconds const start = (*i)->timeOfCongestionStart();
    if (start == Microseconds(0) || start >= oldest->timestamp()) continue;
    VORN_TRACE(6, "Metadata overwritten for port " << port.intfId());
    startEntry.push_back(*i);
  }
}

// Marks the interfaces that the report shows and gathers their start records, latest first.
void selectPorts(CongestionData::PortDataMap const& ports, CommandOptions const& options) {
  InterfaceFilter filter(options);
  startEntry.clear();
  for (auto const& member : ports) {
    PortData& port = *member.value;
    port.mergeEntriesIs(false);
    if (!filter.matches(port.intfId().shortName().str()) || port.chunks() == 0) continue;
    port.mergeEntriesIs(true);
    VORN_TRACE(6, "tail index " << port.chunkQueue().tail()->key() << " num of entries "
                                << port.chunkTail()->entrys());
    addStartRecords(port);
  }
  std::sort(startEntry.begin(), startEntry.end(), PortMetaDataSort);
}

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
  if (reportStream(stream, "doMergeAndDumpEntries") == nullptr) return;
  Kes::Seconds const reportTime = clock_->getUTCTime();
  CommandOptions const options = parseCommand(command.str());
  if (options.report == CommandOptions::Report::statistics)
    return doDumpStatistics(stream, reportHeader, footer);
  if (options.report == CommandOptions::Report::globalBuffer)
    return doDumpGlobalBufferChunk(stream, reportHeader, footer);
  selectPorts(portData_, options);
  if (options.report == CommandOptions::Report::csv) {
    std::reverse(startEntry.begin(), startEntry.end());
    doDumpEntriesInCSVFormat(stream, reportHeader, footer, options.showAll);
  } else {
    writeTextReport(*this, stream, options, reportTime, reportHeader, footer);
  }
}

}  // namespace Vorn
