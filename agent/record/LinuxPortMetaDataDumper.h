// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/PortMetaDataDumper.h"
#include "agent/record/RecordRow.h"
#include "agent/record/StatisticsColumns.h"

namespace Agent {

// Writes the start records of this machine's queues: congestion that still lasts and whose first record has
// been overwritten meanwhile; and the statistics lines, with the queues by name. The lines fit those of
// LinuxEntry.
class LinuxPortMetaDataDumper final : public Vorn::PortMetaDataDumper {
 public:
  // 0, or -1 when the stream fails.
  Kes::S32 dumpStartMetaData(Vorn::PortMetaData const* portMetaData, Kes::VoidPtr stream,
                             bool csvFormat) const override;
  Kes::S32 dumpStatistics(Vorn::PortMetaData const* portMetaData, Kes::VoidPtr stream) const override;

 protected:
  ~LinuxPortMetaDataDumper() override;
};

// The same as rows, for every form of report. The interface's name is that object's.
RecordRow startRow(Vorn::PortMetaData const& queue);
StatisticsRow statisticsRow(Vorn::PortMetaData const& queue);

}  // namespace Agent
