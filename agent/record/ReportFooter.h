// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/String.h"
#include "Vorn/CommandOptions.h"
#include "Vorn/CongestionData.h"
#include "agent/record/InterfaceHistory.h"

namespace Agent {

// What stands below the report that `options` ask for. A text report of interfaces' records says there where
// the history that it was asked for has holes: which interfaces have lost records to the pool, how many, and
// since when they have lost none. It is silent of what lies outside of the time that was asked for, and
// behind the last of a limited number of lines. Nothing stands below any other report.
//
// Throws std::regex_error for a bad interface pattern, as the report does.
Kes::String footerFor(Vorn::CommandOptions const& options, Vorn::CongestionData const& recorder);

// The same of the interfaces whose history has such holes; nothing for none.
std::string holesText(std::vector<InterfaceHistory> const& holes);

}  // namespace Agent
