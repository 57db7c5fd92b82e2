// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Chunk.h"

namespace Vorn {

void Chunk::doClear() {
  // A neighbour's link, or the chunk's own, may be all that holds it.
  Ptr const self(this);
  entryDelAll();
  prevChunkIs(nullptr);
  nextChunkIs(nullptr);
  intfIdIs(Pylo::IntfId());
}

Chunk::~Chunk() {
  if (entrys() != 0) entryDelAll();
  dropLinks(std::move(nextChunk_), std::move(prevChunk_));
}

// Drops two links, and destroys the chunks that only these links keep alive, and those that only they keep
// alive in turn: without recursion, since a chain may be long. Chunks that are to be destroyed are listed
// through their nextChunk; the chunk that stood there was followed first. A chunk that somebody else holds
// stays as it is.
void Chunk::dropLinks(Ptr next, Ptr prev) noexcept {
  Ptr list;
  auto const put = [&list](Ptr chunk) {
    while (chunk && chunk->ptrCount() == 1) {
      Ptr following = std::move(chunk->nextChunk_);
      chunk->nextChunk_ = std::move(list);
      list = std::move(chunk);
      chunk = std::move(following);
    }
  };
  put(std::move(next));
  put(std::move(prev));
  while (list) {
    Ptr chunk = std::move(list);
    list = std::move(chunk->nextChunk_);
    Ptr older = std::move(chunk->prevChunk_);
    chunk = nullptr;
    put(std::move(older));
  }
}

}  // namespace Vorn
