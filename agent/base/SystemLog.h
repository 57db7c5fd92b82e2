// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/un.h>

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "agent/base/FileDescriptor.h"

namespace Agent {

// The system log, without ever waiting for it: syslog(3) stops its caller for as long as nobody reads the
// log's socket. The lines are those of syslog(3), one datagram each.
//
// What the log has no room for, or what finds no log at all because it is being restarted, is kept in order
// until offerKept() finds room for it; beyond a number of lines the new ones are lost. Both are counted by
// kind.
class SystemLog {
 public:
  enum Kind : std::size_t { threshold, other };

  struct Counts {
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;
  };

  explicit SystemLog(std::string const& path);

  // One line, "SUBJECT: TEXT" or, where the subject is empty, "TEXT", of which a datagram's worth is taken;
  // what a terminal would obey is replaced. `priority`: severity and facility of syslog(3).
  void write(Kind kind, int priority, std::string_view subject, std::string_view text) noexcept;

  std::size_t kept() const { return kept_.size(); }
  void offerKept() noexcept;

  Counts const& counts(Kind kind) const { return counts_[kind]; }

 private:
  struct Line {
    Kind kind;
    std::string text;
  };

  bool send(Line const& line) noexcept;

  sockaddr_un const address_;
  FileDescriptor socket_;
  std::deque<Line> kept_;
  std::array<Counts, 2> counts_{};
};

}  // namespace Agent
