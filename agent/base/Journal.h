// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "agent/base/EventLoop.h"
#include "agent/base/FileDescriptor.h"
#include "agent/base/SystemLog.h"

namespace Agent {

// Where the agent's messages go: the system log, and with --stderr a copy to standard error as well. The
// recorder's threshold messages take the same way, its traces that to standard error alone. Nothing here ever
// waits for a reader; what could not be delivered is counted. Names in messages may hold anything: what a
// terminal would obey is replaced.
void openJournal(bool copyToStandardError);

// One message, at a priority of syslog(3).
void note(int priority, std::string const& text);

// How much was delivered, and what was not.
struct JournalStatus {
  SystemLog::Counts thresholds{};
  SystemLog::Counts others{};
  std::uint64_t waiting = 0;     // for the system log
  std::uint64_t lostTraces = 0;  // lines

  // Two lines for people, without the last newline.
  std::string text() const;
};
JournalStatus journalStatus();

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
