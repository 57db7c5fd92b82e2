// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "Vorn/CongestionData.h"

namespace Agent {

// A request that changes the recorder, by name:
//
//   set PATH VALUE
//   call PATH(NAME=VALUE, ...)
//
// Names are given in full, values as text (ObjectPath.h). What may be set and called is told by
// SafeChanges.h.
bool isObjectChange(std::string_view request);

// Does it; the answer tells the new value, or the result. ObjectError, with nothing changed.
std::string changeObject(Vorn::CongestionData::Ptr const& recorder, std::string_view request);

}  // namespace Agent
