// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Printable.h"

#include <algorithm>
#include <array>

namespace Agent {

namespace {

unsigned byteOf(char c) { return static_cast<unsigned char>(c); }

bool isContinuation(char c) { return (byteOf(c) & 0xC0) == 0x80; }

// How many bytes follow this one in its character, if it begins one.
std::size_t bytesBehind(char first) {
  unsigned const byte = byteOf(first);
  return byte > 0xF4 ? 0 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
}

struct Character {
  std::size_t bytes;
  bool shown;
};

bool isShown(char32_t code) {
  bool const isControl = code < 0x20 || (code >= 0x7F && code <= 0x9F);
  // Ends of lines and paragraphs, and what overrides the direction of writing.
  bool const turnsLine = (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  return !isControl && !turnsLine;
}

// What stands at the front: a character, or a byte that belongs to none.
Character firstOf(std::span<char const> text) {
  constexpr Character none{1, false};
  constexpr std::array<char32_t, 4> smallest = {0, 0x80, 0x800, 0x10000};
  std::size_t const behind = bytesBehind(text[0]);
  if (behind == 0) return {1, byteOf(text[0]) < 0x80 && isShown(byteOf(text[0]))};
  if (text.size() <= behind) return none;
  char32_t code = byteOf(text[0]) & (0x3FU >> behind);
  for (char const c : text.subspan(1, behind)) {
    if (!isContinuation(c)) return none;
    code = code << 6 | (byteOf(c) & 0x3F);
  }
  bool const isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < smallest[behind] || code > 0x10FFFF || isSurrogate) return none;
  return {1 + behind, isShown(code)};
}

}  // namespace

void makePrintable(std::span<char> text) {
  auto const isPlain = [](char c) { return c >= ' ' && c <= '~'; };
  for (auto at = text.begin(); (at = std::find_if_not(at, text.end(), isPlain)) != text.end();) {
    auto const [bytes, shown] = firstOf({at, text.end()});
    if (!shown) std::fill_n(at, bytes, '?');
    at += static_cast<std::ptrdiff_t>(bytes);
  }
}

std::string printable(std::string_view text, std::size_t longest) {
  bool const isCut = text.size() > longest;
  if (isCut) text = text.substr(0, wholeCharacters(text.substr(0, longest)));
  std::string shown(text);
  makePrintable(shown);
  return isCut ? shown + "..." : shown;
}

std::size_t wholeCharacters(std::string_view text) {
  // A character has at most three bytes behind its first.
  for (std::size_t behind = 0; behind < std::min<std::size_t>(text.size(), 3); ++behind) {
    std::size_t const at = text.size() - 1 - behind;
    if (!isContinuation(text[at])) return bytesBehind(text[at]) > behind ? at : text.size();
  }
  return text.size();
}

}  // namespace Agent
