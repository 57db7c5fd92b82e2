// SPDX-License-Identifier: Apache-2.0
#include "agent/record/ReportColumns.h"

#include <initializer_list>
#include <string>

#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

Kes::String titles(std::initializer_list<Column> all) {
  ReportLine line;
  for (Column const& column : all) {
    bool const isTime = column.title == columns::time.title;
    line.addText(column, isTime ? "Time (" + LocalZone::ofReports().name() + ")" : std::string(column.title));
  }
  return std::string(line.text()) + "\n";
}

}  // namespace

Kes::String columnsFor(Vorn::CommandOptions const& options) {
  using namespace columns;
  using Report = Vorn::CommandOptions::Report;
  switch (options.report) {
    case Report::csv: return csvColumns;
    case Report::statistics: return titles({interface, queue, bursts});
    case Report::globalBuffer: return titles({time, length, peakBound, duration, drops});
    case Report::text: break;
  }
  if (options.drops) return titles({time, interface, queue, duration, drops});
  if (options.latency) return titles({time, interface, queue, length, latency});
  return titles({time, interface, queue, length, peakBound, duration, latency, drops});
}

}  // namespace Agent
