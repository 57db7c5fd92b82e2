// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "agent/query/Query.h"
#include "agent/query/RecordSet.h"

namespace Agent {

// Draws a window in text: a row a queue, the one that hurts most first, time across, the height of a column
// the longest backlog in it against the high threshold of the interface, where one is known, else against the
// longest of all. Where packets were dropped stands a "!".
void writeTimelineText(RecordSet const& records, TimeWindow const& window, Query const& query,
                       std::FILE* out);

}  // namespace Agent
