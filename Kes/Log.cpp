// SPDX-License-Identifier: Apache-2.0
#include "Kes/Log.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>

#include "Kes/internal/LockIfThreaded.h"

namespace Kes {

char const* const NoActionRequired = "No action is required.";
char const* const CallSupportIfPersists = "If the condition persists, contact technical support.";

namespace {

constinit std::atomic<LogSink> currentSink = syslogSink;

// How many keys a limited message may have before the windows that have run out are looked for.
constexpr std::size_t firstSweep = 1024;

}  // namespace

LogHandle::LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
                     char const* recommendedAction, double rateLimitInterval, double rateLimitBurst,
                     U8 rateLimitArgs)
    : name_(name),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      idHash_(hashBytes(name)),
      interval_(rateLimitInterval),
      burst_(rateLimitBurst),
      severity_(severity),
      rateLimitArgs_(rateLimitArgs),
      sweepSize_(firstSweep) {}

bool LogHandle::okToLog(U64 key) {
  if (interval_ <= 0.0) return true;
  LockIfThreaded const guard;
  Seconds const time = now();
  // Memory is bounded by the keys of one interval: a sweep each time their number has doubled costs little.
  if (windows_.size() >= sweepSize_) {
    std::erase_if(windows_, [&](auto const& item) { return time >= item.second.start + interval_; });
    sweepSize_ = std::max(firstSweep, 2 * windows_.size());
  }
  Window& window = windows_.try_emplace(key, Window{time, 0.0}).first->second;
  if (time >= window.start + interval_) window = {time, 0.0};
  if (window.messages >= burst_) return false;
  window.messages += 1.0;
  return true;
}

void LogHandle::write(String const& text) const { currentSink.load()(*this, text); }

void logSinkIs(LogSink sink) { currentSink = sink != nullptr ? sink : syslogSink; }

void syslogSink(LogHandle const& handle, String const& text) {
  syslog(static_cast<int>(handle.severity()), "%s: %s", handle.name(), text.charPtr());
}

}  // namespace Kes
