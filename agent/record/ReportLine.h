// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>

#include "Kes/Types.h"
#include "Vorn/Microseconds.h"

namespace Agent {

// A column of the text reports: values are padded to `width` and never cut.
struct Column {
  std::string_view title;
  std::size_t width;
  enum class Align { left, right } align;
};

// One line of a report, put together on the stack and written in one piece. Each add... appends a column or,
// in comma-separated lines, a field; what would not fit any more is cut, which no line of this system comes
// near.
class ReportLine {
 public:
  // Text columns. Names are made printable, here and in fields (Printable.h).
  void addText(Column const& column, std::string_view text);
  void addNumber(Column const& column, Kes::U64 number, std::string_view unit);
  // Local time (LocalZone.h) with microseconds.
  void addTime(Column const& column, Vorn::Microseconds time);
  // Milliseconds with microseconds behind the point.
  void addMilliseconds(Column const& column, Vorn::Microseconds time);

  // Comma-separated fields: raw numbers; text is quoted where it holds a comma or a quote.
  void addField(std::string_view text);
  void addField(Kes::U64 number);
  void addEmptyFields(int count);

  // What has been added so far, without a newline.
  std::string_view text() const { return {text_.data(), length_}; }
  // Ends the line and writes it to a stdio stream: 0, or -1 when the stream fails.
  Kes::S32 write(Kes::VoidPtr stream);

 private:
  void append(std::string_view text);
  void appendName(std::string_view text);
  void pad(std::size_t count);
  void separate(std::string_view separator);

  std::array<char, 512> text_;
  std::size_t length_ = 0;
};

}  // namespace Agent
