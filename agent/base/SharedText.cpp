// SPDX-License-Identifier: Apache-2.0
#include "agent/base/SharedText.h"

#include <sys/mman.h>

#include <algorithm>

#include "agent/base/FileDescriptor.h"

namespace Agent {

namespace {

void* sharedMemory(std::size_t size) {
  void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throwErrno("mmap");
  return memory;
}

}  // namespace

SharedText::SharedText() : page_(static_cast<Page*>(sharedMemory(sizeof(Page)))) {}

SharedText::~SharedText() { ::munmap(page_, sizeof(Page)); }

void SharedText::set(std::string_view text) noexcept { page_->size = text.copy(page_->text, most); }

// A child may have been killed while it wrote, or have written anything.
std::string SharedText::text() const { return {page_->text, std::min(page_->size, most)}; }

}  // namespace Agent
