// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "Vorn/Clock.h"
#include "agent/query/RecordSet.h"

namespace Agent {

// Writes records as a Perfetto trace, which ui.perfetto.dev and trace processors open. Below a track "vorn:
// queue congestion" each queue has a track, the one that hurts most first, with a slice for each burst, and a
// counter of its peaks. A slice's arguments are the figures of its record, named as in RecordColumns.h. A
// slice of a burst that lasts has no end, and none lasts longer than to the beginning of the next one of its
// queue (wall clocks are set back).
//
// Times are those of the real-time clock. `clock` is the one that the records were told by, of this machine:
// its reading stands in the trace beside those of the monotonic and the boot-time clock, so that the bursts
// stand beside what the kernel traced at the same time. Without one (null: the records are of another
// machine, or of a boot that is over) real time is the time of the trace.
//
// `window` has both its ends (RecordSet::span); the records may be in any order.
void writePerfettoTrace(RecordSet const& records, TimeWindow const& window, Vorn::Clock const* clock,
                        std::FILE* out);

}  // namespace Agent
