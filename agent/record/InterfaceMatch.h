// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Vorn/CongestionData.h"

namespace Agent {

// The first of the patterns that means no interface: neither one that the recorder has a log of, nor one of
// `present`. Throws std::regex_error for a pattern that is none.
std::optional<int> firstWithoutMatch(std::vector<std::string> const& patterns,
                                     Vorn::CongestionData const& recorder,
                                     std::vector<std::string> const& present);

}  // namespace Agent
