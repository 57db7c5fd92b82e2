// SPDX-License-Identifier: Apache-2.0
#include "agent/record/ReportValue.h"

#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

constexpr Kes::U64 inAll = 1'000'000;  // millionths

// "0.012345".
std::string fraction(Kes::U64 millionths) {
  std::string digits = std::to_string(inAll + millionths % inAll);
  digits.front() = '.';
  return std::to_string(millionths / inAll) + digits;
}

}  // namespace

Kes::U64 millionthsOf(Kes::U64 part, Kes::U64 whole) {
  if (whole == 0) return 0;
  return static_cast<Kes::U64>(static_cast<long double>(part) / static_cast<long double>(whole) * inAll);
}

void writeMember(JsonStream& json, std::string_view name, Unit unit, ReportValue const& value) {
  json.key(name);
  if (auto const* const text = std::get_if<std::string_view>(&value)) return json.text(*text);
  if (auto const* const queue = std::get_if<QueueName>(&value)) return json.text(queue->text());
  auto const* const number = std::get_if<Kes::U64>(&value);
  if (number == nullptr) return json.null();
  if (unit == Unit::flag) return json.boolean(*number != 0);
  if (unit == Unit::rfc3339) return json.text(rfc3339(Vorn::Microseconds(*number)));
  if (unit == Unit::millionths) return json.number(fraction(*number));
  json.number(*number);
}

}  // namespace Agent
