// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// The names that a mistyped one may have meant, best first and at most three: those that differ in case
// only, or else those that it begins, or else those that differ in few letters.
// What is longer than any name is compared with none: that would keep the agent from its queues.
std::vector<std::string_view> likelyNames(std::string_view mistyped,
                                          std::vector<std::string_view> const& names);

// "; did you mean qLen?", "; did you mean a, b or c?", or nothing where no name is near.
std::string suggestion(std::string_view mistyped, std::vector<std::string_view> const& names);

}  // namespace Agent
