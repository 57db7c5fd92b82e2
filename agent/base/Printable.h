// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// Names come from whoever may name an interface or write a request, and end up on terminals. What a terminal
// would obey instead of showing it is replaced by question marks: control characters, those that turn the
// direction of a line, and bytes that belong to no UTF-8 character. Every other UTF-8 character stays as it
// is.
namespace Agent {

// In place: a question mark for each byte of what is replaced.
void makePrintable(std::span<char> text);

// A printable copy; of a text of more than `longest` bytes its beginning, with "..." behind it.
std::string printable(std::string_view text, std::size_t longest = std::string_view::npos);

// What names take in messages to people: nothing longer helps.
inline constexpr std::size_t longestShownName = 64;

// The length of a text without a last UTF-8 character that has only begun: where a stream may be cut.
std::size_t wholeCharacters(std::string_view text);

}  // namespace Agent
