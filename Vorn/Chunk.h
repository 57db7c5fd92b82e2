// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Pylo/IntfId.h"
#include "Vorn/EntryQueue.h"
#include "Vorn/Export.h"

namespace Vorn {

// The unit of memory of the congestion logs: 500 slots for records (EntryQueue draws them) and the links to
// the chunks before and after it in one interface's log. At any moment a chunk belongs to one interface, or
// lies cleared in the recorder's shared pool.
//
// Links are counted, so linked neighbours keep each other alive: whoever takes a chunk out of a log breaks
// them (doClear, or the allocator when a chunk changes owner). Nothing links back by itself.
class VORN_EXPORT Chunk final : public Kes::PtrInterface, public EntryQueue {
 public:
  using Ptr = Kes::Ptr<Chunk>;
  using PtrConst = Kes::Ptr<Chunk const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  // A new, free chunk.
  static Ptr ChunkIs() { return Kes::makePtr<Chunk>(); }

  std::string_view fwkType() const override { return "Vorn::Chunk"; }

  // The older neighbour; null at the oldest end, and when free.
  Ptr const& prevChunk() const { return prevChunk_; }
  void prevChunkIs(Ptr const& prevChunk) { prevChunk_ = prevChunk; }
  // The newer neighbour; null at the newest end, and when free.
  Ptr const& nextChunk() const { return nextChunk_; }
  void nextChunkIs(Ptr const& nextChunk) { nextChunk_ = nextChunk; }
  // The interface that owns the chunk; empty when free.
  Pylo::IntfId const& intfId() const { return intfId_; }
  void intfIdIs(Pylo::IntfId const& intfId) { intfId_ = intfId; }

  // Empties the chunk for reuse: releases its records, both links and the owner. The head stays where it is.
  void doClear();

  Chunk() = default;

 protected:
  ~Chunk() override;

 private:
  VORN_LOCAL static void dropLinks(Ptr next, Ptr prev) noexcept;

  Ptr prevChunk_;
  Ptr nextChunk_;
  Pylo::IntfId intfId_;
};

static_assert(sizeof(Chunk) <= 4096, "a chunk stays within a page");

}  // namespace Vorn
