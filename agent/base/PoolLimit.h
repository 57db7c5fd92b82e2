// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace Agent {

// The most shared chunks that an operator may ask for. More would be no bound: 32 TiB of chunks.
inline constexpr std::uint32_t maxPoolChunks = 1U << 24;

}  // namespace Agent
