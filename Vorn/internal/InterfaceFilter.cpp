#include "Vorn/internal/InterfaceFilter.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace Vorn {

namespace {

constexpr std::size_t patternSizeLimit = 4096;
constexpr std::ptrdiff_t openBracketLimit = 256;

bool isOpenBracket(char c) { return c == '(' || c == '[' || c == '{'; }

void checkLimits(std::string const& pattern) {
  if (pattern.size() > patternSizeLimit ||
      std::count_if(pattern.begin(), pattern.end(), isOpenBracket) > openBracketLimit)
    throw std::regex_error(std::regex_constants::error_complexity);
}

// Where a matcher has to choose. With few of them backtracking cannot take long, whatever the name.
bool hasFewChoices(std::string const& pattern) {
  constexpr std::ptrdiff_t few = 3;
  auto const isChoice = [](char c) { return std::string_view("*+?{|").find(c) != std::string_view::npos; };
  return std::count_if(pattern.begin(), pattern.end(), isChoice) <= few;
}

// The one character that a pattern begins with and means literally, and the size of its spelling there:
// itself, escaped (\.), or alone in brackets ([-]). Nothing where it means more.
std::pair<char, std::size_t> literalAt(std::string_view pattern) {
  char const c = pattern[0];
  if (std::isalnum(static_cast<unsigned char>(c)) != 0 ||
      std::string_view("-_/:@ ").find(c) != std::string_view::npos)
    return {c, 1};
  if (c == '\\' && pattern.size() > 1 && std::ispunct(static_cast<unsigned char>(pattern[1])) != 0)
    return {pattern[1], 2};
  if (c == '[' && pattern.size() > 2 && pattern[2] == ']' && pattern[1] != '^' && pattern[1] != '\\' &&
      pattern[1] != '[' && pattern[1] != ']')
    return {pattern[1], 3};
  return {c, 0};
}

}  // namespace

std::regex compilePattern(std::string const& pattern) {
  checkLimits(pattern);
#ifdef __GLIBCXX__
  // The default matcher backtracks, which takes for ever on patterns like a row of ".*"; the polynomial one
  // does not, but is slower, and refuses back-references.
  try {
    if (!hasFewChoices(pattern))
      return std::regex(pattern, std::regex::ECMAScript | std::regex_constants::__polynomial);
  } catch (std::regex_error const& refused) {
    if (refused.code() != std::regex_constants::error_complexity) throw;
  }
#endif
  return std::regex(pattern, std::regex::ECMAScript);
}

InterfaceFilter::InterfaceFilter(CommandOptions const& options) : all_(options.allInterfaces) {
  for (std::string const& text : options.interfacePatterns) patterns_.push_back({text});
}

bool InterfaceFilter::matches(std::string const& shortName) {
  return all_ || std::any_of(patterns_.begin(), patterns_.end(),
                             [&](Pattern& pattern) { return pattern.matches(shortName); });
}

// A name, or the beginning of names with ".*" behind it, needs no matcher; most patterns are one of these.
void InterfaceFilter::Pattern::prepare() {
  checkLimits(text);
  std::string_view rest = text;
  while (!rest.empty() && rest != ".*") {
    auto const [character, size] = literalAt(rest);
    if (size == 0) {
      form = Form::expression;
      compiled = compilePattern(text);
      return;
    }
    literal += character;
    rest.remove_prefix(size);
  }
  form = rest.empty() ? Form::name : Form::beginning;
}

bool InterfaceFilter::Pattern::matches(std::string const& name) {
  if (form == Form::unknown) prepare();
  if (form == Form::expression) return std::regex_match(name, *compiled);
  if (form == Form::name) return name == literal;
  // A dot stands for no line's end.
  return name.starts_with(literal) && name.find_first_of("\n\r", literal.size()) == std::string::npos;
}

}  // namespace Vorn
