// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Kes/Types.h"
#include "agent/record/ReportValue.h"

namespace Agent {

// One line of a report, put together on the stack and written in one piece. Each add... appends a column,
// whose values are padded to its width and never cut, or in comma-separated lines a field; what the line
// would not hold any more is cut, which no line of this system comes near.
class ReportLine {
 public:
  // Text columns: names and times stand left, what is counted right. Names are made printable, here and in
  // fields (Printable.h). Times are local (LocalZone.h), which the title tells. What is unknown is "-".
  void addCell(Unit unit, std::size_t width, ReportValue const& value);
  void addTitle(Unit unit, std::string_view title, std::size_t width);
  // Behind the columns.
  void addWords(std::string_view words);

  // Comma-separated fields: raw numbers; text is quoted where it holds a comma or a quote. What is unknown is
  // empty.
  void addField(ReportValue const& value);

  // What has been added so far, without a newline.
  std::string_view text() const { return {text_.data(), length_}; }
  // Ends the line and writes it to a stdio stream: 0, or -1 when the stream fails.
  Kes::S32 write(Kes::VoidPtr stream);

 private:
  enum class Align { left, right };

  static Align alignOf(Unit unit);

  void append(std::string_view text);
  void addText(Align align, std::size_t width, std::string_view text);
  void addNumber(std::size_t width, Kes::U64 number, std::string_view unit);
  void addMilliseconds(std::size_t width, Kes::U64 microseconds);
  void addPercent(std::size_t width, Kes::U64 millionths);
  void addFieldText(std::string_view text);
  void appendName(std::string_view text);
  void pad(std::size_t count);
  void beginColumn();

  std::array<char, 2048> text_;
  std::size_t length_ = 0;
  unsigned fields_ = 0;
};

}  // namespace Agent
