// SPDX-License-Identifier: Apache-2.0
#include "agent/show/PrintableOutput.h"

#include <algorithm>
#include <span>

#include "agent/base/Printable.h"

namespace Agent {

void PrintableOutput::take(std::string_view bytes) {
  held_.append(bytes);
  put(wholeCharacters(held_));
}

void PrintableOutput::put(std::size_t bytes) {
  for (std::span<char> rest(held_.data(), bytes); !rest.empty();) {
    auto const end = std::find(rest.begin(), rest.end(), '\n');
    makePrintable({rest.begin(), end});
    rest = {end == rest.end() ? end : end + 1, rest.end()};
  }
  if (bytes != 0) output_(std::string_view(held_).substr(0, bytes));
  held_.erase(0, bytes);
}

}  // namespace Agent
