// SPDX-License-Identifier: Apache-2.0
#include "Vorn/internal/ReportSelection.h"

#include <algorithm>

#include "Vorn/Trace.h"
#include "Vorn/internal/InterfaceFilter.h"

namespace Vorn {

namespace {

// The oldest record that an interface still holds; null when it holds none.
Entry::Ptr oldestEntry(PortData const& port) {
  for (Chunk::Ptr const& chunk : port.chunkIterator())
    for (Entry::Ptr const& entry : chunk->entryIterator()) return entry;
  return nullptr;
}

void addStartRecords(PortData const& port, std::vector<PortMetaData::Ptr>& startRecords) {
  Entry::Ptr const oldest = oldestEntry(port);
  if (!oldest) return;
  for (PortMetaData::Ptr const& record : port.portMetaDataIterator()) {
    Microseconds const start = record->timeOfCongestionStart();
    if (start == Microseconds(0) || start >= oldest->timestamp()) continue;
    VORN_TRACE(6, "Metadata overwritten for port " << port.intfId());
    startRecords.push_back(record);
  }
}

}  // namespace

ReportSelection selectionOf(CongestionData const& recorder, CommandOptions const& options) {
  InterfaceFilter filter(options);
  ReportSelection selection;
  for (PortData::Ptr const& port : recorder.portDataIterator()) {
    if (!filter.matches(port->intfId().shortName().str()) || port->chunks() == 0) continue;
    VORN_TRACE(6, "tail index " << port->chunkQueue().tail()->key << " num of entries "
                                << port->chunkTail()->entrys());
    selection.ports.push_back(port);
    addStartRecords(*port, selection.startRecords);
  }
  std::sort(selection.startRecords.begin(), selection.startRecords.end(), PortMetaDataSort);
  if (options.report == CommandOptions::Report::csv)
    std::reverse(selection.startRecords.begin(), selection.startRecords.end());
  return selection;
}

}  // namespace Vorn
