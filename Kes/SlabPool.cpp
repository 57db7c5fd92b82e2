#include "Kes/SlabPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

#include "Kes/Ptr.h"
#include "Kes/Types.h"

namespace Kes {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool standsAside = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool standsAside = true;
#else
constexpr bool standsAside = false;
#endif
#else
constexpr bool standsAside = false;
#endif

// A slab is as large as the multiples that it stands at, so an object's address tells its slab.
constexpr U32 slabSize = 65536;
// Empty slabs that are kept, of whatever size: where interfaces fill their chunks in step, slabs come and go.
constexpr U32 maxSpare = 8;

using detail::FreeList;

struct Slab;

// The slabs of one size: those with room, from the first of which objects are taken, and the full ones.
struct SizeClass {
  U32 size = 0;
  U32 perSlab = 0;
  U32 firstObject = 0;  // bytes from the slab's begin
  Slab* withRoom = nullptr;
  Slab* full = nullptr;
};

// The begin of a slab, in front of its objects. Behind it stands a bit for each of them, set while it is
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

constexpr U32 firstObjectBehind(U32 objects) {
  auto const end = static_cast<U32>(sizeof(Slab) + wordsFor(objects) * sizeof(U64));
  return (end + alignof(Slab) - 1) / alignof(Slab) * alignof(Slab);
}

void layOut(SizeClass& sizeClass, U32 size) {
  U32 objects = slabSize / size;
  while (firstObjectBehind(objects) + objects * size > slabSize) --objects;
  sizeClass.size = size;
  sizeClass.perSlab = objects;
  sizeClass.firstObject = firstObjectBehind(objects);
}

// Zero-initialised and never destroyed: objects may outlive every static of this library.
constinit std::array<SizeClass, detail::slabSizeIndex(maxSlabSize) + 1> classes{};
constinit std::mutex lock;

class LockWhereShared {
 public:
  LockWhereShared() : locked_(threadSafePtrs()) {
    if (locked_) lock.lock();
  }
  ~LockWhereShared() {
    if (locked_) lock.unlock();
  }
  LockWhereShared(LockWhereShared const&) = delete;
  LockWhereShared& operator=(LockWhereShared const&) = delete;

 private:
  bool const locked_;
};

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

// Empty slabs, linked by `next`.
constinit Slab* spare = nullptr;
constinit U32 spares = 0;

// Aligned memory from the system, whole pages of which nothing else takes any.
void* mapSlab() {
  constexpr int protection = PROT_READ | PROT_WRITE;
  void* const mapped = ::mmap(nullptr, 2 * slabSize, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
  auto* const begin = static_cast<std::byte*>(mapped);
  std::size_t const before = -reinterpret_cast<std::uintptr_t>(begin) % slabSize;
  if (before > 0) ::munmap(begin, before);
  ::munmap(begin + before + slabSize, slabSize - before);
  return begin + before;
}

void* spareOrMapped() {
  if (spare == nullptr) return mapSlab();
  --spares;
  return std::exchange(spare, spare->next);
}

void dispose(Slab* slab) {
  if (spares == maxSpare) {
    ::munmap(slab, slabSize);
    return;
  }
  ++spares;
  slab->next = std::exchange(spare, slab);
}

Slab* newSlab(SizeClass& owner) {
  auto* const slab = new (spareOrMapped()) Slab{&owner, nullptr, nullptr, 0, 0};
  U64* const bits = slab->freeBits();
  std::fill_n(bits, wordsFor(owner.perSlab), ~U64{0});
  if (U32 const rest = owner.perSlab % bitsPerWord; rest > 0)
    bits[owner.perSlab / bitsPerWord] = (U64{1} << rest) - 1;
  link(slab, owner.withRoom);
  return slab;
}

Slab* slabOf(void* object) {
  auto const address = reinterpret_cast<std::uintptr_t>(object);
  return reinterpret_cast<Slab*>(address & ~(std::uintptr_t{slabSize} - 1));
}

// Moves the lowest free objects of a slab into the list, as many as share a word, to be taken in ascending
// order: what is used in turns lies side by side.
void refill(FreeList& list, SizeClass& from) {
  Slab* const slab = from.withRoom != nullptr ? from.withRoom : newSlab(from);
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
    unlink(slab, from.withRoom);
    link(slab, from.full);
  }
}

void giveBack(void* object) {
  Slab* const slab = slabOf(object);
  SizeClass& owner = *slab->owner;
  if (slab->full()) [[unlikely]] {
    unlink(slab, owner.full);
    link(slab, owner.withRoom);
  }
  auto const index = static_cast<U32>(static_cast<std::byte*>(object) - slab->objects()) / owner.size;
  U32 const word = index / bitsPerWord;
  slab->freeBits()[word] |= U64{1} << index % bitsPerWord;
  slab->firstWord = std::min(slab->firstWord, word);
  bool const last = slab->previous == nullptr && slab->next == nullptr;
  if (--slab->used > 0 || last) return;
  unlink(slab, owner.withRoom);
  dispose(slab);
}

// Whether memory of unknown size is an object of a slab.
bool isSlabObject(void* memory) {
  Slab const* const wanted = slabOf(memory);
  for (SizeClass const& sizeClass : classes)
    for (Slab const* list : {sizeClass.withRoom, sizeClass.full})
      for (; list != nullptr; list = list->next)
        if (list == wanted) return true;
  return false;
}

}  // namespace

namespace detail {

constinit std::array<FreeList, slabSizeIndex(maxSlabSize) + 1> freeLists{};

void* slabAllocateOther(std::size_t size) {
  if (standsAside || size > maxSlabSize) return ::operator new(size);
  std::size_t const index = slabSizeIndex(std::max<std::size_t>(size, 1));
  LockWhereShared const guard;
  FreeList& list = freeLists[index];
  if (list.empty()) {
    SizeClass& sizeClass = classes[index];
    if (sizeClass.size == 0) {
      layOut(sizeClass, static_cast<U32>(index * slabSizeStep));
      list.limit = maxListed;
    }
    refill(list, sizeClass);
  }
  return list.take();
}

void slabFreeOther(void* memory, std::size_t size) noexcept {
  if (memory == nullptr) return;
  if (standsAside || size > maxSlabSize) return ::operator delete(memory);
  LockWhereShared const guard;
  FreeList& list = freeLists[slabSizeIndex(std::max<std::size_t>(size, 1))];
  if (list.full())
    giveBack(memory);
  else
    list.put(memory);
}

}  // namespace detail

void slabFreeUnsized(void* memory) noexcept {
  if (memory == nullptr) return;
  {
    LockWhereShared const guard;
    if (isSlabObject(memory)) return giveBack(memory);
  }
  ::operator delete(memory);
}

void slabTrim() noexcept {
  LockWhereShared const guard;
  for (FreeList& list : detail::freeLists)
    while (!list.empty()) giveBack(list.take());
}

}  // namespace Kes
