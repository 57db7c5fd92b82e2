#pragma once

#include <array>
#include <cstddef>
#include <new>
#include <utility>

#include "Kes/Export.h"
#include "Kes/Ptr.h"
#include "Kes/Types.h"

namespace Kes {

// Memory for many small objects of few sizes, such as records. Objects of one size share slabs of 64 KiB, and
// a slab that has become empty is given back, but for a few. Up to `maxListed` freed objects of a size stand
// in a list and are handed out again before any other: each of them keeps its slab, which may be a slab of
// its own, until it is used or slabTrim is called. Beyond them a slab's lowest free objects come first, so
// objects that were made in turns lie side by side. Sizes above `maxSlabSize` are left to the general
// allocator, and so is everything in a build with sanitizers, which have to see each object.
//
// Memory is aligned as `new` aligns it for the size; objects of whole lines of cache (64 bytes) stand in
// lines of their own. Several threads may use it once Kes::threadSafePtrsIs(true) was called.
inline constexpr std::size_t maxSlabSize = 256;
inline constexpr U32 maxListed = 4096;

namespace detail {

// A stack of free objects of one size. They are not touched: who takes one finds its memory on the way
// already, since those that come next are fetched ahead. It takes none before the first allocation of the
// size.
struct FreeList {
  static constexpr U32 ahead = 4;

  U32 count = 0;
  U32 limit = 0;
  // The first `ahead` are null, for fetching past the end.
  std::array<void*, ahead + maxListed> objects{};

  bool empty() const { return count == 0; }
  bool full() const { return count == limit; }
  void* take() {
    --count;
    __builtin_prefetch(objects[count], /*rw=*/1);
    return objects[ahead + count];
  }
  void put(void* object) { objects[ahead + count++] = object; }
};

inline constexpr std::size_t slabSizeStep = 8;
inline constexpr std::size_t slabSizeIndex(std::size_t size) {
  return (size + slabSizeStep - 1) / slabSizeStep;
}

KES_EXPORT extern std::array<FreeList, slabSizeIndex(maxSlabSize) + 1> freeLists;
KES_EXPORT void* slabAllocateOther(std::size_t size);
KES_EXPORT void slabFreeOther(void* memory, std::size_t size) noexcept;

}  // namespace detail

inline void* slabAllocate(std::size_t size) {
  if (size <= maxSlabSize && !threadSafePtrs()) [[likely]] {
    detail::FreeList& list = detail::freeLists[detail::slabSizeIndex(size)];
    if (!list.empty()) [[likely]]
      return list.take();
  }
  return detail::slabAllocateOther(size);
}

// With the size of the allocation.
inline void slabFree(void* memory, std::size_t size) noexcept {
  if (size <= maxSlabSize && !threadSafePtrs() && memory != nullptr) [[likely]] {
    detail::FreeList& list = detail::freeLists[detail::slabSizeIndex(size)];
    if (!list.full()) [[likely]]
      return list.put(memory);
  }
  detail::slabFreeOther(memory, size);
}

// For who does not know the size any more. Looks through all slabs.
KES_EXPORT void slabFreeUnsized(void* memory) noexcept;

// Empties the lists into their slabs, for who has just released many objects for good.
KES_EXPORT void slabTrim() noexcept;

}  // namespace Kes
