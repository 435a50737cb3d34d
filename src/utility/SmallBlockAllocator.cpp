// The general heap of the library: a table of size-classed managers for
// requests up to 8192 bytes, pages from the system above that, and in front
// of the managers a cache per thread (utility/internal/ThreadCache.h).
#include "tvxcore/utility/SmallBlockAllocator.h"

#include <atomic>
#include <new>
#include <utility>

#include "platform/Memory.h"
#include "utility/internal/SizeClasses.h"
#include "utility/internal/ThreadCache.h"

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

template <std::size_t kIndex>
bool ManagerContains(const void* pointer) {
  return internal::ManagerAt<kIndex>().Contains(pointer);
}

// fork() copies the process with only the calling thread: every manager is
// locked around it (growth lock, then the view held exclusively, from small
// block size to large as everywhere), so that the child finds no structure
// half changed and no lock held by a thread it does not have.
template <std::size_t... kIndex>
void LockManagersForFork(std::index_sequence<kIndex...>) {
  (internal::ManagerAt<kIndex>().LockForFork(), ...);
}
template <std::size_t... kIndex>
void UnlockManagersAfterFork(std::index_sequence<kIndex...>, bool inChild) {
  constexpr std::size_t kLast = sizeof...(kIndex) - 1;
  (internal::ManagerAt<kLast - kIndex>().UnlockAfterFork(inChild), ...);
}
void PrepareFork() { LockManagersForFork(std::make_index_sequence<internal::kSizeClassCount>()); }
void ParentAfterFork() {
  UnlockManagersAfterFork(std::make_index_sequence<internal::kSizeClassCount>(), false);
}
void ChildAfterFork() {
  internal::DropTransfersInProgress();
  UnlockManagersAfterFork(std::make_index_sequence<internal::kSizeClassCount>(), true);
}

template <std::size_t... kIndex>
void BuildManagers(std::index_sequence<kIndex...>) {
  AllocatorInterface* managers[] = {&internal::ManagerAt<kIndex>()...};  // in ascending order
  bool (*contains[])(const void*) = {&ManagerContains<kIndex>...};
  AllocatorInterface* cached[internal::kCachedClassCount];
  bool (*cachedContains[internal::kCachedClassCount])(const void*);
  std::size_t size = 0;
  std::size_t cachedClass = 0;
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
    cached[cachedClass] = managers[i];
    cachedContains[cachedClass++] = contains[i];
    for (; size <= blockSize && size <= kLargestTableSize; ++size) g_table[size] = managers[i];
  }
  internal::InstallCachedClassManagers(cached, cachedContains);
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
  platform::CallAroundFork(&PrepareFork, &ParentAfterFork, &ChildAfterFork);
  // Sequentially consistent, as is the check of AllocateBeforeReady: a block
  // made around the managers is always seen by a thread that then turns on
  // its cache for the class.
  g_state.store(kReady, std::memory_order_seq_cst);
  return true;
}

inline bool IsReady() { return g_state.load(std::memory_order_acquire) == kReady || BecomeReady(); }

inline AllocatorInterface* ManagerForRequest(std::size_t size) {
  return size == k4160 ? g_manager4160 : g_table[size];
}

void* AllocateBeforeReady(std::size_t size) {
  // A block of a cached class is counted before the state is looked at once
  // more, so either the block goes to the managers after all or every thread
  // that caches the class later sees the count.
  internal::NoteEarlyBlock(size);
  if (g_state.load(std::memory_order_seq_cst) == kReady) {
    internal::ForgetEarlyBlock(size);
    return SmallBlockAllocator::Allocate(size);
  }
  void* p =
      size < kLargestTableSize ? platform::AlignedAllocate(size) : platform::AllocatePages(size);
  if (p == nullptr) {
    internal::ForgetEarlyBlock(size);
    throw BadAllocation();
  }
  return p;
}

void ReleaseOutsideManagers(void* pointer, std::size_t size) {
  internal::ForgetEarlyBlock(size);
  if (size < kLargestTableSize)
    platform::AlignedFree(pointer);
  else
    platform::FreePages(pointer, size);
}

