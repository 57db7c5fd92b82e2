// SPDX-License-Identifier: Apache-2.0
#include "Vorn/InterfacePattern.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

namespace Vorn {

namespace {

namespace regex = std::regex_constants;

constexpr std::size_t lengthLimit = 4096;
constexpr std::ptrdiff_t openBracketLimit = 256;
constexpr std::size_t stateLimit = 1000;
// The compiler's stack for a group is that of four states.
constexpr std::size_t groupStates = 4;
// A lookahead is a match of its own at every character.
constexpr std::size_t lookaheadFactor = 64;

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads a pattern once, without recursion, and counts what its automaton costs, also of a pattern that the
// compiler will find wrong only at its end. The compiler makes up to three states for one that is
// counted: the limit leaves room for that. Names that stand in a row of alternatives are tried once each, so
// only the longest of them counts.
class StateCounter {
 public:
  explicit StateCounter(std::string_view pattern) : rest_(pattern) {}

  void checkLimit() {
    while (!rest_.empty()) {
      takeOne();
      if (states_ > stateLimit) throw std::regex_error(regex::error_complexity);
    }
  }

 private:
  struct Group {
    std::size_t begin;  // states before it
    bool lookahead;
  };

  char next() const { return rest_.empty() ? '\0' : rest_.front(); }
  char take() {
    char const c = next();
    rest_.remove_prefix(std::min<std::size_t>(1, rest_.size()));
    return c;
  }

  void takeOne() {
    switch (char const c = take(); c) {
      case '\\': return takeEscape();
      case '[': return takeClass();
      case '(': return openGroup();
      case ')': return closeGroup();
      case '{': return takeCounts();
      case '|': return endAlternative();
      default: return isOneOf(c, "*+?") ? add(1, atom_ + 1) : addCharacter(!isOneOf(c, ".^$"));
    }
  }

  // More states, and the size that a repetition in braces would now multiply.
  void add(std::size_t states, std::size_t atom) {
    states_ += states;
    atom_ = atom;
  }

  void addCharacter(bool plain) {
    if (plain) ++plainStates_;
    add(1, 1);
  }

  void endAlternative() {
    if (groups_.empty()) {
      if (states_ - begin_ == plainStates_) states_ = begin_;
      begin_ = states_ + 1;
      plainStates_ = 0;
    }
    add(1, /*atom=*/0);
  }

  void takeEscape() {
    if (isDigit(next()) && next() != '0') throw std::regex_error(regex::error_backref);
    char const c = take();
    if (c == 'c') take();  // a control character, whatever it is spelt with
    addCharacter(std::ispunct(static_cast<unsigned char>(c)) != 0);
  }

  // To the bracket that closes it; the names in [: :], [. .] and [= =] hold none.
  void takeClass() {
    while (!rest_.empty()) {
      char const c = take();
      if (c == ']') break;
      if (c == '\\' && take() == 'c') take();
      if (c == '[' && isOneOf(next(), ":.=")) {
        std::string const end = {take(), ']'};
        rest_.remove_prefix(std::min(rest_.find(end), rest_.size()));
        rest_.remove_prefix(std::min(end.size(), rest_.size()));
      }
    }
    add(1, 1);
  }

  void openGroup() {
    bool const lookahead = rest_.starts_with("?=") || rest_.starts_with("?!");
    if (lookahead || rest_.starts_with("?:")) rest_.remove_prefix(2);
    groups_.push_back({states_, lookahead});
    add(groupStates, 0);
  }

  void closeGroup() {
    if (groups_.empty()) return;  // an error, which the compiler finds here too
    Group const group = groups_.back();
    groups_.pop_back();
    std::size_t const size = states_ - group.begin;
    add(group.lookahead ? size * (lookaheadFactor - 1) : 0, group.lookahead ? size * lookaheadFactor : size);
  }

  // {n} or {n,m} after an atom: at most as many of it as the larger number, and one more; {n,}: n + 1, and
  // one more.
  void takeCounts() {
    std::size_t times = 0;
    char last = '{';
    for (std::size_t number = 0; !rest_.empty();) {
      char const c = take();
      number = isDigit(c) ? std::min(number * 10 + static_cast<std::size_t>(c - '0'), lengthLimit) : 0;
      times = std::max(times, number);
      if (c == '}' && last == ',') ++times;
      if (c == '}') break;
      last = c;
    }
    add(atom_ * times, atom_ * (times + 1));
  }

  std::string_view rest_;
  std::size_t states_ = 0;
  std::size_t atom_ = 0;
  std::size_t begin_ = 0;        // states before the last alternative outside of groups
  std::size_t plainStates_ = 0;  // states in it of characters that stand for themselves
  std::vector<Group> groups_;
};

// With few choices backtracking cannot take long, whatever the name, and it is the faster matcher. A
// quantifier after another one nests, as a group would; the edges of words (\b, \B) are slow to try, and a
// row of them is tried at every choice.
bool isFitForBacktracking(std::string const& pattern) {
  constexpr std::ptrdiff_t few = 3;
  auto const isQuantifier = [](char c) { return isOneOf(c, "*+?"); };
  auto const areQuantifiers = [&](char a, char b) { return isQuantifier(a) && isQuantifier(b); };
  auto const has = [&](char const* text) { return pattern.find(text) != std::string::npos; };
  return pattern.find_first_of("({") == std::string::npos && !has("\\b") && !has("\\B") &&
         std::count_if(pattern.begin(), pattern.end(), isQuantifier) <= few &&
         std::adjacent_find(pattern.begin(), pattern.end(), areQuantifiers) == pattern.end();
}

}  // namespace

std::regex compilePattern(std::string const& pattern) {
  auto const isOpenBracket = [](char c) { return isOneOf(c, "([{"); };
  if (pattern.size() > lengthLimit ||
      std::count_if(pattern.begin(), pattern.end(), isOpenBracket) > openBracketLimit)
    throw std::regex_error(regex::error_complexity);
  StateCounter(pattern).checkLimit();
  auto flags = std::regex::ECMAScript | std::regex::nosubs;
#ifdef __GLIBCXX__
  // The default matcher backtracks, and needs exponential time for patterns such as (a*)*b.
  if (!isFitForBacktracking(pattern)) flags |= regex::__polynomial;
#endif
  return std::regex(pattern, flags);
}

}  // namespace Vorn
