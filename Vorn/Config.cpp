#include "Vorn/Config.h"

namespace Vorn {

Config::~Config() = default;

}  // namespace Vorn