// The managers' road for everything up to 8192 bytes, 4160 and 66624: the
// whole allocator when caching is off.
void* AllocateFromManagers(std::size_t size) {
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

void DisposeToManagers(void* pointer, std::size_t size) {
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

TVX_NOINLINE void* AllocateSlow(std::size_t size) {
  if (!IsReady()) return AllocateBeforeReady(size);
  if (!internal::IsCachedRequest(size)) return AllocateFromManagers(size);
  void* block = nullptr;
  internal::ThreadCache* cache = internal::t_threadCache;
  if (cache == nullptr) cache = internal::AttachThreadCache();
  if (cache != nullptr) block = cache->Refill(internal::CachedClassOf(size));
  if (block == nullptr) block = AllocateFromManagers(size);
  if constexpr (internal::kAllocatorChecks) internal::ClearFreeMark(block);
  return block;
}

TVX_NOINLINE void DisposeSlow(void* pointer, std::size_t size) {
  if (pointer == nullptr) return;
  if (!IsReady()) {
    ReleaseOutsideManagers(pointer, size);
    return;
  }
  if (internal::IsCachedRequest(size)) {
    internal::ThreadCache* cache = internal::t_threadCache;
    if (cache == nullptr) cache = internal::AttachThreadCache();
    if (cache != nullptr) {
      const std::size_t cachedClass = internal::CachedClassOf(size);
      if constexpr (internal::kAllocatorChecks) {
        switch (internal::CheckBlockForCache(cachedClass, pointer)) {
          case internal::CacheCheck::kDrop:
            return;
          case internal::CacheCheck::kToManagers:
            DisposeToManagers(pointer, size);
            return;
          case internal::CacheCheck::kAccept:
            break;
        }
      }
      if (cache->Overflow(cachedClass, pointer)) return;
    }
  }
  DisposeToManagers(pointer, size);
}

}  // namespace

namespace internal {
int ExchangeInitialisationStateForTesting(int state) {
  IsReady();
  // Requests must reach the not-ready road, which the calling thread's cache
  // would otherwise answer.
  if (state != kReady) ReturnThreadCache(true);
  return g_state.exchange(state, std::memory_order_seq_cst);
}

void ReleaseForeignBlock(void* pointer, std::size_t size) noexcept {
  ReleaseOutsideManagers(pointer, size);
}
}  // namespace internal

void* SmallBlockAllocator::Allocate(std::size_t size) {
  if (internal::IsCachedRequest(size)) {
    if (internal::ThreadCache* cache = internal::t_threadCache) {
      if (void* block = cache->TryPop(internal::CachedClassOf(size))) {
        if constexpr (internal::kAllocatorChecks) internal::ClearFreeMark(block);
        return block;
      }
    }
  }
  return AllocateSlow(size);
}

void SmallBlockAllocator::Dispose(void* pointer, std::size_t size) {
  if (internal::IsCachedRequest(size) && pointer != nullptr && !internal::kAllocatorChecks) {
    if (internal::ThreadCache* cache = internal::t_threadCache) {
      if (cache->TryPush(internal::CachedClassOf(size), pointer)) return;
    }
  }
  DisposeSlow(pointer, size);
}

std::size_t SmallBlockAllocator::GetActualAllocationSize(std::size_t size) {
  // 4160 answers from the table (4352) although Allocate(4160) is served by
  // the class 4160; kept so for compatibility.
  if (!IsReady() || size > kLargestTableSize) return size;
  return g_table[size]->GetBlockSize();
}

bool SmallBlockAllocator::Metrics::GetSnapshot(Snapshot&) { return false; }

void SmallBlockAllocator::SetThreadCaching(bool enabled) {
  internal::SetThreadCachingMode(enabled);
  if (!enabled) FlushThreadCache();
}

bool SmallBlockAllocator::IsThreadCaching() { return internal::ThreadCachingOn(); }

void SmallBlockAllocator::FlushThreadCache() {
  if (g_state.load(std::memory_order_acquire) != kReady) return;
  internal::ReturnThreadCache(false);
  internal::DrainTransferCache();
}

}  // namespace tvxcore::utility
