// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unordered_map>

#include "Kes/Export.h"
#include "Kes/Format.h"
#include "Kes/Hash.h"
#include "Kes/String.h"
#include "Kes/Time.h"
#include "Kes/Types.h"

// System-log messages: each is defined once as a LogHandle and logged through log(handle, arguments...).
namespace Kes {

// The numbers of syslog.
enum class LogSeverity : U8 { emergency, alert, critical, error, warning, notice, informational, debug };

// Standard recommended actions.
KES_EXPORT extern char const* const NoActionRequired;
KES_EXPORT extern char const* const CallSupportIfPersists;

// The definition of one message, and the state of its rate limit. Defined as a process-wide object; its texts
// are borrowed for ever (literals).
//
// Rate limit: at most `rateLimitBurst` messages of one key within `rateLimitInterval` seconds; the interval 0
// means "never silenced". A key is made of the message and its first `rateLimitArgs` arguments, so that one
// interface's messages do not silence another's. Several threads may log once Kes::threadSafePtrsIs(true) was
// called.
class KES_EXPORT LogHandle {
 public:
  LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
            char const* recommendedAction, double rateLimitInterval, double rateLimitBurst, U8 rateLimitArgs);
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;

  char const* name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  char const* format() const { return format_; }
  char const* explanation() const { return explanation_; }
  char const* recommendedAction() const { return recommendedAction_; }

  // How many leading arguments take part in the rate-limit key.
  U32 rateLimitArgs() const { return rateLimitArgs_; }
  // The message's own part of the key.
  U64 idHash() const { return idHash_; }
  // Whether a message under this key may be logged now; a yes counts against its limit.
  bool okToLog(U64 key);
  // Hands the finished text to the sink. Use Kes::log, which asks okToLog first.
  void write(String const& text) const;

 private:
  struct Window {
    Seconds start;
    double messages;
  };

  char const* name_;
  char const* format_;
  char const* explanation_;
  char const* recommendedAction_;
  U64 idHash_;
  double interval_;
  double burst_;
  LogSeverity severity_;
  U8 rateLimitArgs_;
  std::unordered_map<U64, Window> windows_;  // empty while nothing is limited
  std::size_t sweepSize_;
};

// Receives every message that may be logged, with its text filled in.
using LogSink = void (*)(LogHandle const& handle, String const& text);

// Replaces the sink of the process; null brings the default, syslogSink, back.
KES_EXPORT void logSinkIs(LogSink sink);

// syslog(3) at the message's severity, as the line "NAME: TEXT".
KES_EXPORT void syslogSink(LogHandle const& handle, String const& text);

// Logs one message: drops it silently if its key is over its limit, else fills its format in and hands it on.
template <class... Args>
void log(LogHandle& handle, Args const&... args) {
  std::initializer_list<FormatArg> const list{FormatArg(args)...};
  U32 const keyArgs = handle.rateLimitArgs();
  std::string keyText;
  U32 taken = 0;
  for (FormatArg const& arg : list) {
    if (taken++ == keyArgs) break;
    // A separator that no text ends with by chance keeps ("a", "bc") apart from ("ab", "c").
    keyText.append(formatArgs("%s", {arg}).view()).push_back('\0');
  }
  U64 const key = hashBytes(keyText) ^ handle.idHash();
  if (!handle.okToLog(key)) return;
  handle.write(formatArgs(handle.format(), list));
}

}  // namespace Kes
