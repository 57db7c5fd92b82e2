// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/Suggestion.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

#include "agent/base/Printable.h"

namespace Agent {

namespace {

constexpr std::size_t maxSuggestions = 3;

bool beginsLike(std::string_view name, std::string_view beginning) {
  return beginning.size() <= name.size() &&
         ::strncasecmp(name.data(), beginning.data(), beginning.size()) == 0;
}

int lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

// How many letters have to be put in, left out or replaced to make one text of the other; case is nothing.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t const replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::vector<std::string_view> likelyNames(std::string_view mistyped,
                                          std::vector<std::string_view> const& names) {
  if (mistyped.size() > longestShownName) return {};
  // How unlikely a name is: 0 differs in case only, 1 is begun, from 2 on there are letters that differ.
  std::vector<std::pair<std::size_t, std::string_view>> ranked;
  std::size_t const tolerated = 1 + mistyped.size() / 4;
  for (std::string_view const name : names) {
    if (beginsLike(name, mistyped)) {
      ranked.emplace_back(name.size() == mistyped.size() ? 0 : 1, name);
    } else if (name.size() <= mistyped.size() + tolerated && mistyped.size() <= name.size() + tolerated) {
      std::size_t const letters = distance(mistyped, name);
      if (letters <= tolerated) ranked.emplace_back(1 + letters, name);
    }
  }
  auto const likelier = [](auto const& a, auto const& b) { return a.first < b.first; };
  std::stable_sort(ranked.begin(), ranked.end(), likelier);
  std::vector<std::string_view> likely;
  for (auto const& [rank, name] : ranked) {
    bool const lessLike = std::min<std::size_t>(rank, 2) != std::min<std::size_t>(ranked[0].first, 2);
    if (likely.size() == maxSuggestions || lessLike) break;
    likely.push_back(name);
  }
  return likely;
}

std::string suggestion(std::string_view mistyped, std::vector<std::string_view> const& names) {
  std::vector<std::string_view> const likely = likelyNames(mistyped, names);
  if (likely.empty()) return "";
  std::string text = "; did you mean ";
  for (std::size_t i = 0; i < likely.size(); ++i) {
    if (i != 0) text += i + 1 < likely.size() ? ", " : " or ";
    text += likely[i];
  }
  return text + '?';
}

}  // namespace Agent
