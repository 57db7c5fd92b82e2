// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>

#include "Kes/Export.h"

namespace Kes {

// Memory for many small objects of few sizes, such as records. Objects of one size share slabs of 64 KiB; the
// memory of a slab that has become empty is given back, but for a few. Up to 4,096 freed objects of a size
// stand in a list and are handed out again before any other: each of them keeps its slab, which may be a slab
// of its own, until it is used or slabTrim is called. Beyond them a slab's lowest free objects come first, so
// objects that were made in turns lie side by side.
//
// Left to the general allocator: sizes above maxSlabSize; everything while Kes::threadSafePtrs() is on, since
// that one is made for threads; what the system gives no slab for; and everything in a build with sanitizers,
// which have to see each object. What was made before the switch was turned may be freed after it, by any
// thread, and the other way round: from then on each object that is freed is asked for its origin and goes
// straight back there, until the process ends.
//
// Memory is aligned as `new` aligns it for the size; objects of whole lines of cache (64 bytes) stand in
// lines of their own where they come from slabs. std::bad_alloc when there is none.
inline constexpr std::size_t maxSlabSize = 256;

KES_EXPORT void* slabAllocate(std::size_t size);
// `size` is that of the allocation.
KES_EXPORT void slabFree(void* memory, std::size_t size) noexcept;
// For callers that do not know the size any more.
KES_EXPORT void slabFreeUnsized(void* memory) noexcept;

// Returns the objects in the lists to their slabs: for callers that have just released many for good.
KES_EXPORT void slabTrim() noexcept;

// Base of classes whose objects come from slabs, theirs and those of all classes derived from them.
// Over-aligned classes and placement go their usual ways.
class SlabAllocated {
 public:
  static void* operator new(std::size_t size) { return slabAllocate(size); }
  static void operator delete(void* memory, std::size_t size) noexcept { slabFree(memory, size); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ::operator delete(memory, alignment);
  }
  static void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    try {
      return slabAllocate(size);
    } catch (std::bad_alloc const&) {
      return nullptr;
    }
  }
  static void operator delete(void* memory, std::nothrow_t const&) noexcept { slabFreeUnsized(memory); }
  static void* operator new(std::size_t size, std::align_val_t alignment,
                            std::nothrow_t const& tag) noexcept {
    return ::operator new(size, alignment, tag);
  }
  static void operator delete(void* memory, std::align_val_t alignment, std::nothrow_t const& tag) noexcept {
    ::operator delete(memory, alignment, tag);
  }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void*, void*) noexcept {}

 protected:
  SlabAllocated() = default;
  ~SlabAllocated() = default;
};

}  // namespace Kes
