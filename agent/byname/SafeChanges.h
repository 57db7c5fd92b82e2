// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Kes/String.h"
#include "Vorn/CongestionData.h"
#include "agent/byname/ObjectNames.h"

// What operators may change while the agent runs: whatever is safe for all that may happen later. The library
// itself refuses nothing by name that C++ allows.
namespace Agent {

// Why an attribute must not be set to a value, or called; empty where it may. What the list does not name is
// refused. A type that derives from a listed one is judged as that one.
std::string refusalOf(Vorn::CongestionData const& recorder, DeclaredAttribute const& declared,
                      Kes::String const& value);

}  // namespace Agent
