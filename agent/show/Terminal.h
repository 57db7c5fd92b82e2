// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace Agent {

// What standard output can show.
struct Terminal {
  bool isTerminal = false;
  std::uint32_t columns = 80;  // as COLUMNS says, else the terminal itself
  std::uint32_t lines = 24;
  bool colour = false;  // on a terminal that has them, unless NO_COLOR is set
  bool ascii = false;   // the locale's characters are not UTF-8

  static Terminal ofStandardOutput();
};

}  // namespace Agent
