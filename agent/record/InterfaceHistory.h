// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Vorn/CongestionData.h"

namespace Agent {

// How much of an interface's history is left.
struct InterfaceHistory {
  std::string name{};             // short
  Kes::U64 lost = 0;              // records that the pool has taken away
  Vorn::Microseconds whole = {};  // since then no record is missing; 0: it has none
};

// Those of all interfaces that have a log: the one that has lost most first, by name among equals.
std::vector<InterfaceHistory> interfaceHistories(Vorn::CongestionData const& recorder);

// Records that those from a place on have lost.
Kes::U64 lostOf(std::vector<InterfaceHistory> const& interfaces, std::size_t from);

// "1 record", "2 records".
std::string recordsText(Kes::U64 count);

}  // namespace Agent
