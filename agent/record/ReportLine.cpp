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

void ReportLine::separate(std::string_view separator) {
  if (length_ != 0) append(separator);
}

void ReportLine::addText(Column const& column, std::string_view text) {
  separate(columnGap);
  auto const begin = text_.begin() + static_cast<std::ptrdiff_t>(length_);
  appendName(text);
  auto const end = text_.begin() + static_cast<std::ptrdiff_t>(length_);
  pad(column.width - std::min(column.width, charactersIn({begin, end})));
  if (column.align == Column::Align::right)
    std::rotate(begin, end, text_.begin() + static_cast<std::ptrdiff_t>(length_));
}

void ReportLine::addNumber(Column const& column, U64 number, std::string_view unit) {
  Decimal const digits(number);
  separate(columnGap);
  std::size_t const width = digits.text().size() + unit.size();
  pad(column.width - std::min(column.width, width));
  append(digits.text());
  append(unit);
}

void ReportLine::addTime(Column const& column, Vorn::Microseconds time) {
  addText(column, LocalZone::ofReports().moment(time));
}

void ReportLine::addMilliseconds(Column const& column, Vorn::Microseconds time) {
  std::array<char, 7> fraction = {'.', '0', '0', '0', ' ', 'm', 's'};
  U64 rest = time.value() % 1000;
  for (std::size_t i = 3; i > 0; --i, rest /= 10) fraction[i] = static_cast<char>('0' + rest % 10);
  addNumber(column, time.value() / 1000, {fraction.data(), fraction.size()});
}

void ReportLine::addField(std::string_view text) {
  separate(",");
  // Most are, and one pass is all they need.
  auto const isPlain = [](char c) { return c >= ' ' && c <= '~' && c != ',' && c != '"'; };
  if (std::all_of(text.begin(), text.end(), isPlain)) return append(text);
  if (text.find_first_of(",\"") == std::string_view::npos) return appendName(text);
  std::string quoted = "\"";
  for (char const c : text) quoted.append(c == '"' ? 2 : 1, c);
  appendName(quoted += '"');
}

void ReportLine::addField(U64 number) {
  separate(",");
  append(Decimal(number).text());
}

void ReportLine::addEmptyFields(int count) {
  for (int i = 0; i < count; ++i) append(",");
}

Kes::S32 ReportLine::write(Kes::VoidPtr stream) {
  text_[length_] = '\n';
  return std::fwrite(text_.data(), length_ + 1, 1, static_cast<std::FILE*>(stream)) == 1 ? 0 : -1;
}

}  // namespace Agent
