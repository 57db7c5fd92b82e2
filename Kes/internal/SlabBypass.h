// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kes {

// From now on objects that are small enough for slabs may come from the general allocator: each that is freed
// is asked for its origin.
void slabBypass() noexcept;

}  // namespace Kes
