// The general heap of the library: a table of size-classed managers for
// requests up to 8192 bytes, pages from the system above that.
#include "tvxcore/utility/SmallBlockAllocator.h"

#include <atomic>
#include <new>
#include <utility>

#include "platform/Memory.h"
#include "utility/internal/SizeClasses.h"

namespace tvxcore::utility {
namespace {

using internal::kSizeClasses;

// std::bad_alloc with the library's own text.
class BadAllocation : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "bad allocation"; }
};

constexpr int kNotBuilt = 0;
constexpr int kBeingBuilt = 1;
constexpr int kReady = 2;

constexpr std::size_t k4160 = 4160;
constexpr std::size_t k66624 = 66624;

std::atomic<int> g_state{kNotBuilt};

// Entry s is the manager for a request of s bytes. Written once before the
// state becomes ready, read only after.
AllocatorInterface* g_table[kLargestTableSize + 1];
AllocatorInterface* g_manager4160 = nullptr;
AllocatorInterface* g_manager66624 = nullptr;

template <std::size_t... kIndex>
void BuildManagers(std::index_sequence<kIndex...>) {
  AllocatorInterface* managers[] = {&internal::ManagerAt<kIndex>()...};  // in ascending order
  std::size_t size = 0;
  for (std::size_t i = 0; i < internal::kSizeClassCount; ++i) {
    const std::size_t blockSize = kSizeClasses[i].blockSize;
    if (blockSize == k4160) {
      g_manager4160 = managers[i];
      continue;
    }
    if (blockSize == k66624) {
      g_manager66624 = managers[i];
      continue;
    }
    for (; size <= blockSize && size <= kLargestTableSize; ++size) g_table[size] = managers[i];
  }
}

// Whether the managers may be used. The first caller builds them; any caller
// that finds them being built (the builder included) gets false at once and
// goes around the managers.
bool BecomeReady() {
  int state = g_state.load(std::memory_order_acquire);
  if (state == kReady) return true;
  if (state != kNotBuilt ||
      !g_state.compare_exchange_strong(state, kBeingBuilt, std::memory_order_acq_rel))
    return false;
  BuildManagers(std::make_index_sequence<internal::kSizeClassCount>());
  g_state.store(kReady, std::memory_order_release);
  return true;
}

inline bool IsReady() { return g_state.load(std::memory_order_acquire) == kReady || BecomeReady(); }

inline AllocatorInterface* ManagerForRequest(std::size_t size) {
  return size == k4160 ? g_manager4160 : g_table[size];
}

void* AllocateBeforeReady(std::size_t size) {
  void* p =
      size < kLargestTableSize ? platform::AlignedAllocate(size) : platform::AllocatePages(size);
  if (p == nullptr) throw BadAllocation();
  return p;
}

void ReleaseOutsideManagers(void* pointer, std::size_t size) {
  if (size < kLargestTableSize)
    platform::AlignedFree(pointer);
  else
    platform::FreePages(pointer, size);
}

}  // namespace

namespace internal {
int ExchangeInitialisationStateForTesting(int state) {
  IsReady();
  return g_state.exchange(state, std::memory_order_acq_rel);
}
}  // namespace internal

void* SmallBlockAllocator::Allocate(std::size_t size) {
  if (!IsReady()) return AllocateBeforeReady(size);
  void* p;
  if (size <= kLargestTableSize) {
    p = ManagerForRequest(size)->Allocate(size);
  } else if (size == k66624) {
    p = g_manager66624->Allocate(size);
  } else {
    // Oversized requests and the top chunks (932800) are never pooled. An
    // oversized block is wanted for its contents (a long string, a file's
    // bytes), so its pages are committed at once; a top chunk is carved into
    // 66624-byte blocks one at a time and keeps its pages until they are used.
    p = size == kLargestChunkSize ? platform::AllocatePages(size)
                                  : platform::AllocatePagesToFill(size);
  }
  if (p == nullptr) throw BadAllocation();
  return p;
}

void SmallBlockAllocator::Dispose(void* pointer, std::size_t size) {
  if (pointer == nullptr) return;
  if (!IsReady()) {
    ReleaseOutsideManagers(pointer, size);
    return;
  }
  AllocatorInterface* manager;
  if (size <= kLargestTableSize) {
    manager = ManagerForRequest(size);
  } else if (size == k66624) {
    manager = g_manager66624;
  } else {
    platform::FreePages(pointer, size);
    return;
  }
  // A block that no manager owns was allocated before the allocator was ready.
  if (!manager->Deallocate(pointer, size)) ReleaseOutsideManagers(pointer, size);
}

std::size_t SmallBlockAllocator::GetActualAllocationSize(std::size_t size) {
  // 4160 answers from the table (4352) although Allocate(4160) is served by
  // the class 4160; kept so for compatibility.
  if (!IsReady() || size > kLargestTableSize) return size;
  return g_table[size]->GetBlockSize();
}

bool SmallBlockAllocator::Metrics::GetSnapshot(Snapshot&) { return false; }

}  // namespace tvxcore::utility
