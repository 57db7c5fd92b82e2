// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <variant>

#include "Kes/Types.h"
#include "agent/base/JsonStream.h"
#include "agent/record/QueueName.h"

namespace Agent {

// What a value means, and so how each form of a report writes it.
enum class Unit : Kes::U8 {
  name,          // text
  flag,          // yes or no
  count,         // a number
  packets,       // likewise
  bytes,         // in text with " B" behind it
  microseconds,  // a duration; in text milliseconds, with microseconds behind the point
  moment,        // microseconds since 1970; in text local time
  second,        // the same; in text local time without a fraction
  rfc3339,       // the same, as text in UTC also for programs
  millionths     // a share; in text per cent, for programs a number between 0 and 1
};

// A value of a report; nothing where there is none, a flag as 0 or 1. Names are borrowed from the row that
// they were taken from.
using ReportValue = std::variant<std::monostate, Kes::U64, std::string_view, QueueName>;

// The part of a whole in millionths, 0 of nothing; the part is not larger.
Kes::U64 millionthsOf(Kes::U64 part, Kes::U64 whole);

// As a member of a JSON object; null for none.
void writeMember(JsonStream& json, std::string_view name, Unit unit, ReportValue const& value);

}  // namespace Agent
