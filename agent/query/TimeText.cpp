// SPDX-License-Identifier: Apache-2.0
#include "agent/query/TimeText.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <optional>
#include <string>

#include "agent/query/Query.h"

namespace Agent {

namespace {

using Kes::S64;
using Kes::U64;

constexpr U64 inSecond = 1'000'000;
constexpr U64 inDay = 86'400 * inSecond;
// Some thousands of years: sums of two stay far from the end of 64 bits.
constexpr U64 longest = 100'000'000'000 * inSecond;

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

// Reads a text from its front; what fails takes nothing.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(trimmed(text)) {}

  bool atEnd() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }
  void blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size())); }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  std::string_view letters() {
    std::size_t const count = std::min(
        static_cast<std::size_t>(std::find_if_not(rest_.begin(), rest_.end(), isLetter) - rest_.begin()),
        rest_.size());
    std::string_view const word = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return word;
  }
  // Of at most so many digits.
  std::optional<U64> number(std::size_t digits) {
    std::size_t const count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    if (count == 0 || count > digits) return std::nullopt;
    U64 number = 0;
    std::from_chars(rest_.data(), rest_.data() + count, number);
    rest_.remove_prefix(count);
    return number;
  }
  // Behind a point, in millionths; 0 where none stands.
  std::optional<U64> fraction() {
    if (!take(".")) return 0;
    U64 millionths = 0;
    std::size_t const count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    if (count == 0) return std::nullopt;
    for (std::size_t i = 0; i < 6; ++i)
      millionths = 10 * millionths + (i < count ? static_cast<U64>(rest_[i] - '0') : 0);
    rest_.remove_prefix(count);
    return millionths;
  }

 private:
  static bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

  std::string_view rest_;
};

