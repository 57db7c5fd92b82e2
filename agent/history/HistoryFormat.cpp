// SPDX-License-Identifier: Apache-2.0
#include "agent/history/HistoryFormat.h"

#include <array>
#include <bit>
#include <utility>

namespace Agent::HistoryFormat {

namespace {

constexpr auto table = [] {
  std::array<Kes::U32, 256> made{};
  for (Kes::U32 byte = 0; byte < made.size(); ++byte) {
    Kes::U32 remainder = byte;
    for (int bit = 0; bit < 8; ++bit) remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320U : 0);
    made[byte] = remainder;
  }
  return made;
}();

}  // namespace

Kes::U32 checksum(Kes::U32 before, std::string_view bytes) {
  Kes::U32 remainder = ~before;
  for (char const byte : bytes)
    remainder = (remainder >> 8) ^ table[(remainder ^ static_cast<unsigned char>(byte)) & 0xff];
  return ~remainder;
}

void Fields::addReal(double number) { add(std::bit_cast<Kes::U64>(number)); }

void Fields::addText(std::string_view text) {
  add(static_cast<Kes::U16>(text.size()));
  bytes_ += text;
}

double FieldReader::takeReal() { return std::bit_cast<double>(take<Kes::U64>()); }

std::string_view FieldReader::takeBytes(std::size_t count) {
  if (failed_ || count > rest_.size()) {
    failed_ = true;
    return {};
  }
  std::string_view const taken = rest_.substr(0, count);
  rest_.remove_prefix(count);
  return taken;
}

}  // namespace Agent::HistoryFormat
