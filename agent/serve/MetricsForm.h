// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace Agent {

// How metrics are written: OpenMetrics 1.0, or the older text that says the same and that nearly everything
// reads.
enum class MetricsForm : std::uint8_t { openMetrics, classic };

}  // namespace Agent
