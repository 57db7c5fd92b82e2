// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "Kes/Types.h"
#include "agent/base/JsonStream.h"
#include "agent/record/ReportLine.h"
#include "agent/record/ReportValue.h"

namespace Agent {

// The forms that leave columns out.
struct ReportForms {
  bool csv = true;
  bool json = true;
};
inline constexpr ReportForms everywhere{};
inline constexpr ReportForms notInCsv{.csv = false};
inline constexpr ReportForms textOnly{.csv = false, .json = false};

// Where a column stands in the text reports: the smallest place first. `views` are those of the table's text
// reports, one bit each, that have it; none where it has no title.
struct TextColumn {
  std::string_view title{};
  std::size_t width = 0;
  unsigned place = 0;
  unsigned views = 0;
};

// A column of a report whose lines are made of `Row`s. A table of these is the one place where a report's
// columns are told: the order of the table is that of comma-separated and JSON reports.
template <class Row>
struct ReportColumn {
  std::string_view name;  // of the field, and of the member in JSON; with its unit
  Unit unit;
  ReportForms forms;
  TextColumn text;
  std::string_view meaning;  // for the documentation: a sentence without its stop
  ReportValue (*value)(Row const&);
  // The family of metrics that sums it up; empty: none.
  std::string_view metric{};
};

template <class Row, std::size_t count>
using ReportColumns = std::array<ReportColumn<Row>, count>;

// The columns of one text report, in their order.
template <class Row, std::size_t count>
class TextReportColumns {
 public:
  constexpr TextReportColumns(ReportColumns<Row, count> const& all, unsigned view) {
    for (ReportColumn<Row> const& column : all)
      if ((column.text.views & view) != 0) columns_[size_++] = &column;
    std::sort(columns_.begin(), columns_.begin() + static_cast<std::ptrdiff_t>(size_),
              [](auto const* a, auto const* b) { return a->text.place < b->text.place; });
  }

  // The line of titles, with a newline.
  std::string titles() const {
    ReportLine line;
    for (std::size_t i = 0; i < size_; ++i)
      line.addTitle(columns_[i]->unit, columns_[i]->text.title, columns_[i]->text.width);
    return std::string(line.text()) + '\n';
  }
  void addCells(ReportLine& line, Row const& row) const {
    for (std::size_t i = 0; i < size_; ++i)
      line.addCell(columns_[i]->unit, columns_[i]->text.width, columns_[i]->value(row));
  }

 private:
  std::array<ReportColumn<Row> const*, count> columns_{};
  std::size_t size_ = 0;
};

// The line of field names, with a newline.
template <class Row, std::size_t count>
std::string fieldNames(ReportColumns<Row, count> const& columns) {
  std::string names;
  for (ReportColumn<Row> const& column : columns)
    if (column.forms.csv) names.append(names.empty() ? "" : ",").append(column.name);
  return names + '\n';
}

template <class Row, std::size_t count>
void addFields(ReportLine& line, ReportColumns<Row, count> const& columns, Row const& row) {
  for (ReportColumn<Row> const& column : columns)
    if (column.forms.csv) line.addField(column.value(row));
}

template <class Row, std::size_t count>
void writeObject(JsonStream& json, ReportColumns<Row, count> const& columns, Row const& row) {
  json.beginObject();
  for (ReportColumn<Row> const& column : columns)
    if (column.forms.json) writeMember(json, column.name, column.unit, column.value(row));
  json.endObject();
}

}  // namespace Agent
