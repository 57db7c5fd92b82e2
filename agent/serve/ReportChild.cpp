#include "agent/serve/ReportChild.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <regex>

#include "Kes/Trace.h"
#include "Vorn/CommandOptions.h"
#include "agent/base/Journal.h"
#include "agent/base/PatternFault.h"
#include "agent/record/ReportColumns.h"

namespace Agent {

namespace {

// How the child tells its parent what happened: its exit status, since it has no other channel. A bad pattern
// is `badPattern` plus the regular-expression library's error code.
enum ExitStatus : int { whole = 0, broken = 1, outOfMemory = 2, failedOtherwise = 3, badPattern = 64 };

// The recorder says through its error traces alone that a report failed.
bool reportFailed = false;

void noteFailure(Kes::TraceHandle const& handle, Kes::U32 level, std::string_view line) {
  if (level == 0) reportFailed = true;
  std::fprintf(stderr, "%s %u %.*s\n", handle.name(), level, static_cast<int>(line.size()), line.data());
}

void keepOnly(int socket) {
  for (int fd = 0; fd < socket; ++fd) {
    if (fd != STDERR_FILENO) ::close(fd);
  }
  ::closefrom(socket + 1);
}

void leaveTheAgentsSignals() {
  for (int const signal : {SIGALRM, SIGCHLD, SIGINT, SIGTERM}) ::signal(signal, SIG_DFL);
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// On two processors a report takes turns with the agent, whose looks at the queues must not wait for it: a
// lower weight lets the agent in as soon as it wakes (scripts/measure-agent shows what it gives).
void yieldToTheAgent() {
  constexpr int nicer = 10;
  ::setpriority(PRIO_PROCESS, 0, ::getpriority(PRIO_PROCESS, 0) + nicer);
}

void limitTimeTo(std::chrono::milliseconds limit) {
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(limit.count() / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>(limit.count() % 1000 * 1000);
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void writeStream(int socket, ReportWriter const& writer) {
  std::FILE* const stream = ::fdopen(socket, "w");
  if (stream == nullptr) throwErrno("fdopen");
  writer(stream);
  bool const failed = std::ferror(stream) != 0;
  if (std::fclose(stream) != 0 || failed) reportFailed = true;
}

// The recorder's own way into a socket enlarges the send buffer first and gives up where that is forbidden,
// so it is taken only where it will succeed.
void writeReport(Vorn::CongestionData& recorder, int socket, std::string const& command,
                 ReportWriter const& writer) {
  constexpr int sendBuffer = 8'000'000;
  bool const enlarged = ::setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &sendBuffer, sizeof sendBuffer) == 0;
  if (writer) return writeStream(socket, writer);
  Kes::String const columns = columnsFor(Vorn::parseCommand(command));
  if (enlarged) {
    recorder.handleCommand(static_cast<Kes::U32>(socket), command, columns, /*footer=*/"");
  } else {
    writeStream(socket, [&](std::FILE* stream) {
      recorder.doMergeAndDumpEntries(stream, command, columns, /*footer=*/"");
    });
  }
}

[[noreturn]] void childMain(Vorn::CongestionData& recorder, int socket, std::string const& command,
                            ReportWriter const& writer, std::chrono::milliseconds limit) {
  keepOnly(socket);
  leaveTheAgentsSignals();
  yieldToTheAgent();
  limitTimeTo(limit);
  Kes::traceSinkIs(&noteFailure);
  try {
    writeReport(recorder, socket, command, writer);
  } catch (std::regex_error const& error) {
    ::_exit(badPattern + static_cast<int>(error.code()));
  } catch (std::bad_alloc const&) {
    ::_exit(outOfMemory);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "report \"%s\": %s\n", command.c_str(), error.what());
    ::_exit(failedOtherwise);
  } catch (...) {
    ::_exit(failedOtherwise);
  }
  ::_exit(reportFailed ? broken : whole);
}

std::string exitFailure(int status) {
  if (status == whole) return "";
  if (status == outOfMemory) return "no memory for the report";
  if (status >= badPattern)
    return std::string("bad interface pattern: ") +
           patternFault(static_cast<std::regex_constants::error_type>(status - badPattern));
  return "the report broke off";
}

std::string signalFailure(int signal) {
  if (signal == SIGALRM) return "the report took too long";
  if (signal == SIGKILL) return "the report was stopped";
  note(LOG_WARNING, std::string("a report's process died: ") + ::strsignal(signal));
  return std::string("the report's process died: ") + ::strsignal(signal);
}

}  // namespace

ReportChild::ReportChild(Vorn::CongestionData::Ptr const& recorder, int clientSocket,
                         std::string const& command, ReportWriter const& writer,
                         std::chrono::milliseconds limit)
    : pid_(::fork()) {
  if (pid_ < 0) throwErrno("fork");
  if (pid_ == 0) childMain(*recorder, clientSocket, command, writer, limit);
  pidfd_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  if (pidfd_) return;
  int const reason = errno;
  kill();
  await();
  errno = reason;
  throwErrno("pidfd_open");
}

ReportChild::~ReportChild() {
  if (ended_) return;
  kill();
  await();
}

void ReportChild::kill() { ::kill(pid_, SIGKILL); }

int ReportChild::await() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  ended_ = true;
  return status;
}

std::string ReportChild::failure() {
  int const status = await();
  return WIFEXITED(status) ? exitFailure(WEXITSTATUS(status)) : signalFailure(WTERMSIG(status));
}

}  // namespace Agent
