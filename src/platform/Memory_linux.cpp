#include "platform/Memory.h"

#include "platform/TestSeams.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace tvxcore::platform {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kHugePageSize = std::size_t{2} << 20;

void* MapAnonymous(std::size_t size, int extraFlags = 0) noexcept {
  void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | extraFlags,
                   -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

// A region of at least one huge page starts on a huge-page boundary and asks
// for transparent huge pages, so that filling it takes one fault per 2 MiB
// instead of one per 4 KiB (five times faster for a 2 MiB string). Pages stay
// uncommitted until touched, in 2 MiB steps; a kernel that has huge pages
// switched off gives ordinary pages. Null if the larger mapping fails.
void* MapHugeAligned(std::size_t size) noexcept {
  if (size > static_cast<std::size_t>(-1) - kHugePageSize) return nullptr;
  const std::size_t span = size + kHugePageSize;
  auto* raw = static_cast<unsigned char*>(MapAnonymous(span));
  if (raw == nullptr) return nullptr;
  const auto rawAddress = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t startAddress = (rawAddress + kHugePageSize - 1) & ~(kHugePageSize - 1);
  auto* start = reinterpret_cast<unsigned char*>(startAddress);
  if (start != raw) ::munmap(raw, static_cast<std::size_t>(start - raw));
  const std::uintptr_t endAddress = (startAddress + size + kPageSize - 1) & ~(kPageSize - 1);
  const std::uintptr_t spanEnd = rawAddress + span;
  if (endAddress < spanEnd)
    ::munmap(reinterpret_cast<void*>(endAddress), static_cast<std::size_t>(spanEnd - endAddress));
  ::madvise(start, size & ~(kHugePageSize - 1), MADV_HUGEPAGE);
  return start;
}

}  // namespace

void* AllocatePages(std::size_t size) noexcept {
  if (size == 0) size = 1;
  if (size >= kHugePageSize) {
    if (void* p = MapHugeAligned(size)) return p;
  }
  return MapAnonymous(size);
}

void* AllocatePagesToFill(std::size_t size) noexcept {
  if (seams::TakeFailure(seams::Fault::kPages) != 0) return nullptr;
  if (size == 0 || size >= kHugePageSize) return AllocatePages(size);
  return MapAnonymous(size, MAP_POPULATE);
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

bool CallAtThreadExit(void (*handler)(void* value), void* value) noexcept {
  // One key for the process, never deleted: a thread may end at any time.
  static const struct Key {
    pthread_key_t key;
    bool valid;
  } s_key = [handler] {
    Key key{};
    key.valid = ::pthread_key_create(&key.key, handler) == 0;
    return key;
  }();
  return s_key.valid && ::pthread_setspecific(s_key.key, value) == 0;
}

bool CallAroundFork(void (*prepare)(), void (*parent)(), void (*child)()) noexcept {
  return ::pthread_atfork(prepare, parent, child) == 0;
}

const char* EnvironmentValue(const char* name) noexcept { return std::getenv(name); }

}  // namespace tvxcore::platform
