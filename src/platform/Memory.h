// Page and aligned memory from the operating system, for the allocator's
// largest chunks, its oversized requests and blocks made before it is ready,
// and the process and thread events that its per-thread caches follow.
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

// Calls `handler(value)` on the calling thread when it ends, after the
// thread's C++ thread_local destructors; this holds for every thread, also
// those the library did not start, but not for a process that ends by exit()
// or by returning from main. The first call fixes `handler` for the process.
// A second call from the same thread replaces `value`; a null `value` stops
// the call for this thread. Returns false when the system refuses.
bool CallAtThreadExit(void (*handler)(void* value), void* value) noexcept;

// Runs `prepare` in the thread that calls fork() just before the process is
// copied, then `parent` in the parent and `child` in the new process. Returns
// false when the system refuses.
bool CallAroundFork(void (*prepare)(), void (*parent)(), void (*child)()) noexcept;

// The value of an environment variable, or null when it is not set.
const char* EnvironmentValue(const char* name) noexcept;

}  // namespace tvxcore::platform
