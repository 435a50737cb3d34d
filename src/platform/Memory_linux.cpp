#include "platform/Memory.h"

#include <sys/mman.h>

#include <cstdlib>

namespace tvxcore::platform {

void* AllocatePages(std::size_t size) noexcept {
  if (size == 0) size = 1;
  void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

void FreePages(void* pointer, std::size_t size) noexcept {
  if (pointer == nullptr) return;
  ::munmap(pointer, size == 0 ? 1 : size);
}

void* AlignedAllocate(std::size_t size) noexcept {
  // aligned_alloc wants a multiple of the alignment.
  if (size > static_cast<std::size_t>(-1) - 15) return nullptr;
  std::size_t rounded = size == 0 ? 16 : (size + 15) & ~std::size_t{15};
  return std::aligned_alloc(16, rounded);
}

void AlignedFree(void* pointer) noexcept { std::free(pointer); }

}  // namespace tvxcore::platform
