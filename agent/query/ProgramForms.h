// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "agent/query/Query.h"
#include "agent/record/ReportColumn.h"

namespace Agent {

// All rows of a report, comma-separated or as JSON. `rows` has a size() and makes each row when it is asked
// for it: there may be very many.
template <class Row, std::size_t count, class Rows>
void writeForPrograms(std::FILE* out, Query::Form form, ReportColumns<Row, count> const& columns,
                      Rows const& rows) {
  if (form == Query::Form::csv) {
    std::fputs(fieldNames(columns).c_str(), out);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      Row const row = rows[i];
      ReportLine line;
      addFields(line, columns, row);
      line.write(out);
    }
    return;
  }
  JsonStream json(out);
  json.beginArray();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    Row const row = rows[i];
    writeObject(json, columns, row);
  }
  json.endArray();
}

}  // namespace Agent
