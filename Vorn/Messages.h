// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Log.h"
#include "Vorn/Export.h"

namespace Vorn {

// The feature's system-log messages, none of them rate-limited by the framework. The recorder itself logs
// QUEUEMONITOR_LENGTH_OVER_THRESHOLD only; the others are there for the drivers of the platform. Their order
// is that of construction; they live until the process ends.
VORN_EXPORT extern Kes::LogHandle QUEUEMONITOR_LENGTH_OVER_THRESHOLD;
VORN_EXPORT extern Kes::LogHandle QUEUEMONITOR_LENGTH_UNDER_THRESHOLD;
VORN_EXPORT extern Kes::LogHandle QUEUEMONITOR_LENGTH_UPDATE;
VORN_EXPORT extern Kes::LogHandle QUEUEMONITOR_HW_RESOURCE_FULL;
VORN_EXPORT extern Kes::LogHandle QUEUEMONITOR_UNEXPSEQNUM;

}  // namespace Vorn
