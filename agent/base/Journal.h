// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/base/EventLoop.h"
#include "agent/base/FileDescriptor.h"

namespace Agent {

// Where the agent's messages go: the system log, and with --stderr a copy to standard error as well. The
// recorder's threshold messages take the same way, its traces that to standard error alone. Nothing here ever
// waits for a reader; what could not be delivered is counted. Names in messages may hold anything: what a
// terminal would obey is replaced.
void openJournal(bool copyToStandardError);

// One message, at a priority of syslog(3).
void note(int priority, std::string const& text);

// For the agent's status: a line of how much was delivered, and one of what was not.
std::string journalStatus();

// While one of these lives, messages that the system log had no room for are offered again ten times a
// second. `loop` outlives it.
class JournalRetries {
 public:
  explicit JournalRetries(EventLoop& loop);
  ~JournalRetries();
  JournalRetries(JournalRetries const&) = delete;
  JournalRetries& operator=(JournalRetries const&) = delete;

 private:
  EventLoop& loop_;
  FileDescriptor timer_;
};

}  // namespace Agent
