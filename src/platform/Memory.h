// Page and aligned memory from the operating system, for the allocator's
// largest chunks, its oversized requests and blocks made before it is ready.
#pragma once

#include <cstddef>

namespace tvxcore::platform {

// Anonymous read-write pages, zero-cost until touched; null on failure.
void* AllocatePages(std::size_t size) noexcept;

// Like AllocatePages, for a block its caller is about to fill: below one huge
// page (2 MiB) the pages are committed by the mapping call itself, which costs
// less than half of taking one fault per 4 KiB page later. Larger regions are
// left to huge pages as in AllocatePages.
void* AllocatePagesToFill(std::size_t size) noexcept;

// Gives back pages from AllocatePages or AllocatePagesToFill; `size` is the size that was asked
// for.
void FreePages(void* pointer, std::size_t size) noexcept;

// 16-byte aligned memory from the C heap; null on failure. Size 0 gives a
// distinct minimal block.
void* AlignedAllocate(std::size_t size) noexcept;

// Frees memory from AlignedAllocate; null is ignored.
void AlignedFree(void* pointer) noexcept;

}  // namespace tvxcore::platform
