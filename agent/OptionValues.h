// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "Kes/Format.h"

// What the value of an option may look like.

namespace Agent {

inline constexpr char const* automatic = "auto";

// Decimal. CLI11 takes leading zeros for octal, so there are none.
template <class Number>
std::optional<Number> numberOf(std::string_view text) {
  if (text.size() > 1 && text[0] == '0' && text[1] >= '0' && text[1] <= '9') return std::nullopt;
  Number value{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// What checks a value returns is what is wrong with it; empty: nothing.

// In place of CLI::Range, which lets nan pass.
template <class Number>
auto between(Number low, Number high) {
  return [low, high](std::string const& text) {
    auto const value = numberOf<Number>(text);
    if (value && *value >= low && *value <= high) return std::string();
    return Kes::format("\"%s\" is not a number from %.10g to %.10g", text, static_cast<double>(low),
                       static_cast<double>(high))
        .str();
  };
}

template <class Number>
auto autoOrBetween(Number low, Number high) {
  return [check = between(low, high)](std::string const& text) {
    std::string const fault = text == automatic ? "" : check(text);
    return fault.empty() ? fault : fault + ", nor auto";
  };
}

inline std::string booleanFault(std::string const& text) {
  return text == "true" || text == "false" ? "" : '"' + text + "\" is neither true nor false";
}

inline std::string emptyFault(std::string const& text) { return text.empty() ? "it is empty" : ""; }

}  // namespace Agent
