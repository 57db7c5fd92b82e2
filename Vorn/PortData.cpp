// SPDX-License-Identifier: Apache-2.0
#include "Vorn/PortData.h"

#include "Kes/Exception.h"

namespace Vorn {

namespace {

template <class T>
T const& valid(T const& pointer) {
  if (!pointer) throw Kes::RangeException("null ValidPtr");
  return pointer;
}

}  // namespace

PortData::~PortData() = default;

void PortData::chunkEnq(Chunk::Ptr const& chunk) { chunk_.enq(chunk_.placeFor(valid(chunk))); }

PortData::ChunkNode const& PortData::newChunk(Kes::U32 key, Chunk::Ptr const& chunk) {
  return chunk_.insert(key, valid(chunk));
}

void PortData::chunkIs(Kes::U32 key, Chunk::Ptr const& chunk) {
  if (!chunk)
    chunkDel(key);
  else if (!chunk_.replace(key, chunk))
    newChunk(key, chunk);
}

Chunk::Ptr PortData::chunkDel(Kes::U32 key) { return chunk_.del(key); }

PortMetaData::Ptr PortData::newPortMetaData(PortMetaData::Ptr const& portMetaData) {
  PortMetaData::Ptr const held = valid(portMetaData);
  portMetaData_.put(held->identifier(), held);
  return held;
}

void PortData::portMetaDataIs(PortMetaData::Ptr const& portMetaData) {
  if (!portMetaData)
    throw Kes::RangeException(
        "null _portMetaData parameter to mutator for Vorn::PortData::portMetaData not allowed\"");
  newPortMetaData(portMetaData);
}

std::string PortData::checkInvariants() const {
  Kes::U32 nodes = 0;
  for (ChunkIterator i = chunkIterator(); i; ++i, ++nodes) {
    Chunk const& chunk = **i;
    if (chunk.intfId() != intfId_) return "a chunk names another owner";
    if (chunk.prevChunk() != i.older()) return "prevChunk is not the older neighbour";
    if (chunk.nextChunk() != i.newer()) return "nextChunk is not the newer neighbour";
    if (chunk.nextChunk() && chunk.entrys() != entriesPerChunk)
      return "a chunk that is not full has a newer one";
    if (!chunk.entryInvariantsHold()) return "a record stands outside of its queue";
  }
  if (nodes != chunk_.count()) return "the chunk count is off";
  for (auto const& [key, index] : entryIndex_) {
    if (index.isNull()) continue;
    Chunk const* const newest = chunkTail();
    if (newest == nullptr || !newest->entrySlots().contains(index.value()))
      return "an entry index points outside of the newest chunk";
  }
  return "";
}

}  // namespace Vorn
