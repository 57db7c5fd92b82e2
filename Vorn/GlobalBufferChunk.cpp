#include "Vorn/GlobalBufferChunk.h"

namespace Vorn {

GlobalBufferChunk::~GlobalBufferChunk() { entryDelAll(); }

}  // namespace Vorn
