// SPDX-License-Identifier: Apache-2.0
#include "Vorn/GlobalBufferChunk.h"

namespace Vorn {

GlobalBufferChunk::~GlobalBufferChunk() { entryDelAll(); }

}  // namespace Vorn
