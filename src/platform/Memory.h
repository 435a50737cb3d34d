// Page and aligned memory from the operating system, for the allocator's
// largest chunks, its oversized requests and blocks made before it is ready.
#pragma once

#include <cstddef>

namespace tvxcore::platform {

// Anonymous read-write pages, zero-cost until touched; null on failure.
void* AllocatePages(std::size_t size) noexcept;

// Gives back pages from AllocatePages; `size` is the size that was asked for.
void FreePages(void* pointer, std::size_t size) noexcept;

// 16-byte aligned memory from the C heap; null on failure. Size 0 gives a
// distinct minimal block.
void* AlignedAllocate(std::size_t size) noexcept;

// Frees memory from AlignedAllocate; null is ignored.
void AlignedFree(void* pointer) noexcept;

}  // namespace tvxcore::platform
