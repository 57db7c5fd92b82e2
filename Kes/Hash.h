// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "Kes/Types.h"

namespace Kes {

// 64-bit FNV-1a over the bytes. The same in every process, so it may name things in logs.
constexpr U64 hashBytes(std::string_view bytes) {
  U64 hash = 0xcbf29ce484222325U;
  for (char const c : bytes) hash = (hash ^ static_cast<U8>(c)) * 0x100000001b3U;
  return hash;
}

// Spreads the bits of a number over the upper half of a word. Whoever uses the lower one folds the upper into
// it, as HashMap does.
constexpr U64 hashNumber(U64 number) { return number * 0x9e3779b97f4a7c15U; }

}  // namespace Kes
