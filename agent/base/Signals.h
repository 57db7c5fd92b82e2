// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "agent/base/EventLoop.h"
#include "agent/base/FileDescriptor.h"

namespace Agent {

// The signals of the agent's process, taken over while one of these lives: SIGTERM, SIGINT and SIGQUIT stop
// the loop, so that the agent ends in order; SIGHUP calls a handler inside the loop. Every other signal that
// would end a process by default is ignored, but for those that tell of a fault in the process itself
// (SIGSEGV, SIGABRT and their like).
class Signals {
 public:
  Signals(EventLoop& loop, std::function<void()> handleHangUp);
  ~Signals();
  Signals(Signals const&) = delete;
  Signals& operator=(Signals const&) = delete;

 private:
  void handleSignal();

  EventLoop& loop_;
  std::function<void()> handleHangUp_;
  FileDescriptor fd_;
};

// For a child process: gives every signal its default back, but for SIGPIPE, which stays ignored, and blocks
// none.
void leaveTheAgentsSignals();

}  // namespace Agent
