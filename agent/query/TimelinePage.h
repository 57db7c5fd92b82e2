// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "agent/query/Query.h"
#include "agent/query/RecordSet.h"

namespace Agent {

// Writes a window as one HTML page that needs nothing else: what is in query/page, with the records as JSON
// in its middle. The records are oldest first, `window` has both its ends (RecordSet::span), and `now` is
// when the report is made, which is how far bursts are drawn that last.
//
// It has a row a queue, the one that hurts most first, or as many of them as the query wants. The page names
// a record's columns, and formats and explains their values, as the table in RecordColumns.h tells.
void writeTimelinePage(RecordSet const& records, TimeWindow const& window, Query const& query, Kes::U64 now,
                       std::FILE* out);

}  // namespace Agent
