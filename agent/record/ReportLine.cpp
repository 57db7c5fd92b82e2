// SPDX-License-Identifier: Apache-2.0
#include "agent/record/ReportLine.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include "agent/base/Printable.h"
#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

constexpr std::string_view columnGap = " ";

class Decimal {
 public:
  explicit Decimal(U64 number) : end_(std::to_chars(digits_.begin(), digits_.end(), number).ptr) {}
  std::string_view text() const { return {digits_.data(), static_cast<std::size_t>(end_ - digits_.data())}; }

 private:
  std::array<char, 20> digits_;
  char* end_;
};

// Of UTF-8, whose characters have any number of bytes like 10xxxxxx behind the first one.
std::size_t charactersIn(std::string_view text) {
  auto const begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

}  // namespace

ReportLine::Align ReportLine::alignOf(Unit unit) {
  bool const isTime = unit == Unit::moment || unit == Unit::second || unit == Unit::rfc3339;
  return isTime || unit == Unit::name || unit == Unit::flag ? Align::left : Align::right;
}

void ReportLine::append(std::string_view text) {
  // Room for the newline stays.
  std::size_t const count = std::min(text.size(), text_.size() - 1 - length_);
  std::memcpy(text_.data() + length_, text.data(), count);
  length_ += count;
}

void ReportLine::appendName(std::string_view text) {
  std::size_t const begin = length_;
  append(text);
  makePrintable({text_.data() + begin, length_ - begin});
}

void ReportLine::pad(std::size_t count) {
  count = std::min(count, text_.size() - 1 - length_);
  std::memset(text_.data() + length_, ' ', count);
  length_ += count;
}

void ReportLine::beginColumn() {
  if (length_ != 0) append(columnGap);
}

void ReportLine::addText(Align align, std::size_t width, std::string_view text) {
  beginColumn();
  auto const begin = text_.begin() + static_cast<std::ptrdiff_t>(length_);
  appendName(text);
  auto const end = text_.begin() + static_cast<std::ptrdiff_t>(length_);
  pad(width - std::min(width, charactersIn({begin, end})));
  if (align == Align::right) std::rotate(begin, end, text_.begin() + static_cast<std::ptrdiff_t>(length_));
}

void ReportLine::addNumber(std::size_t width, U64 number, std::string_view unit) {
  Decimal const digits(number);
  beginColumn();
  std::size_t const used = digits.text().size() + unit.size();
  pad(width - std::min(width, used));
  append(digits.text());
  append(unit);
}

void ReportLine::addMilliseconds(std::size_t width, U64 microseconds) {
  std::array<char, 7> fraction = {'.', '0', '0', '0', ' ', 'm', 's'};
  U64 rest = microseconds % 1000;
  for (std::size_t i = 3; i > 0; --i, rest /= 10) fraction[i] = static_cast<char>('0' + rest % 10);
  addNumber(width, microseconds / 1000, {fraction.data(), fraction.size()});
}

void ReportLine::addPercent(std::size_t width, U64 millionths) {
  U64 const hundredths = (millionths + 50) / 100;
  std::array<char, 5> const fraction = {'.', static_cast<char>('0' + hundredths / 10 % 10),
                                        static_cast<char>('0' + hundredths % 10), ' ', '%'};
  addNumber(width, hundredths / 100, {fraction.data(), fraction.size()});
}

void ReportLine::addCell(Unit unit, std::size_t width, ReportValue const& value) {
  if (auto const* const text = std::get_if<std::string_view>(&value))
    return addText(Align::left, width, *text);
  if (auto const* const name = std::get_if<QueueName>(&value))
    return addText(Align::left, width, name->text());
  auto const* const number = std::get_if<U64>(&value);
  if (number == nullptr) return addText(alignOf(unit), width, "-");
  switch (unit) {
    case Unit::moment:
      return addText(Align::left, width, LocalZone::ofReports().moment(Vorn::Microseconds(*number)));
    case Unit::second:
      return addText(Align::left, width,
                     LocalZone::ofReports().second(static_cast<std::time_t>(*number / 1'000'000)));
    case Unit::rfc3339: return addText(Align::left, width, rfc3339(Vorn::Microseconds(*number)));
    case Unit::microseconds: return addMilliseconds(width, *number);
    case Unit::millionths: return addPercent(width, *number);
    case Unit::flag: return addText(Align::left, width, *number != 0 ? "yes" : "no");
    case Unit::bytes: return addNumber(width, *number, " B");
    case Unit::name:
    case Unit::count:
    case Unit::packets: return addNumber(width, *number, "");
  }
}

void ReportLine::addTitle(Unit unit, std::string_view title, std::size_t width) {
  if (unit != Unit::moment && unit != Unit::second) return addText(alignOf(unit), width, title);
  addText(Align::left, width, std::string(title) + " (" + LocalZone::ofReports().name() + ")");
}

void ReportLine::addWords(std::string_view words) { addText(Align::left, 0, words); }

void ReportLine::addField(ReportValue const& value) {
  if (fields_++ != 0) append(",");
  if (auto const* const number = std::get_if<U64>(&value)) return append(Decimal(*number).text());
  if (auto const* const name = std::get_if<QueueName>(&value)) return addFieldText(name->text());
  if (auto const* const text = std::get_if<std::string_view>(&value)) addFieldText(*text);
}

void ReportLine::addFieldText(std::string_view text) {
  // Most are, and one pass is all they need.
  auto const isPlain = [](char c) { return c >= ' ' && c <= '~' && c != ',' && c != '"'; };
  if (std::all_of(text.begin(), text.end(), isPlain)) return append(text);
  if (text.find_first_of(",\"") == std::string_view::npos) return appendName(text);
  std::string quoted = "\"";
  for (char const c : text) quoted.append(c == '"' ? 2 : 1, c);
  appendName(quoted += '"');
}

Kes::S32 ReportLine::write(Kes::VoidPtr stream) {
  text_[length_] = '\n';
  return std::fwrite(text_.data(), length_ + 1, 1, static_cast<std::FILE*>(stream)) == 1 ? 0 : -1;
}

}  // namespace Agent
