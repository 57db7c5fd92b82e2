// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "Vorn/Export.h"
#include "Vorn/PortMetaData.h"

namespace Vorn {

// The congestion-start records of the latest entry report, process-wide: congestions that began before the
// oldest record that their interface still holds. Every command for an entry report empties and refills it,
// latest start first (oldest first for a comma-separated report); doDumpEntriesInCSVFormat called by itself
// takes it as it stands. It keeps the records until the next such command, or until a recorder is destroyed:
// the host's objects do not outlive its recorder here. The list itself lives as long as the process.
VORN_EXPORT extern std::vector<PortMetaData::Ptr>& startEntry;

}  // namespace Vorn
