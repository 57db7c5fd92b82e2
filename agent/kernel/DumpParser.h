// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Kes/Types.h"
#include "agent/kernel/QdiscSample.h"

namespace Agent {

// Puts the parts of one dump of queueing disciplines together: bytes in, samples out.
//
// What queues nothing (noqueue) or guards the way in (ingress, clsact) is left out, so virtual links that
// come and go without queues of their own change nothing.
class DumpParser {
 public:
  enum class State { more, whole, failed };

  // Messages of another sequence number are those of an older answer, and passed over.
  explicit DumpParser(Kes::U32 sequence) : sequence_(sequence) {}

  // Appends to `samples` what a part tells. It was filled at `stamp`.
  State handlePart(std::span<std::byte const> part, Kes::U64 stamp, std::vector<QdiscSample>& samples);

  // The kernel says that its tables changed meanwhile.
  bool interrupted() const { return interrupted_; }
  // Of a dump that failed: a number of errno.
  int error() const { return error_; }

 private:
  Kes::U32 sequence_;
  bool interrupted_ = false;
  int error_ = 0;
};

}  // namespace Agent
