// SPDX-License-Identifier: Apache-2.0
#include "agent/base/ChildProcess.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <csignal>

#include "agent/base/Signals.h"

namespace Agent {

namespace {

void keepOnly(int descriptor) {
  ::close(STDIN_FILENO);
  ::close(STDOUT_FILENO);
  if (descriptor < 0) {
    ::close_range(3, ~0U, 0);
    return;
  }
  auto const kept = static_cast<unsigned>(descriptor);
  if (kept > 3) ::close_range(3, kept - 1, 0);
  ::close_range(kept + 1, ~0U, 0);
}

// Whatever runs out of memory, the recording is not what ends.
void goFirstWhereMemoryRunsOut() {
  FileDescriptor const score(::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  if (::write(score.get(), "1000", 4) < 0) return;  // without /proc it stays as it is
}

// On two processors a child takes turns with the agent, whose looks at the queues must not wait for it: a
// lower weight lets the agent in as soon as it wakes (scripts/measure-agent shows what it gives).
void yieldToTheAgent() {
  constexpr int nicer = 10;
  ::setpriority(PRIO_PROCESS, 0, ::getpriority(PRIO_PROCESS, 0) + nicer);
}

}  // namespace

ChildProcess::ChildProcess(std::function<int()> const& work) : pid_(::fork()) {
  if (pid_ < 0) throwErrno("fork");
  if (pid_ == 0) ::_exit(work());
  pidfd_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  if (pidfd_) return;
  int const reason = errno;
  kill();
  await();
  errno = reason;
  throwErrno("pidfd_open");
}

ChildProcess::~ChildProcess() {
  if (ended_) return;
  kill();
  await();
}

void ChildProcess::kill() {
  if (!ended_) ::kill(pid_, SIGKILL);
}

int ChildProcess::await() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  ended_ = true;
  return status;
}

void leaveTheAgent(std::chrono::milliseconds limit, int kept) {
  keepOnly(kept);
  goFirstWhereMemoryRunsOut();
  leaveTheAgentsSignals();
  yieldToTheAgent();
  startTimer(ITIMER_REAL, limit);
}

void startTimer(int which, std::chrono::milliseconds limit) {
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(limit.count() / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>(limit.count() % 1000 * 1000);
  ::setitimer(which, &timer, nullptr);
}

}  // namespace Agent
