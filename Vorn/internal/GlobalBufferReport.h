#pragma once

#include "Vorn/CongestionData.h"

namespace Vorn {

// Ends the merge of the global buffer's records into an entry report, so that the next report starts afresh.
// A report that failed does not get here: the next one continues where it stopped.
void endGlobalMerge(CongestionData& recorder);

}  // namespace Vorn
