// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/probe/ControlGroups.h"
#include "agent/probe/FlowTable.h"
#include "agent/probe/Probe.h"
#include "agent/record/Flow.h"

namespace Agent {

// The largest flows of a table. One whose bytes may all be its error is none, unless it lost packets.
BurstFlows largestFlows(FlowTable const& table, Probe::Options const& options, ControlGroups& groups);

}  // namespace Agent
