#pragma once

#include <optional>
#include <string>

#include "agent/show/ReportFilter.h"
#include "agent/show/ShowCommand.h"

namespace Agent {

// Asks the agent behind `socket` (blocking, connected) and hands the report to `output` as it arrives, in the
// command's form. The result is the agent's verdict, empty for a whole report; nothing when the connection
// ended without one, so that what came is only a part. Throws std::system_error when the agent does not
// answer at all.
std::optional<std::string> fetchReport(int socket, ShowCommand const& command, ReportFilter::Output output);

}  // namespace Agent
