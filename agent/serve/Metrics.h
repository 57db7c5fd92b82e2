// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>

#include "agent/burst/BurstLedger.h"
#include "agent/serve/AgentStatus.h"

namespace Agent {

// How metrics are written: OpenMetrics 1.0, or the older text that says the same and that nearly everything
// reads.
enum class MetricsForm : std::uint8_t { openMetrics, classic };

// All that a monitoring system asks for: what the bursts of each queue add up to, which are open, and how the
// agent itself is. A queue has 38 series, with the labels device, queue and kind. Names, units and meanings
// stand in the output, and in docs/operations.md.
void writeMetrics(BurstLedger const& ledger, AgentStatus const& status, MetricsForm form, std::FILE* out);

}  // namespace Agent
