// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex>

namespace Agent {

// What is wrong with an interface pattern, in plain words, by the regular-expression library's error code.
char const* patternFault(std::regex_constants::error_type code);

}  // namespace Agent
