#pragma once

#include <cstddef>

#include "Kes/Export.h"

namespace Kes {

// Memory for many small objects of few sizes, such as records. Objects of one size share slabs of 16 KiB; a
// slab that has become empty is given back, but for one a size. Sizes above `maxSlabSize` are left to the
// general allocator, and so is everything in a build with sanitizers, which have to see each object.
//
// Memory is aligned as `new` aligns it for the size. Several threads may use it once
// Kes::threadSafePtrsIs(true) was called.
inline constexpr std::size_t maxSlabSize = 256;

KES_EXPORT void* slabAllocate(std::size_t size);
// With the size of the allocation.
KES_EXPORT void slabFree(void* memory, std::size_t size) noexcept;
// For who does not know the size any more. Looks through all slabs.
KES_EXPORT void slabFreeUnsized(void* memory) noexcept;

}  // namespace Kes
