#pragma once

#include <vector>

#include "Vorn/Export.h"
#include "Vorn/PortMetaData.h"

namespace Vorn {

// The congestion-start records of the current report, process-wide: congestions that began before the oldest
// record that their interface still holds. Every entry report empties and refills it, latest start first
// (oldest first for a comma-separated report); it keeps its records until the next one does.
VORN_EXPORT extern std::vector<PortMetaData::Ptr> startEntry;

}  // namespace Vorn
