// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/Config.h"
#include "Vorn/HardwareStatus.h"
#include "agent/AgentOptions.h"

namespace Agent {

// The recorder's inputs that these options make: what the operator set, but for the thresholds of single
// interfaces, and what this host has by default.
Vorn::Config::Ptr configOf(AgentOptions const& options);
Vorn::Hardware::Status::Ptr hardwareStatusOf(AgentOptions const& options);
// The same for those that there are.
void configIs(Vorn::Config& config, AgentOptions const& options);
void hardwareStatusIs(Vorn::Hardware::Status& status, AgentOptions const& options);

}  // namespace Agent
