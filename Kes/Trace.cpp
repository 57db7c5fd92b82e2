// SPDX-License-Identifier: Apache-2.0
#include "Kes/Trace.h"

#include <cstdio>

namespace Kes {

namespace {

void writeToStderr(TraceHandle const& handle, U32 level, std::string_view line) {
  std::fprintf(stderr, "%s %u %.*s\n", handle.name(), level, static_cast<int>(line.size()), line.data());
}

constinit std::atomic<TraceSink> currentSink = writeToStderr;

}  // namespace

void TraceHandle::levelIs(U32 level, bool on) {
  if (level > maxLevel) return;
  if (on)
    levels_.fetch_or(1U << level, std::memory_order_relaxed);
  else
    levels_.fetch_and(~(1U << level), std::memory_order_relaxed);
}

void TraceHandle::write(U32 level, std::string_view line) const { currentSink.load()(*this, level, line); }

void traceSinkIs(TraceSink sink) { currentSink = sink != nullptr ? sink : writeToStderr; }

}  // namespace Kes
