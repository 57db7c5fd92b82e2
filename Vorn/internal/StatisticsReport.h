// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/CongestionData.h"
#include "Vorn/internal/ReportFrame.h"

namespace Vorn {

// Writes one line for each metadata object whose counter is not 0, by interface number, and the global hit
// count.
void writeStatisticsReport(CongestionData const& recorder, ReportFrame const& frame);

}  // namespace Vorn
