// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/NaturalOrder.h"

#include <algorithm>

namespace Vorn {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Takes the run of digits at the front of `text` off it; without leading zeros, so that a longer run is
// larger.
std::string_view takeNumber(std::string_view& text) {
  std::size_t const size =
      static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
  std::string_view number = text.substr(0, size);
  text.remove_prefix(size);
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

}  // namespace

bool naturallyBefore(std::string_view a, std::string_view b) {
  std::string_view restA = a;
  std::string_view restB = b;
  while (!restA.empty() && !restB.empty()) {
    if (isDigit(restA.front()) && isDigit(restB.front())) {
      std::string_view const numberA = takeNumber(restA);
      std::string_view const numberB = takeNumber(restB);
      if (numberA.size() != numberB.size()) return numberA.size() < numberB.size();
      if (numberA != numberB) return numberA < numberB;
      continue;
    }
    if (restA.front() != restB.front())
      return static_cast<unsigned char>(restA.front()) < static_cast<unsigned char>(restB.front());
    restA.remove_prefix(1);
    restB.remove_prefix(1);
  }
  if (restA.empty() != restB.empty()) return restA.empty();
  return a.size() < b.size();
}

}  // namespace Vorn
