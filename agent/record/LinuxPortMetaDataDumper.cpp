// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxPortMetaDataDumper.h"

#include "agent/record/RecordColumns.h"

namespace Agent {

LinuxPortMetaDataDumper::~LinuxPortMetaDataDumper() = default;

Kes::S32 LinuxPortMetaDataDumper::dumpStartMetaData(Vorn::PortMetaData const* portMetaData,
                                                    Kes::VoidPtr stream, bool csvFormat) const {
  auto* const out = static_cast<std::FILE*>(stream);
  RecordRow const row = startRow(*portMetaData);
  return csvFormat ? writeCsvLine(out, row) : writeTextLine(out, row, RecordView::start);
}

Kes::S32 LinuxPortMetaDataDumper::dumpStatistics(Vorn::PortMetaData const* portMetaData,
                                                 Kes::VoidPtr stream) const {
  ReportLine line;
  statisticsText.addCells(line, statisticsRow(*portMetaData));
  return line.write(stream);
}

RecordRow startRow(Vorn::PortMetaData const& queue) {
  return {.kind = RecordRow::Kind::start,
          .open = true,
          .interface = queue.intfId().shortName().view(),
          .queue = queue.identifier(),
          .timestamp = queue.timeOfCongestionStart().value()};
}

StatisticsRow statisticsRow(Vorn::PortMetaData const& queue) {
  return {queue.intfId().shortName().view(), queue.identifier(), queue.counter()};
}

}  // namespace Agent
