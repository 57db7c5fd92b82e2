// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/AccessException.h"

namespace Kes {

AccessException::~AccessException() = default;

}  // namespace Kes
