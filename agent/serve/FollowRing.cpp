// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/FollowRing.h"

#include <algorithm>

#include "agent/base/Protocol.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

void FollowRing::add(RecordRow const& row) {
  ReportLine line;
  addFields(line, recordColumns, row);
  std::string& slot = lines_[end_++ % capacity];
  slot.clear();
  slot.reserve(line.text().size() + 1);
  slot.append(line.text()) += '\n';
}

std::uint64_t FollowRing::take(std::uint64_t& cursor, std::size_t most, std::string& text) const {
  std::uint64_t const oldest = end_ - std::min<std::uint64_t>(end_, capacity);
  std::uint64_t missed = oldest - std::min(oldest, cursor);
  std::uint64_t const first = cursor + missed;
  std::uint64_t const last = std::min<std::uint64_t>(end_, first + most);
  std::uint64_t skipped = 0;
  auto const tellMissed = [&] {
    if (missed == 0) return;
    text.append(Protocol::skippedWord).append(",").append(std::to_string(missed)) += '\n';
    skipped += missed;
    missed = 0;
  };
  for (std::uint64_t number = first; number < last; ++number) {
    std::string const& line = lines_[number % capacity];
    if (line.empty()) {
      ++missed;
      continue;
    }
    tellMissed();
    text += line;
  }
  tellMissed();
  cursor = last;
  return skipped;
}

}  // namespace Agent
