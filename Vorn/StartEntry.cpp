#include "Vorn/StartEntry.h"

namespace Vorn {

std::vector<PortMetaData::Ptr>& startEntry = *new std::vector<PortMetaData::Ptr>;

}  // namespace Vorn
