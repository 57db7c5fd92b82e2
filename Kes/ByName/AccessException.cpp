#include "Kes/ByName/AccessException.h"

namespace Kes {

AccessException::~AccessException() = default;

}  // namespace Kes
