#include "Kes/Ptr.h"

namespace Kes {

namespace detail {
constinit bool threadSafePtrs = false;
}  // namespace detail

void threadSafePtrsIs(bool on) { detail::threadSafePtrs = on; }

std::string_view PtrInterface::fwkType() const { return "Kes::PtrInterface"; }

}  // namespace Kes
