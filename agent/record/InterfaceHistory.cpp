// SPDX-License-Identifier: Apache-2.0
#include "agent/record/InterfaceHistory.h"

#include <algorithm>

namespace Agent {

std::vector<InterfaceHistory> interfaceHistories(Vorn::CongestionData const& recorder) {
  std::vector<InterfaceHistory> all;
  all.reserve(recorder.portDataMap().size());
  for (auto const& [intfId, port] : recorder.portDataMap())
    all.push_back({intfId.shortName().str(), port->loss().records, port->loss().newest});
  std::sort(all.begin(), all.end(), [](InterfaceHistory const& one, InterfaceHistory const& other) {
    return one.lost != other.lost ? one.lost > other.lost : one.name < other.name;
  });
  return all;
}

std::string recordsText(Kes::U64 count) {
  return std::to_string(count) + (count == 1 ? " record" : " records");
}

}  // namespace Agent
