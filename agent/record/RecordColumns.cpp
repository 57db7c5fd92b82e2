// SPDX-License-Identifier: Apache-2.0
#include "agent/record/RecordColumns.h"

#include <bit>

#include "agent/record/StatisticsColumns.h"

namespace Agent {

namespace {

using TextColumns = TextReportColumns<RecordRow, recordColumns.size()>;

constexpr TextColumns ofView[] = {{recordColumns, RecordView::records},
                                  {recordColumns, RecordView::drops},
                                  {recordColumns, RecordView::latency},
                                  {recordColumns, RecordView::global},
                                  {recordColumns, RecordView::start}};

TextColumns const& columnsOf(unsigned view) { return ofView[std::countr_zero(view)]; }

}  // namespace

Kes::S32 writeTextLine(std::FILE* out, RecordRow const& row, unsigned view) {
  ReportLine line;
  bool const isStart = row.kind == RecordRow::Kind::start;
  columnsOf(isStart ? RecordView::start : view).addCells(line, row);
  if (isStart) line.addWords("congested since then, first records overwritten");
  return line.write(out);
}

Kes::S32 writeCsvLine(std::FILE* out, RecordRow const& row) {
  ReportLine line;
  addFields(line, recordColumns, row);
  return line.write(out);
}

std::string recordTitles(unsigned view) { return columnsOf(view).titles(); }

std::string recordFieldNames() { return fieldNames(recordColumns); }

Kes::String columnsFor(Vorn::CommandOptions const& options) {
  using Report = Vorn::CommandOptions::Report;
  switch (options.report) {
    case Report::csv: return recordFieldNames();
    case Report::statistics: return statisticsText.titles();
    case Report::globalBuffer: return recordTitles(RecordView::global);
    case Report::text: break;
  }
  return recordTitles(options.drops     ? RecordView::drops
                      : options.latency ? RecordView::latency
                                        : RecordView::records);
}

}  // namespace Agent
