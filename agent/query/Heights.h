// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "Kes/Types.h"

namespace Agent {

// Backlogs as characters, in eighths of a full one, as a screen can show them.
class Heights {
 public:
  explicit Heights(bool ascii) : ascii_(ascii) {}

  // Upright: nothing for 0, full at `full` and above.
  std::string_view upright(Kes::U64 part, Kes::U64 full) const {
    constexpr std::string_view blocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr std::string_view letters[] = {" ", ".", ".", ":", ":", "+", "*", "#", "#"};
    return (ascii_ ? letters : blocks)[eighths(part, full, 1)];
  }
  // A bar of so many characters.
  std::string lying(Kes::U64 part, Kes::U64 full, std::size_t width) const {
    constexpr std::string_view blocks[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
    std::string bar;
    for (Kes::U64 left = eighths(part, full, width); left != 0;) {
      Kes::U64 const here = left < 8 ? left : 8;
      bar += ascii_ ? "#" : blocks[here];
      left -= here;
    }
    return bar;
  }

 private:
  // Something is never nothing.
  static Kes::U64 eighths(Kes::U64 part, Kes::U64 full, std::size_t width) {
    if (part == 0) return 0;
    Kes::U64 const most = 8 * width;
    if (full == 0 || part >= full) return most;
    Kes::U64 const some = static_cast<Kes::U64>(
        static_cast<long double>(part) / static_cast<long double>(full) * static_cast<long double>(most));
    return some == 0 ? 1 : some;
  }

  bool const ascii_;
};

}  // namespace Agent
