// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fnmatch.h>

#include <string>

namespace Agent {

// Whether an operator who writes `pattern` means the interface: by its own name, which may look like a
// pattern, or by a shell pattern.
inline bool fits(std::string const& pattern, std::string const& name) {
  return pattern == name || ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

}  // namespace Agent
