// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Failures.h"

#include <syslog.h>

#include <chrono>
#include <new>
#include <optional>

#include "Kes/Format.h"
#include "agent/base/Journal.h"
#include "agent/base/Printable.h"

namespace Agent {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::minutes quiet{1};
constexpr std::size_t longestReason = 200;

FailureStatus failures;
std::optional<steady_clock::time_point> noted;

}  // namespace

void countFailure(std::exception const& error) noexcept {
  ++failures.count;
  try {
    bool const noMemory = dynamic_cast<std::bad_alloc const*>(&error) != nullptr;
    failures.last = noMemory ? "out of memory" : printable(error.what(), longestReason);
    auto const now = steady_clock::now();
    if (noted && now - *noted < quiet) return;
    noted = now;
    note(LOG_ERR, failures.text());
  } catch (std::exception const&) {
    return;  // it is counted
  }
}

FailureStatus const& failureStatus() { return failures; }

std::string FailureStatus::text() const {
  if (count == 0) return "failures: none";
  return Kes::format("failures: %u events were given up; the last: %s", count, last).str();
}

}  // namespace Agent
