// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Export.h"

namespace Kes {

// Time in seconds.
using Seconds = double;

// Monotonic: seconds since some fixed moment, never set back.
KES_EXPORT Seconds now();

// Wall clock: seconds since 1970-01-01 00:00 UTC; whoever sets the clock moves it.
KES_EXPORT Seconds utcNow();

}  // namespace Kes
