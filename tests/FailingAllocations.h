// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <new>

// Stands in for the allocation of the program, of which it is a part in one file only: lets memory run out at
// an allocation of the test's choice.
namespace {

constexpr std::size_t forever = ~std::size_t{0};
// How many allocations are left before one fails.
std::size_t allocationsLeft = forever;

void* allocated(std::size_t size, std::size_t alignment = 16) {
  if (allocationsLeft != forever && allocationsLeft-- == 0) {
    allocationsLeft = forever;
    throw std::bad_alloc();
  }
  void* const memory = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) { return allocated(size); }
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocated(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const&) noexcept try {
  return allocated(size);
} catch (std::bad_alloc const&) {
  return nullptr;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
