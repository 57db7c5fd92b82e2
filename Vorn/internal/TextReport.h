// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/internal/ReportFrame.h"
#include "Vorn/internal/ReportSelection.h"

namespace Vorn {

// Writes the text report of a selection: one line a record, latest first, within the options' limits.
// `reportTime` dates the report and is "now" for the age limit.
void writeTextReport(CongestionData const& recorder, ReportFrame const& frame,
                     ReportSelection const& selection, CommandOptions const& options,
                     Kes::Seconds reportTime);

}  // namespace Vorn
