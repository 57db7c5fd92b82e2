// SPDX-License-Identifier: Apache-2.0
#include "agent/record/InterfaceHistory.h"

#include <algorithm>
#include <numeric>

namespace Agent {

namespace {

Vorn::Microseconds wholeSince(Vorn::PortData const& port) {
  if (port.loss().records != 0) return port.loss().newest;
  Vorn::Chunk const* const chunk = port.chunkHead();
  if (chunk == nullptr) return {};
  auto const first = chunk->entryIterator();
  return first ? (*first)->timestamp() : Vorn::Microseconds(0);
}

}  // namespace

std::vector<InterfaceHistory> interfaceHistories(Vorn::CongestionData const& recorder) {
  std::vector<InterfaceHistory> all;
  all.reserve(recorder.portDataMap().size());
  for (auto const& [intfId, port] : recorder.portDataMap())
    all.push_back({intfId.shortName().str(), port->loss().records, wholeSince(*port)});
  std::sort(all.begin(), all.end(), [](InterfaceHistory const& one, InterfaceHistory const& other) {
    return one.lost != other.lost ? one.lost > other.lost : one.name < other.name;
  });
  return all;
}

Kes::U64 lostOf(std::vector<InterfaceHistory> const& interfaces, std::size_t from) {
  auto const add = [](Kes::U64 sum, InterfaceHistory const& history) { return sum + history.lost; };
  return std::accumulate(interfaces.begin() + static_cast<std::ptrdiff_t>(from), interfaces.end(),
                         Kes::U64{0}, add);
}

std::string recordsText(Kes::U64 count) {
  return std::to_string(count) + (count == 1 ? " record" : " records");
}

}  // namespace Agent
