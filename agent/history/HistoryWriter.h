// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "Vorn/CongestionData.h"
#include "agent/burst/BurstLedger.h"

namespace Agent {

// Writes all that the recorder keeps, as its clock stands, in the format of HistoryFormat.h: the logs with
// their chunks, records and losses, the statistics of queues, the log of the sum, the order of the pool, the
// times of messages, and the counts; and what the ledger says that the bursts of these queues add up to. Left
// out are the cursors of reports, and free chunks, which hold nothing: the pool makes new ones where it needs
// them.
//
// The stream tells by its error flag whether it took all. Throws std::logic_error for a record that is not
// the agent's own, or a hole between records: nothing in an agent makes either.
void writeHistory(Vorn::CongestionData const& recorder, BurstLedger const& ledger, std::FILE* out);

}  // namespace Agent
