// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Trace.h"
#include "Vorn/Export.h"

namespace Vorn {

// The library's trace handle, "Vorn": one object in the process, there from before the first constructor
// runs. Errors are level 0; details are at levels 6 to 9. Inline, so that a trace that is off stays a load
// and a branch.
VORN_EXPORT inline Kes::TraceHandle& defaultTraceHandle() {
  static constinit Kes::TraceHandle handle("Vorn", /*allLevels=*/false);
  return handle;
}

}  // namespace Vorn

#define VORN_TRACE(level, expressions) KES_TRACE(::Vorn::defaultTraceHandle(), level, expressions)
