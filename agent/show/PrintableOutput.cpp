// SPDX-License-Identifier: Apache-2.0
#include "agent/show/PrintableOutput.h"

#include <algorithm>
#include <span>

#include "agent/base/Printable.h"

namespace Agent {

namespace {

// The length of a colour's sequence, ESC [ 1;31 m, at the beginning of a text; 0: none stands there.
std::size_t colourAt(std::span<char> text) {
  constexpr std::size_t longest = 8;
  if (text.size() < 3 || text[0] != '\x1b' || text[1] != '[') return 0;
  for (std::size_t i = 2; i < std::min(text.size(), longest); ++i) {
    if (text[i] == 'm') return i + 1;
    if (text[i] != ';' && (text[i] < '0' || text[i] > '9')) return 0;
  }
  return 0;
}

void makeLinePrintable(std::span<char> line, bool colour) {
  while (!line.empty()) {
    std::size_t const passes = colour ? colourAt(line) : 0;
    auto const next = std::find(line.begin() + (passes == 0 ? 1 : 0), line.end(), '\x1b');
    std::size_t const bytes = passes != 0                    ? passes
                              : colour && next != line.end() ? static_cast<std::size_t>(next - line.begin())
                                                             : line.size();
    if (passes == 0) makePrintable(line.first(bytes));
    line = line.subspan(bytes);
  }
}

}  // namespace

void PrintableOutput::take(std::string_view bytes) {
  // A colour stands within a line; who sends none is not waited for.
  constexpr std::size_t longestLine = 65'536;
  held_.append(bytes);
  std::size_t const lines = held_.rfind('\n') + 1;
  put(colour_ && held_.size() - lines < longestLine ? lines : wholeCharacters(held_));
}

void PrintableOutput::put(std::size_t bytes) {
  for (std::span<char> rest(held_.data(), bytes); !rest.empty();) {
    auto const end = std::find(rest.begin(), rest.end(), '\n');
    makeLinePrintable({rest.begin(), end}, colour_);
    rest = {end == rest.end() ? end : end + 1, rest.end()};
  }
  if (bytes != 0) output_(std::string_view(held_).substr(0, bytes));
  held_.erase(0, bytes);
}

}  // namespace Agent
