// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Vorn {

// Whether `a` comes before `b` as people sort names: runs of digits by their number, everything else byte by
// byte; names that differ in leading zeros only by length.
bool naturallyBefore(std::string_view a, std::string_view b);

}  // namespace Vorn
