// SPDX-License-Identifier: Apache-2.0
#include "Kes/SlabPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>

#include "Kes/Ptr.h"
#include "Kes/Types.h"
#include "Kes/internal/LockIfThreaded.h"
#include "Kes/internal/SlabBypass.h"

// From the system come arenas of some MiB, cut into slabs; a slab holds objects of one size; an object that
// is freed goes to the list of its size, or back to its slab.

namespace Kes {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bypass = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool bypass = true;
#else
constexpr bool bypass = false;
#endif
#else
constexpr bool bypass = false;
#endif

// Slabs stand at multiples of their size, so an object's address tells its slab.
constexpr U32 slabSize = 65536;
// Empty slabs that are kept, of whatever size: where interfaces fill their chunks in step, slabs come and go.
constexpr U32 maxSpare = 8;
constexpr U32 maxListed = 4096;

constexpr std::size_t sizeStep = 8;
constexpr std::size_t sizeIndex(std::size_t size) { return (size + sizeStep - 1) / sizeStep; }
constexpr std::size_t sizeCount = sizeIndex(maxSlabSize) + 1;

// A stack of free objects of one size. It does not read or write them; the memory of those that will be taken
// next is fetched ahead. It takes none, being full, before the first allocation of the size, and for good
// once objects may have come from the general allocator.
struct FreeList {
  static constexpr U32 ahead = 4;

  void** top = nullptr;  // behind the last object
  void** bottom = nullptr;
  void** limit = nullptr;

  bool empty() const { return top == bottom; }
  bool full() const { return top >= limit; }
  void* take() {
    --top;
    __builtin_prefetch(*(top - ahead), /*rw=*/1);
    return *top;
  }
  void put(void* object) { *top++ = object; }
};

// A list's places. The first are null, for fetching past the bottom.
using FreePlaces = std::array<void*, FreeList::ahead + maxListed>;

struct Slab;

// The slabs of one size: those with room, from the first of which objects are taken, and the full ones.
struct SizeClass {
  U32 size = 0;
  U32 reciprocal = 0;  // of the size, in units of 2^-32, rounded up
  U32 perSlab = 0;
  U32 firstObject = 0;  // bytes from the slab's begin
  Slab* partial = nullptr;
  Slab* full = nullptr;
};

// The begin of a slab, in front of its objects. It is followed by a bit for each of them, set while it is
// free: an object that was freed long ago is far away, and is not read before it is used again.
struct alignas(64) Slab {
  SizeClass* owner;
  Slab* previous;  // in one of the owner's lists
  Slab* next;
  U32 used;
  U32 firstWord;  // below this word no object is free

  U64* freeBits() { return reinterpret_cast<U64*>(this + 1); }
  std::byte* objects() { return reinterpret_cast<std::byte*>(this) + owner->firstObject; }
  bool full() const { return used == owner->perSlab; }
};

constexpr U32 bitsPerWord = 64;
constexpr U32 wordsFor(U32 objects) { return (objects + bitsPerWord - 1) / bitsPerWord; }

constexpr U32 firstObjectAfter(U32 objects) {
  auto const end = static_cast<U32>(sizeof(Slab) + wordsFor(objects) * sizeof(U64));
  return (end + alignof(Slab) - 1) / alignof(Slab) * alignof(Slab);
}

void layOut(SizeClass& sizeClass, U32 size) {
  U32 objects = slabSize / size;
  while (firstObjectAfter(objects) + objects * size > slabSize) --objects;
  sizeClass.size = size;
  sizeClass.reciprocal = static_cast<U32>((U64{1} << 32) / size + 1);
  sizeClass.perSlab = objects;
  sizeClass.firstObject = firstObjectAfter(objects);
}

// One mapping, cut into slabs and never unmapped: address space is plenty, mappings are few. Each is twice as
// large as the one before, up to a limit, so their number stays small. Slabs whose memory was given back are
// linked by their numbers, which stand in the arena's first slab.
struct Arena {
  static constexpr std::size_t smallest = std::size_t{4} << 20;
  static constexpr std::size_t largest = std::size_t{1} << 30;
  static constexpr U32 none = ~U32{0};

