#include "Kes/Exception.h"

namespace Kes {

Exception::~Exception() = default;
RangeException::~RangeException() = default;

}  // namespace Kes
