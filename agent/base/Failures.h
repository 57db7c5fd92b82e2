// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace Agent {

// An event that failed (no memory, a system call that was refused) is given up, and the agent goes on: a
// client loses its answer, a look at the queues is left out. Such failures are counted here and noted in the
// journal, the first at once and then one a minute at most.
void countFailure(std::exception const& error) noexcept;

struct FailureStatus {
  std::uint64_t count = 0;
  std::string last{};  // empty: none

  // A line for people, without the newline.
  std::string text() const;
};
FailureStatus const& failureStatus();

}  // namespace Agent
