// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/CongestionData.h"
#include "Vorn/internal/ReportFrame.h"

namespace Vorn {

// Writes the log of the global buffer, latest record first; without records no footer either.
void writeGlobalBufferReport(CongestionData const& recorder, ReportFrame const& frame);

// Writes the global records that come before `entry` in a report, all that are left when it is null; oldest
// first when `ascending`. The cursor stays in the log between calls.
void mergeGlobalRecords(CongestionData const& recorder, std::FILE* stream, Entry const* entry,
                        bool ascending);

// Ends the merge of the global records into an entry report, so that the next report starts afresh. A report
// that failed does not get here: the next one continues where it stopped.
void endGlobalMerge(CongestionData const& recorder);

}  // namespace Vorn
