#include "Vorn/Chunk.h"

namespace Vorn {

namespace {

// Drops a chain of chunks link by link. Only this end of each chunk is cut, and only while nobody else holds
// it, so that a chain of any length goes without recursion and a shared one stays whole.
void dropChain(Chunk::Ptr from, Chunk::Ptr const& (Chunk::*link)() const,
               void (Chunk::*linkIs)(Chunk::Ptr const&)) {
  while (from && from->ptrCount() == 1) {
    Chunk::Ptr next = ((*from).*link)();
    ((*from).*linkIs)(nullptr);
    from = std::move(next);
  }
}

}  // namespace

void Chunk::doClear() {
  entryDelAll();
  prevChunkIs(nullptr);
  nextChunkIs(nullptr);
  intfIdIs(Pylo::IntfId());
}

Chunk::~Chunk() {
  entryDelAll();
  dropChain(std::move(nextChunk_), &Chunk::nextChunk, &Chunk::nextChunkIs);
  dropChain(std::move(prevChunk_), &Chunk::prevChunk, &Chunk::prevChunkIs);
}

}  // namespace Vorn
