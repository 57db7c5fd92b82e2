// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "Kes/Types.h"
#include "Vorn/PortData.h"

namespace Agent {

// How far an interface's log is from being in order of time: it is not where the wall clock was set back. In
// microseconds; only ever rises.
class LogOrder {
 public:
  LogOrder() = default;
  // Of the records that there are.
  explicit LogOrder(Vorn::PortData const& port) {
    for (Vorn::Chunk::Ptr const& chunk : port.chunkIterator())
      for (Vorn::Entry::Ptr const& record : chunk->entryIterator()) handleRecord(*record);
  }

  // A record that was appended after those before, or has grown.
  void handleRecord(Vorn::Entry const& record) {
    Kes::U64 const time = record.timestamp().value();
    newest_ = std::max(newest_, time);
    backwards_ = std::max(backwards_, newest_ - time);
    longest_ = std::max(longest_, record.duration().value());
  }

  // None of the records before one of time T lasted beyond T + slack.
  Kes::U64 slack() const { return backwards_ + longest_; }

 private:
  Kes::U64 newest_ = 0;
  Kes::U64 backwards_ = 0;
  Kes::U64 longest_ = 0;
};

}  // namespace Agent
