// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Agent {

// How the queues of this machine may be seen.
enum class Means : char {
  automatic,  // by a probe in the kernel, to which every packet shows, or else by looks at their counters
  exact,      // by the probe, or not at all
  poll        // by looks
};

}  // namespace Agent
