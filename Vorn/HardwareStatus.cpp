#include "Vorn/HardwareStatus.h"

namespace Vorn::Hardware {

Status::~Status() = default;

}  // namespace Vorn::Hardware
