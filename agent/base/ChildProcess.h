// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

#include "agent/base/FileDescriptor.h"

namespace Agent {

// A forked child, which owns a copy-on-write snapshot of all that the agent has. The agent never waits for
// it: fd() tells when it has ended.
class ChildProcess {
 public:
  // `work` runs in the child and returns its exit status; it must not throw. Throws std::system_error if no
  // process can be had.
  explicit ChildProcess(std::function<int()> const& work);
  // Kills a child that still runs, and waits for its end.
  ~ChildProcess();
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;

  // Readable once the child has ended.
  int fd() const { return pidfd_.get(); }

  // Ends the child early; it is still to be awaited through fd().
  void kill();

  // Waits for the end; the status is that of waitpid(2).
  int await();

 private:
  pid_t pid_;
  FileDescriptor pidfd_;
  bool ended_ = false;
};

// For a child's work, first of all: it takes no part in the agent's signal handling, keeps no descriptor but
// standard error and, if one is given, `kept`, goes first where memory runs out, takes a lower weight than
// the agent, and ends by itself after `limit`.
void leaveTheAgent(std::chrono::milliseconds limit, int kept = -1);

// The end of a timer kills: ITIMER_REAL by SIGALRM, ITIMER_PROF (processor time) by SIGPROF. 0 stops it.
void startTimer(int which, std::chrono::milliseconds limit);

}  // namespace Agent
