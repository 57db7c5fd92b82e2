// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/InterfaceFilter.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "Vorn/InterfacePattern.h"

namespace Vorn {

namespace {

// Longer patterns go the way of expressions, where limits are checked.
constexpr std::size_t longestLiteral = 256;

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

InterfaceFilter::InterfaceFilter(CommandOptions const& options) : all_(options.allInterfaces) {
  for (std::string const& text : options.interfacePatterns) patterns_.push_back({text});
}

bool InterfaceFilter::matches(std::string const& shortName) {
  return all_ || std::any_of(patterns_.begin(), patterns_.end(),
                             [&](Pattern& pattern) { return pattern.matches(shortName); });
}

// A name, or a prefix of names followed by ".*", needs no matcher; most patterns are one of these.
void InterfaceFilter::Pattern::prepare() {
  if (text.size() > longestLiteral) return compile();
  std::string spelt;
  std::string_view rest = text;
  while (!rest.empty() && rest != ".*") {
    auto const [character, size] = literalAt(rest);
    if (size == 0) return compile();
    spelt += character;
    rest.remove_prefix(size);
  }
  literal = std::move(spelt);
  form = rest.empty() ? Form::name : Form::prefix;
}

void InterfaceFilter::Pattern::compile() {
  try {
    compiled = compilePattern(text);
    form = Form::expression;
  } catch (std::regex_error const&) {
    error = std::current_exception();
    form = Form::bad;
  }
}

bool InterfaceFilter::Pattern::matches(std::string const& name) {
  if (form == Form::unknown) prepare();
  switch (form) {
    case Form::name: return name == literal;
    // ".*" matches no line break.
    case Form::prefix:
      return name.starts_with(literal) && name.find_first_of("\n\r", literal.size()) == std::string::npos;
    case Form::expression: return std::regex_match(name, *compiled);
    default: std::rethrow_exception(error);
  }
}

}  // namespace Vorn
