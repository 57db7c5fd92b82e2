// SPDX-License-Identifier: Apache-2.0
#include "Kes/Exception.h"

namespace Kes {

Exception::~Exception() = default;
RangeException::~RangeException() = default;

}  // namespace Kes
