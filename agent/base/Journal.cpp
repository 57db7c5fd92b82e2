// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Journal.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <syslog.h>

#include <cstdint>
#include <exception>
#include <optional>

#include "Kes/Format.h"
#include "Kes/Log.h"
#include "Kes/Trace.h"
#include "agent/base/Printable.h"
#include "agent/base/StandardStreams.h"

namespace Agent {

namespace {

bool copies = false;
std::optional<SystemLog> systemLog;
std::uint64_t lostTraces = 0;

// A message must not cost what it tells of.
void deliver(SystemLog::Kind kind, int priority, std::string_view subject, std::string_view text) noexcept {
  if (systemLog) systemLog->write(kind, LOG_DAEMON | priority, subject, text);
  if (!copies) return;
  try {
    std::string line = "vorn-agent: ";
    if (!subject.empty()) line.append(subject).append(": ");
    writeToStandardError(line + printable(text));
  } catch (std::exception const&) {
    return;  // no memory for the copy
  }
}

void takeMessage(Kes::LogHandle const& handle, Kes::String const& text) {
  deliver(SystemLog::threshold, static_cast<int>(handle.severity()), handle.name(), text.view());
}

void takeTrace(Kes::TraceHandle const& handle, Kes::U32 level, std::string_view line) {
  std::string const text = printable(line);
  if (!writeToStandardError(Kes::format("%s %u %s", handle.name(), level, text.c_str()).str())) ++lostTraces;
}

}  // namespace

void openJournal(bool copyToStandardError) {
  systemLog.emplace("/dev/log");
  copies = copyToStandardError;
  standardErrorNeverWaits();
  Kes::logSinkIs(takeMessage);
  Kes::traceSinkIs(takeTrace);
}

void note(int priority, std::string const& text) {
  deliver(SystemLog::other, priority, /*subject=*/"", text);
}

JournalStatus journalStatus() {
  if (!systemLog) return {};
  return {systemLog->counts(SystemLog::threshold), systemLog->counts(SystemLog::other), systemLog->kept(),
          lostTraces};
}

std::string JournalStatus::text() const {
  return Kes::format(
             "messages: %u of thresholds and %u others are in the system log, %u wait for it\n"
             "messages lost: %u of thresholds, %u others, %u lines of --trace",
             thresholds.sent, others.sent, waiting, thresholds.lost, others.lost, lostTraces)
      .str();
}

JournalRetries::JournalRetries(EventLoop& loop)
    : loop_(loop), timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("timerfd_create");
  constexpr timespec pause{0, 100'000'000};
  constexpr itimerspec setting{pause, pause};
  if (::timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("timerfd_settime");
  loop_.add(timer_.get(), EPOLLIN, [this](std::uint32_t) {
    std::uint64_t expirations = 0;
    if (::read(timer_.get(), &expirations, sizeof expirations) > 0 && systemLog) systemLog->offerKept();
  });
}

JournalRetries::~JournalRetries() { loop_.remove(timer_.get()); }

}  // namespace Agent
