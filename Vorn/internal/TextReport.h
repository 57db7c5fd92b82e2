#pragma once

#include "Vorn/CommandOptions.h"
#include "Vorn/CongestionData.h"

namespace Vorn {

// Writes the text report of the ports whose mergeEntries is set and of startEntry: one line a record, latest
// first, within the options' limits. `reportTime` dates the report and is "now" for the age limit.
void writeTextReport(CongestionData& recorder, Kes::VoidPtr stream, CommandOptions const& options,
                     Kes::Seconds reportTime, Kes::String const& reportHeader, Kes::String const& footer);

}  // namespace Vorn