  std::byte* begin = nullptr;
  U32 slabs = 0;
  U32 used = 0;  // slabs that were ever handed out; the first one is the arena's own
  U32 returned = none;

  bool contains(void const* memory) const {
    return memory >= begin && memory < begin + std::size_t{slabs} * slabSize;
  }
  U32& nextReturned(U32 slab) { return reinterpret_cast<U32*>(begin)[slab]; }
  void* slab(U32 number) const { return begin + std::size_t{number} * slabSize; }

  // Null when all are in use.
  void* take() {
    if (returned != none) return slab(std::exchange(returned, nextReturned(returned)));
    return used < slabs ? slab(used++) : nullptr;
  }
  void returnSlab(void* memory) {
    ::madvise(memory, slabSize, MADV_DONTNEED);
    auto const number = static_cast<U32>((static_cast<std::byte*>(memory) - begin) / slabSize);
    nextReturned(number) = std::exchange(returned, number);
  }
};
static_assert(Arena::largest / slabSize * sizeof(U32) <= slabSize, "the numbers of all slabs fit into one");

// Constant-initialised and never destroyed: objects may outlive every static of this library. One thread uses
// all of it, or several under the guard. Only the arenas, the ends of the lists and `mixed` are read without
// it: they do not change while there are threads.
constinit std::array<FreeList, sizeCount> freeLists{};
constinit std::array<FreePlaces, sizeCount> freePlaces{};
constinit std::array<SizeClass, sizeCount> classes{};
constinit std::array<Arena, 64> arenas{};
constinit U32 arenaCount = 0;
// Empty slabs, linked by `next`.
constinit Slab* spare = nullptr;
constinit U32 spares = 0;
// Whether objects that are small enough for slabs may have come from the general allocator.
constinit bool mixed = false;

void link(Slab* slab, Slab*& list) {
  slab->previous = nullptr;
  slab->next = list;
  if (list != nullptr) list->previous = slab;
  list = slab;
}

void unlink(Slab* slab, Slab*& list) {
  (slab->previous != nullptr ? slab->previous->next : list) = slab->next;
  if (slab->next != nullptr) slab->next->previous = slab->previous;
}

Arena* arenaOf(void const* memory) {
  for (U32 i = 0; i < arenaCount; ++i)
    if (arenas[i].contains(memory)) return &arenas[i];
  return nullptr;
}

// Null when there are as many as can be, or the system gives no memory.
Arena* newArena() {
  if (arenaCount == arenas.size()) return nullptr;
  std::size_t size = std::min(Arena::smallest << std::min(arenaCount, 32U), Arena::largest);
  for (; size >= Arena::smallest; size /= 2) {
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    void* const mapped = ::mmap(nullptr, size + slabSize, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (mapped == MAP_FAILED) continue;
    std::size_t const before = -reinterpret_cast<std::uintptr_t>(mapped) % slabSize;
    arenas[arenaCount] = {static_cast<std::byte*>(mapped) + before, static_cast<U32>(size / slabSize), 1};
    return &arenas[arenaCount++];
  }
  return nullptr;
}

void* takeSlab() {
  if (spare != nullptr) {
    --spares;
    return std::exchange(spare, spare->next);
  }
  for (U32 i = arenaCount; i-- > 0;)
    if (void* const slab = arenas[i].take()) return slab;
  Arena* const arena = newArena();
  return arena != nullptr ? arena->take() : nullptr;
}

void dispose(Slab* slab) {
  if (spares == maxSpare) return arenaOf(slab)->returnSlab(slab);
  ++spares;
  slab->next = std::exchange(spare, slab);
}

// Null when the system gives no memory.
Slab* newSlab(SizeClass& owner) {
  void* const memory = takeSlab();
  if (memory == nullptr) return nullptr;
  auto* const slab = new (memory) Slab{&owner, nullptr, nullptr, 0, 0};
  U64* const bits = slab->freeBits();
  std::fill_n(bits, wordsFor(owner.perSlab), ~U64{0});
  if (U32 const rest = owner.perSlab % bitsPerWord; rest > 0)
    bits[owner.perSlab / bitsPerWord] = (U64{1} << rest) - 1;
  link(slab, owner.partial);
  return slab;
}

Slab* slabOf(void* object) {
  auto const address = reinterpret_cast<std::uintptr_t>(object);
  return reinterpret_cast<Slab*>(address & ~(std::uintptr_t{slabSize} - 1));
}

// Moves the lowest free objects of a slab into the list, as many as share a word, to be taken in ascending
// order: what is used in turns lies side by side. Moves none when there is no memory.
void refill(FreeList& list, SizeClass& from) {
  Slab* const slab = from.partial != nullptr ? from.partial : newSlab(from);
  if (slab == nullptr) return;
  while (slab->freeBits()[slab->firstWord] == 0) ++slab->firstWord;
  U64& bits = slab->freeBits()[slab->firstWord];
  slab->used += static_cast<U32>(std::popcount(bits));
  std::byte* const objects = slab->objects() + slab->firstWord * bitsPerWord * from.size;
  while (bits != 0) {
    U32 const highest = bitsPerWord - 1 - static_cast<U32>(std::countl_zero(bits));
    list.put(objects + highest * from.size);
    bits ^= U64{1} << highest;
  }
  if (slab->full()) {
    unlink(slab, from.partial);
    link(slab, from.full);
  }
}

void returnToSlab(void* object) {
  Slab* const slab = slabOf(object);
  SizeClass& owner = *slab->owner;
  if (slab->full()) [[unlikely]] {
    unlink(slab, owner.full);
    link(slab, owner.partial);
  }
  // Exact for every object of a slab, and faster than a division.
  auto const offset = static_cast<U64>(static_cast<std::byte*>(object) - slab->objects());
  auto const index = static_cast<U32>(offset * owner.reciprocal >> 32);
  U32 const word = index / bitsPerWord;
  slab->freeBits()[word] |= U64{1} << index % bitsPerWord;
  slab->firstWord = std::min(slab->firstWord, word);
  bool const last = slab->previous == nullptr && slab->next == nullptr;
  if (--slab->used > 0 || last) return;
  unlink(slab, owner.partial);
  dispose(slab);
}

void prepare(std::size_t index) {
  FreeList& list = freeLists[index];
  layOut(classes[index], static_cast<U32>(index * sizeStep));
  list.top = list.bottom = freePlaces[index].data() + FreeList::ahead;
  list.limit = mixed ? list.bottom : list.bottom + maxListed;
}

[[gnu::noinline, gnu::cold]] void* allocateSlow(std::size_t size) {
  if (!bypass && size <= maxSlabSize && !threadSafePtrs()) {
    std::size_t const index = sizeIndex(std::max<std::size_t>(size, 1));
    FreeList& list = freeLists[index];
    if (classes[index].size == 0) prepare(index);
    if (list.empty()) refill(list, classes[index]);
    if (!list.empty()) return list.take();
    slabBypass();
  }
  return ::operator new(size);
}

[[gnu::noinline, gnu::cold]] void freeOfAnyOrigin(void* memory) noexcept {
  if (memory == nullptr) return;
  if (arenaOf(memory) == nullptr) return ::operator delete(memory);
  LockIfThreaded const guard;
  returnToSlab(memory);
}

}  // namespace

void* slabAllocate(std::size_t size) {
  if (size <= maxSlabSize) [[likely]] {
    FreeList& list = freeLists[sizeIndex(size)];
    if (!list.empty()) [[likely]]
      return list.take();
  }
  return allocateSlow(size);
}

void slabFree(void* memory, std::size_t size) noexcept {
  if (size <= maxSlabSize && memory != nullptr) [[likely]] {
    FreeList& list = freeLists[sizeIndex(size)];
    if (!list.full()) [[likely]]
      return list.put(memory);
    if (!bypass && !mixed) return returnToSlab(memory);
  }
  freeOfAnyOrigin(memory);
}

void slabFreeUnsized(void* memory) noexcept { freeOfAnyOrigin(memory); }

void slabTrim() noexcept {
  LockIfThreaded const guard;
  for (FreeList& list : freeLists)
    while (!list.empty()) returnToSlab(list.take());
}

void slabBypass() noexcept {
  slabTrim();
  mixed = true;
  for (FreeList& list : freeLists) list.limit = list.bottom;
}

}  // namespace Kes
