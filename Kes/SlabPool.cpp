#include "Kes/SlabPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
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
constexpr std::size_t slabSize = 65536;
// Empty slabs that are kept, of whatever size: where interfaces fill their chunks in step, slabs come and go.
constexpr U32 maxSpare = 8;

using detail::FreeList;
using detail::FreeObject;

struct SizeClass;

struct alignas(64) Slab {
  SizeClass* owner;
  Slab* previous;  // in one of the owner's lists
  Slab* next;
  FreeObject* freed;
  std::byte* untouched;  // from here on objects have never been used
  std::byte* end;
  U32 used;

  bool full() const { return freed == nullptr && untouched == end; }
};

// The slabs of one size: those with room, from the first of which objects are taken, and the full ones.
struct SizeClass {
  std::size_t size = 0;
  Slab* withRoom = nullptr;
  Slab* full = nullptr;
};

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
  void* const memory = spareOrMapped();
  auto* const objects = static_cast<std::byte*>(memory) + sizeof(Slab);
  std::size_t const room = (slabSize - sizeof(Slab)) / owner.size * owner.size;
  auto* const slab = new (memory) Slab{&owner, nullptr, nullptr, nullptr, objects, objects + room, 0};
  link(slab, owner.withRoom);
  return slab;
}

Slab* slabOf(void* object) {
  auto const address = reinterpret_cast<std::uintptr_t>(object);
  return reinterpret_cast<Slab*>(address & ~(std::uintptr_t{slabSize} - 1));
}

void* take(SizeClass& from) {
  Slab* const slab = from.withRoom != nullptr ? from.withRoom : newSlab(from);
  void* object = slab->freed;
  if (object != nullptr) {
    slab->freed = slab->freed->next;
  } else {
    object = slab->untouched;
    slab->untouched += from.size;
  }
  ++slab->used;
  if (slab->full()) [[unlikely]] {
    unlink(slab, from.withRoom);
    link(slab, from.full);
  }
  return object;
}

void giveBack(void* object) {
  Slab* const slab = slabOf(object);
  SizeClass& owner = *slab->owner;
  if (slab->full()) [[unlikely]] {
    unlink(slab, owner.full);
    link(slab, owner.withRoom);
  }
  slab->freed = new (object) FreeObject{slab->freed};
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
  if (list.first != nullptr) return list.take();
  SizeClass& sizeClass = classes[index];
  if (sizeClass.size == 0) {
    sizeClass.size = index * slabSizeStep;
    list.room = maxListed;
  }
  return take(sizeClass);
}

void slabFreeOther(void* memory, std::size_t size) noexcept {
  if (memory == nullptr) return;
  if (standsAside || size > maxSlabSize) return ::operator delete(memory);
  LockWhereShared const guard;
  FreeList& list = freeLists[slabSizeIndex(std::max<std::size_t>(size, 1))];
  if (list.room > 0)
    list.put(memory);
  else
    giveBack(memory);
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
    while (list.first != nullptr) giveBack(list.take());
}

}  // namespace Kes
