// Provisional heap: plain aligned allocation until the size-classed managers land.
#include "tvxcore/utility/SmallBlockAllocator.h"

#include <cstdlib>

namespace tvxcore::utility {

void* SmallBlockAllocator::Allocate(std::size_t size) {
  void* p = std::aligned_alloc(16, (size + 15) & ~std::size_t{15});
  if (!p && size) throw std::bad_alloc();
  return p ? p : std::aligned_alloc(16, 16);
}
void SmallBlockAllocator::Dispose(void* pointer, std::size_t) { std::free(pointer); }
std::size_t SmallBlockAllocator::GetActualAllocationSize(std::size_t size) { return size; }
bool SmallBlockAllocator::Metrics::GetSnapshot(Snapshot&) { return false; }

}  // namespace tvxcore::utility
