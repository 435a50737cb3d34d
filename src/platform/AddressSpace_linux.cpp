#include "platform/AddressSpace.h"

#include <sys/mman.h>

#include <cstdint>

namespace tvxcore::platform {

bool MappingsCanReachAbove(unsigned bits) noexcept {
  constexpr std::size_t kPage = 4096;
  const std::uintptr_t line = std::uintptr_t{1} << bits;
  void* const hint = reinterpret_cast<void*>(line << 4);
  void* const page =
      mmap(hint, kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (page == MAP_FAILED) return true;
  const bool above = reinterpret_cast<std::uintptr_t>(page) + kPage > line;
  munmap(page, kPage);
  return above;
}

}  // namespace tvxcore::platform
