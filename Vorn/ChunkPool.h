// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/RingQueue.h"
#include "Kes/Types.h"
#include "Vorn/Chunk.h"
#include "Vorn/Export.h"
#include "Vorn/PortData.h"

namespace Vorn {

// Where chunks come from: the pool of a recorder's shared chunks, which bounds its memory. An interface's
// first chunk is its own for life and never in the pool. Further ones are new while the pool holds fewer than
// its limit; from then on the one that was handed out longest ago is taken from whichever interface holds it,
// with the oldest part of that interface's history.
//
// Part of the recorder (CongestionData), whose collection `chunkArray` is the queue.
class VORN_EXPORT ChunkPool {
 public:
  using Queue = Kes::RingQueue<Chunk::Ptr>;

  static constexpr Kes::U32 defaultLimit = 200;

  // The shared chunks, the one handed out longest ago first, each under a position that it keeps.
  Queue const& queue() const { return queue_; }
  Queue& queue() { return queue_; }

  // Appends a chunk to the queue; RangeException "null ValidPtr" for null.
  void enq(Chunk::Ptr const& chunk);
  // Stores a chunk at a position of the queue; null deletes.
  void put(Kes::U32 position, Chunk::Ptr const& chunk);

  // How many chunks the queue may hold.
  Kes::U32 limit() const { return limit_; }
  void limitIs(Kes::U32 limit) { limit_ = limit; }

  // How often a chunk was taken from a log, the requester's own among them. What it held is told by that
  // log's PortData::loss.
  Kes::U64 steals() const { return steals_; }
  void stealsIs(Kes::U64 steals) { steals_ = steals; }

  // Gives an interface's log, which is one of `ports`, a fresh, empty chunk as its newest, and clears its
  // entry-key index. Never null; an assertion when a shared chunk is needed and the limit is 0. What can
  // fail, for lack of memory or of keys ("linkqueue index space full"), fails before anything has changed.
  // The records of a chunk that was taken are released last: that runs the host's code, which may do anything
  // to logs and pool. What the owner has lost is counted when they are gone.
  Chunk::Ptr allocate(PortDataMap const& ports, PortData& port);

 private:
  VORN_LOCAL PortData::Ptr takeFromOwner(PortDataMap const& ports, Chunk::Ptr const& chunk,
                                         PortData const& requester);

  Queue queue_;
  Kes::U32 limit_ = defaultLimit;
  Kes::U64 steals_ = 0;
};

}  // namespace Vorn
