#include "Vorn/InterfaceFilter.h"

#include <algorithm>

namespace Vorn {

namespace {

constexpr std::size_t patternSizeLimit = 4096;
constexpr std::ptrdiff_t openBracketLimit = 256;

bool isOpenBracket(char c) { return c == '(' || c == '[' || c == '{'; }

}  // namespace

std::regex compilePattern(std::string const& pattern) {
  if (pattern.size() > patternSizeLimit ||
      std::count_if(pattern.begin(), pattern.end(), isOpenBracket) > openBracketLimit)
    throw std::regex_error(std::regex_constants::error_complexity);
#ifdef __GLIBCXX__
  // The default matcher backtracks, which takes for ever on patterns like a row of ".*"; the polynomial one
  // does not, but refuses back-references.
  try {
    return std::regex(pattern, std::regex::ECMAScript | std::regex_constants::__polynomial);
  } catch (std::regex_error const& refused) {
    if (refused.code() != std::regex_constants::error_complexity) throw;
  }
#endif
  return std::regex(pattern, std::regex::ECMAScript);
}

InterfaceFilter::InterfaceFilter(CommandOptions const& options) : all_(options.allInterfaces) {
  for (std::string const& text : options.interfacePatterns) patterns_.push_back({text, std::nullopt});
}

bool InterfaceFilter::matches(std::string const& shortName) {
  if (all_) return true;
  for (Pattern& pattern : patterns_) {
    if (!pattern.compiled) pattern.compiled = compilePattern(pattern.text);
    if (std::regex_match(shortName, *pattern.compiled)) return true;
  }
  return false;
}

}  // namespace Vorn
