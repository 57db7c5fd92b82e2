// SPDX-License-Identifier: Apache-2.0
#include "Vorn/HardwareStatus.h"

namespace Vorn::Hardware {

Status::~Status() = default;

}  // namespace Vorn::Hardware
