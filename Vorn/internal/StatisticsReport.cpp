// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/StatisticsReport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "Kes/Format.h"
#include "Vorn/internal/NaturalOrder.h"

namespace Vorn {

namespace {

// By interface number; what is equal there in natural order of the short name, then by full name and
// identifier, so that every report has the same order.
bool statisticsOrder(PortMetaData::Ptr const& a, PortMetaData::Ptr const& b) {
  if (PortMetaDataSortOnIntf(a.get(), b.get())) return true;
  if (PortMetaDataSortOnIntf(b.get(), a.get())) return false;
  std::string_view const nameA = a->intfId().shortName().view();
  std::string_view const nameB = b->intfId().shortName().view();
  if (nameA != nameB) return naturallyBefore(nameA, nameB);
  if (a->intfId() != b->intfId()) return a->intfId() < b->intfId();
  return a->identifier() < b->identifier();
}

Kes::U32 globalHitCount(GlobalBufferChunk::Ptr const& log) {
  if (!log) {
    VORN_TRACE(8, "No global buffer chunk");
    return 0;
  }
  if (log->counter() == 0) VORN_TRACE(8, "Global buffer chunk counter = 0");
  return log->counter();
}

}  // namespace

void writeStatisticsReport(CongestionData const& recorder, ReportFrame const& frame) {
  frame.begin(recorder.clock()->getUTCTime());
  std::vector<PortMetaData::Ptr> records;
  for (auto const& [intfId, port] : recorder.portDataMap())
    for (PortMetaData::Ptr const& record : port->portMetaDataIterator()) records.push_back(record);
  std::sort(records.begin(), records.end(), statisticsOrder);
  for (PortMetaData::Ptr const& record : records) {
    if (record->counter() == 0) continue;
    if (recorder.portMetaDataDumper()->dumpStatistics(record.get(), frame.stream) != 0) {
      VORN_TRACE(0, "doDumpStatistics : statistics dump failed");
      return;
    }
  }
  Kes::String const line =
      Kes::format("\nGlobal Hit Count = %u\n", globalHitCount(recorder.globalBufferChunk()));
  if (std::fprintf(frame.stream, "%s", line.charPtr()) < static_cast<int>(line.size())) {
    int const error = errno;
    VORN_TRACE(0, "dumpStatistics : " << std::strerror(error));
    return;
  }
  frame.end();
}

}  // namespace Vorn
