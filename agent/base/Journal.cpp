#include "agent/base/Journal.h"

#include <limits.h>
#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>

#include "Kes/Log.h"

namespace Agent {

namespace {

bool copies = false;

void copy(std::string const& text) {
  if (!copies) return;
  pollfd standardError{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&standardError, 1, 0) != 1 || (standardError.revents & POLLOUT) == 0) return;
  std::string const line = "vorn-agent: " + text + '\n';
  // A pipe that is ready takes this much without waiting.
  if (::write(STDERR_FILENO, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF)) < 0) return;
}

void takeMessage(Kes::LogHandle const& handle, Kes::String const& text) {
  Kes::syslogSink(handle, text);
  copy(std::string(handle.name()) + ": " + text.str());
}

}  // namespace

void openJournal(bool copyToStandardError) {
  ::openlog("vorn-agent", LOG_PID, LOG_DAEMON);
  copies = copyToStandardError;
  Kes::logSinkIs(takeMessage);
}

void note(int priority, std::string const& text) {
  ::syslog(priority, "%s", text.c_str());
  copy(text);
}

}  // namespace Agent
