// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Config.h"

namespace Vorn {

Config::~Config() = default;

}  // namespace Vorn
