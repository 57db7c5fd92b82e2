// SPDX-License-Identifier: Apache-2.0
#include "Vorn/StartEntry.h"

namespace Vorn {

std::vector<PortMetaData::Ptr>& startEntry = *new std::vector<PortMetaData::Ptr>;

}  // namespace Vorn
