#pragma once

#include "Kes/Types.h"

namespace Bench {

// Fires the tracepoint vorn_bench:congestion.
void traceCongestion(char const* intf, Kes::U32 qLen, Kes::U64 timestamp);

// Whether a session records it by now.
bool congestionTraced();

}  // namespace Bench
