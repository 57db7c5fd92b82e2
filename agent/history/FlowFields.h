// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "agent/history/HistoryFormat.h"
#include "agent/record/Flow.h"

namespace Agent {

// Who filled the queue in a burst, as a saved history holds it.
void addFlows(HistoryFormat::Fields& fields, BurstFlows const& flows);

// Nothing where they are none, or more than records keep.
std::optional<BurstFlows> takeFlows(HistoryFormat::FieldReader& fields);

}  // namespace Agent
