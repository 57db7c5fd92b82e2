// SPDX-License-Identifier: Apache-2.0
#include "Kes/Ptr.h"

#include "Kes/internal/SlabBypass.h"

namespace Kes {

namespace detail {
constinit bool threadSafePtrs = false;
}  // namespace detail

void threadSafePtrsIs(bool on) {
  if (on && !threadSafePtrs()) slabBypass();
  detail::threadSafePtrs = on;
}

std::string_view PtrInterface::fwkType() const { return "Kes::PtrInterface"; }

}  // namespace Kes