std::optional<U64> unitOf(std::string_view word) {
  struct Name {
    std::string_view words;
    U64 unit;
  };
  constexpr Name names[] = {{" us usec ", 1},
                            {" ms msec ", 1'000},
                            {"  s sec second seconds ", inSecond},
                            {" m min minute minutes ", 60 * inSecond},
                            {" h hr hour hours ", 3'600 * inSecond},
                            {" d day days ", inDay},
                            {" w week weeks ", 7 * inDay},
                            {" M month months ", 30 * inDay + 37'800 * inSecond},
                            {" y year years ", 365 * inDay + 21'600 * inSecond}};
  for (Name const& name : names)
    if (name.words.find(" " + std::string(word) + " ") != std::string_view::npos) return name.unit;
  return std::nullopt;
}

std::optional<U64> span(std::string_view text) {
  Reader reader(text);
  U64 sum = 0;
  if (reader.atEnd()) return std::nullopt;
  while (!reader.atEnd()) {
    auto const whole = reader.number(12);
    auto const part = reader.fraction();
    reader.blanks();
    auto const unit = unitOf(reader.letters());
    reader.blanks();
    if (!whole || !part || !unit || *whole > longest / *unit) return std::nullopt;
    sum += *whole * *unit +
           static_cast<U64>(static_cast<long double>(*part) / inSecond * static_cast<long double>(*unit));
    if (sum > longest) return std::nullopt;
  }
  return sum;
}

// Where a zone stands behind the time, so many seconds east of Greenwich.
std::optional<long> zoneBehind(Reader& reader, long offset) {
  reader.blanks();
  if (reader.take("UTC") || reader.take("Z")) return 0;
  bool const west = reader.take("-");
  if (!west && !reader.take("+")) return offset;
  auto const hours = reader.number(2);
  reader.take(":");
  auto const minutes = reader.number(2);
  if (!hours || !minutes || *hours > 14 || *minutes > 59) return std::nullopt;
  auto const seconds = static_cast<long>(*hours * 3600 + *minutes * 60);
  return west ? -seconds : seconds;
}

// "14:05[:10[.5]]", in microseconds of the day.
std::optional<U64> timeOfDay(Reader& reader) {
  auto const hours = reader.number(2);
  if (!hours || *hours > 23 || !reader.take(":")) return std::nullopt;
  auto const minutes = reader.number(2);
  if (!minutes || *minutes > 59) return std::nullopt;
  U64 const whole = (*hours * 60 + *minutes) * 60 * inSecond;
  if (!reader.take(":")) return whole;
  auto const seconds = reader.number(2);
  auto const part = reader.fraction();
  if (!seconds || *seconds > 60 || !part) return std::nullopt;
  return whole + *seconds * inSecond + *part;
}

// "2026-11-23", in microseconds since 1970 as if of UTC.
std::optional<U64> date(Reader& reader) {
  Reader ahead = reader;
  auto const year = ahead.number(4);
  if (!year || !ahead.take("-")) return std::nullopt;
  auto const month = ahead.number(2);
  bool const dashed = ahead.take("-");
  auto const day = ahead.number(2);
  if (*year < 1970 || !month || !dashed || !day) return std::nullopt;
  std::tm parts{};
  parts.tm_year = static_cast<int>(*year) - 1900;
  parts.tm_mon = static_cast<int>(*month) - 1;
  parts.tm_mday = static_cast<int>(*day);
  std::tm const asked = parts;
  std::time_t const seconds = ::timegm(&parts);
  if (parts.tm_mon != asked.tm_mon || parts.tm_mday != asked.tm_mday) return std::nullopt;
  reader = ahead;
  return static_cast<U64>(seconds) * inSecond;
}

U64 shifted(U64 moment, long seconds) {
  S64 const sum = static_cast<S64>(moment) + S64{seconds} * static_cast<S64>(inSecond);
  return static_cast<U64>(std::max(sum, S64{0}));
}

std::optional<U64> calendarMoment(std::string_view text, U64 now, long offset) {
  Reader reader(text);
  auto const day = date(reader);
  U64 time = 0;
  if (day && !reader.atEnd() && !reader.take("T")) reader.blanks();
  bool const hasTime = !reader.atEnd() && reader.rest().front() >= '0' && reader.rest().front() <= '9';
  if (hasTime || !day) {
    auto const told = timeOfDay(reader);
    if (!told) return std::nullopt;
    time = *told;
  }
  auto const zone = zoneBehind(reader, offset);
  if (!zone || !reader.atEnd()) return std::nullopt;
  U64 const today = shifted(now, *zone);
  return shifted(day.value_or(today - today % inDay) + time, -*zone);
}

std::optional<U64> moment(std::string_view text, U64 now, long offset) {
  text = trimmed(text);
  U64 const local = shifted(now, offset);
  U64 const midnight = shifted(local - local % inDay, -offset);
  if (text == "now") return now;
  if (text == "today") return midnight;
  if (text == "yesterday") return midnight - std::min(midnight, inDay);
  if (text == "tomorrow") return midnight + inDay;
  bool const back = text.starts_with('-');
  bool const ago = text.ends_with(" ago");
  if (back || ago || text.starts_with('+')) {
    auto const distance = span(ago ? text.substr(0, text.size() - 4) : text.substr(1));
    if (!distance) return std::nullopt;
    return back || ago ? now - std::min(now, *distance) : now + *distance;
  }
  if (!text.starts_with('@')) return calendarMoment(text, now, offset);
  Reader reader(text.substr(1));
  auto const seconds = reader.number(11);
  auto const part = reader.fraction();
  if (!seconds || !part || !reader.atEnd()) return std::nullopt;
  return *seconds * inSecond + *part;
}

}  // namespace

U64 momentFrom(std::string_view text, U64 now, long offset) {
  if (auto const found = moment(text, now, offset)) return *found;
  throw QueryError("\"" + std::string(text) +
                   "\" is no time: write 14:05, 2026-11-23 14:05:10, yesterday, -2h or @1795388706");
}

U64 spanFrom(std::string_view text) {
  if (auto const found = span(text)) return *found;
  throw QueryError("\"" + std::string(text) + "\" is no span of time: write 90, 90s, 5min, 1h 30min or 2d");
}

}  // namespace Agent
