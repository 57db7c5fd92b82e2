#include "bench/LttngTracepoint.h"

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "bench/LttngProvider.h"

namespace Bench {

void traceCongestion(char const* intf, Kes::U32 qLen, Kes::U64 timestamp) {
  lttng_ust_tracepoint(vorn_bench, congestion, intf, qLen, timestamp);
}

bool congestionTraced() { return lttng_ust_tracepoint_enabled(vorn_bench, congestion) != 0; }

}  // namespace Bench
