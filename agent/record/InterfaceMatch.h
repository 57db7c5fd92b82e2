// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Vorn/CongestionData.h"

namespace Agent {

// Where one of the patterns means no interface, neither one that the recorder has a log of nor one of
// `present`: which, for people; empty otherwise. Throws std::regex_error for a pattern that is none.
std::string unmatchedPattern(std::vector<std::string> const& patterns, Vorn::CongestionData const& recorder,
                             std::vector<std::string> const& present);

}  // namespace Agent
