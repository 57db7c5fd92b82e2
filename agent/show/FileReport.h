// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/show/PrintableOutput.h"
#include "agent/show/ShowClient.h"
#include "agent/show/ShowCommand.h"

namespace Agent {

// Answers a command from a saved history as the agent that saved it would have answered at that moment: its
// time is that of the report, and what `--last` counts back from. What only an agent can do is refused. Of a
// damaged file what stands before the damage is shown, and the answer ends as broken. Throws
// std::system_error when the file cannot be read.
AnswerEnd reportFromFile(std::string const& path, ShowCommand const& command, Output output);

}  // namespace Agent
