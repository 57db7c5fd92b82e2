// The tracepoint vorn_bench:congestion, a record as LTTng keeps it. Included several times over by LTTng's
// own headers, so it has no #pragma once; only LttngTracepoint.cpp includes it.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER vorn_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "bench/LttngProvider.h"

#if !defined(VORN_BENCH_LTTNG_PROVIDER) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define VORN_BENCH_LTTNG_PROVIDER

#include <lttng/tracepoint.h>

#include <cstdint>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(
  vorn_bench, congestion,
  LTTNG_UST_TP_ARGS(char const*, intf, std::uint32_t, qLen, std::uint64_t, timestamp),
  LTTNG_UST_TP_FIELDS(
    lttng_ust_field_string(intf, intf)
    lttng_ust_field_integer(std::uint64_t, timestamp, timestamp)
    lttng_ust_field_integer(std::uint64_t, duration, 0)
    lttng_ust_field_integer(std::uint32_t, qLen, qLen)))
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
