// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// The framework's attribute types: fixed-width numbers, and the two untyped pointers that attributes and
// arguments may have.
namespace Kes {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

using VoidPtr = void*;
using CharPtrConst = char const*;

}  // namespace Kes
