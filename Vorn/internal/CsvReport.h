// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/internal/ReportFrame.h"
#include "Vorn/internal/ReportSelection.h"

namespace Vorn {

// Writes every record of the selection, oldest first, as comma-separated lines between its start records.
// Returns how many characters the footer has, negative on an output error, or the non-zero result of the
// record's writer that failed: the report then ends there.
Kes::S32 writeCsvReport(CongestionData const& recorder, ReportFrame const& frame,
                        ReportSelection const& selection, bool showAll);

}  // namespace Vorn
