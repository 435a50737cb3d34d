// Slow paths of the per-thread caches, the transfer cache between threads,
// and the switches and hooks around them.
#include "utility/internal/ThreadCache.h"

#include <atomic>
#include <cstring>
#include <new>

#include "debug/internal/ContractCheck.h"
#include "platform/Memory.h"

namespace tvxcore::utility::internal {

constinit thread_local ThreadCache* t_threadCache [[gnu::tls_model("initial-exec")]] = nullptr;

namespace {

// Where the calling thread stands. Only the slow paths read it.
enum class ThreadState : std::uint8_t {
  kMayAttach,  // no cache yet, or dropped; the next slow path may make one
  kAttaching,  // making the cache: anything allocated meanwhile goes around it
  kEnded,      // the thread is ending: its blocks went back, none is cached again
};
constinit thread_local ThreadState t_threadState [[gnu::tls_model("initial-exec")]] =
    ThreadState::kMayAttach;

enum class Mode : int { kUndecided, kOn, kOff };
std::atomic<Mode> g_mode{Mode::kUndecided};

AllocatorInterface* g_managers[kCachedClassCount] = {};
bool (*g_contains[kCachedClassCount])(const void*) = {};

// Live blocks per class that were made before the allocator was ready.
std::atomic<std::uint32_t> g_earlyBlocks[kCachedClassCount] = {};

constexpr std::array<std::uint32_t, kCachedClassCount> MakeBatches() {
  std::array<std::uint32_t, kCachedClassCount> batches{};
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    batches[c] = BatchBlocks(kCachedBlockSizes[c]);
  return batches;
}
constexpr std::array<std::uint32_t, kCachedClassCount> MakeMaxima() {
  std::array<std::uint32_t, kCachedClassCount> maxima{};
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    maxima[c] = MaxListBlocks(kCachedBlockSizes[c]);
  return maxima;
}
constexpr std::array<std::uint32_t, kCachedClassCount> kBatches = MakeBatches();
constexpr std::array<std::uint32_t, kCachedClassCount> kMaxima = MakeMaxima();

constexpr bool EveryClassFitsTheBudget() {
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    if (kMaxima[c] * kCachedBlockSizes[c] > kMaxListBytes && kMaxima[c] > kBatches[c]) return false;
  return true;
}
static_assert(EveryClassFitsTheBudget(), "a list's limit stays within its bytes");
constexpr std::size_t OneBatchOfEveryClass() {
  std::size_t bytes = 0;
  for (std::size_t c = 0; c < kCachedClassCount; ++c) bytes += kBatches[c] * kCachedBlockSizes[c];
  return bytes;
}
static_assert(OneBatchOfEveryClass() < kThreadCacheBytes, "a thread can cache every class at once");
static_assert(kRequestClasses[0] == 0 &&
              kRequestClasses[kLargestTableSize / 16] == kCachedClassCount - 1);

// Full batches on their way between threads, kTransferSlots per class. A
// batch is a list of BatchBlocks() blocks linked as in a thread's list, so
// the thread that takes it makes it its list as it stands. Each slot is
// filled by a compare-and-swap from null and emptied by an exchange with
// null: one atomic operation a batch, no lock, and a slot is consistent at
// every instant (also in a child made by fork()).
struct alignas(64) TransferSlots {
  std::atomic<void*> slot[kTransferSlots];

  bool Put(void* batch) noexcept {
    for (auto& s : slot) {
      if (s.load(std::memory_order_relaxed) != nullptr) continue;
      void* expected = nullptr;
      if (s.compare_exchange_strong(expected, batch, std::memory_order_release,
                                    std::memory_order_relaxed))
        return true;
    }
    return false;
  }

  void* Take() noexcept {
    for (auto& s : slot) {
      if (s.load(std::memory_order_relaxed) == nullptr) continue;
      if (void* batch = s.exchange(nullptr, std::memory_order_acquire)) return batch;
    }
    return nullptr;
  }
};
TransferSlots g_transfer[kCachedClassCount];

// Gives a list of blocks of the class to its manager, one by one.
void ReturnChain(std::size_t cachedClass, void* block) noexcept {
  AllocatorInterface* manager = g_managers[cachedClass];
  const std::size_t size = kCachedBlockSizes[cachedClass];
  while (block != nullptr) {
    void* next = NextBlock(block);
    if (!manager->Deallocate(block, size)) ReleaseForeignBlock(block, size);
    block = next;
  }
}

// Up to `wanted` blocks from the manager, linked; `outCount` of them. Null
// when the manager has none; std::bad_alloc from its growth only when not
// even the first block could be had.
void* TakeFromManager(std::size_t cachedClass, std::uint32_t wanted, std::uint32_t& outCount) {
  AllocatorInterface* manager = g_managers[cachedClass];
  const std::size_t size = kCachedBlockSizes[cachedClass];
  void* first = manager->Allocate(size);
  if (first == nullptr) return nullptr;
  void* last = first;
  outCount = 1;
  try {
    while (outCount < wanted) {
      void* block = manager->Allocate(size);
      if (block == nullptr) break;
      LinkBlock(last, block);
      last = block;
      ++outCount;
    }
  } catch (const std::bad_alloc&) {
    // Keep what was had; the next refill asks again.
  }
  LinkBlock(last, nullptr);
  return first;
}

// The cache itself is one block of the managers, taken around the caches.
constexpr std::size_t kCacheClass = CachedClassOf(sizeof(ThreadCache));
static_assert(kCachedBlockSizes[kCacheClass] >= sizeof(ThreadCache));

void ReleaseCacheMemory(ThreadCache* cache) noexcept {
  cache->~ThreadCache();
  if (!g_managers[kCacheClass]->Deallocate(cache, sizeof(ThreadCache)))
    ReleaseForeignBlock(cache, sizeof(ThreadCache));
}

// Runs when a thread with a cache ends, after its thread_local destructors.
// Whatever the thread frees later (another library's exit handlers) goes
// straight to the managers.
void ReleaseAtThreadExit(void* value) {
  auto* cache = static_cast<ThreadCache*>(value);
  t_threadState = ThreadState::kEnded;
  t_threadCache = nullptr;
  if (cache == nullptr) return;
  cache->ReturnAll();
  ReleaseCacheMemory(cache);
}

}  // namespace

bool ThreadCache::Enable(std::size_t cachedClass) noexcept {
  if (g_earlyBlocks[cachedClass].load(std::memory_order_seq_cst) != 0) return false;
  const std::size_t bytes = std::size_t{kBatches[cachedClass]} * kCachedBlockSizes[cachedClass];
  if (!MakeRoom(cachedClass, bytes)) return false;
  lists_[cachedClass].limit = kBatches[cachedClass];
  limitBytes_ += bytes;
  return true;
}

// After a miss the list may hold one batch more, as long as the class stays
// within its bound and the thread's bytes can be had: a thread that
// allocates many blocks of a class before freeing them keeps them all cached
// the next time.
void ThreadCache::Grow(std::size_t cachedClass) noexcept {
  FreeList& list = lists_[cachedClass];
  const std::uint32_t batch = kBatches[cachedClass];
  const std::size_t bytes = std::size_t{batch} * kCachedBlockSizes[cachedClass];
  if (list.limit + batch > kMaxima[cachedClass] || !MakeRoom(cachedClass, bytes)) return;
  list.limit += batch;
  limitBytes_ += bytes;
  overages_[cachedClass] = 0;
}

// Room for `bytes` more of limits within the thread's bound, taken when
// needed from the other lists in turn, a batch from each that holds more
// than one. False when they have too little to give.
bool ThreadCache::MakeRoom(std::size_t cachedClass, std::size_t bytes) noexcept {
  for (std::size_t visited = 0; limitBytes_ + bytes > kThreadCacheBytes; ++visited) {
    if (visited == 2 * kCachedClassCount) return false;
    const std::size_t victim = nextVictim_;
    nextVictim_ = static_cast<std::uint8_t>(victim + 1 == kCachedClassCount ? 0 : victim + 1);
    if (victim != cachedClass && lists_[victim].limit > kBatches[victim]) LowerLimit(victim);
  }
  return true;
}

// One batch less for the list; what no longer fits is handed on.
void ThreadCache::LowerLimit(std::size_t cachedClass) noexcept {
  FreeList& list = lists_[cachedClass];
  const std::uint32_t batch = kBatches[cachedClass];
  list.limit -= batch;
  limitBytes_ -= std::size_t{batch} * kCachedBlockSizes[cachedClass];
  overages_[cachedClass] = 0;
  while (list.count > list.limit) HandOnBatch(cachedClass);
}

void* ThreadCache::Refill(std::size_t cachedClass) {
  if (void* block = TryPop(cachedClass)) return block;
  FreeList& list = lists_[cachedClass];
  if (list.limit == 0 && !Enable(cachedClass)) return nullptr;
  std::uint32_t count = kBatches[cachedClass];
  void* batch = g_transfer[cachedClass].Take();
  if (batch == nullptr) {
    batch = TakeFromManager(cachedClass, count, count);
    if (batch == nullptr) return nullptr;
  }
  list.head = NextBlock(batch);
  list.count = count - 1;
  Grow(cachedClass);
  return batch;
}

// Cuts the newest batch off the list and hands it to the transfer cache, or
// to the manager when the transfer cache is full. The list holds at least a
// batch.
void ThreadCache::HandOnBatch(std::size_t cachedClass) noexcept {
  FreeList& list = lists_[cachedClass];
  const std::uint32_t batch = kBatches[cachedClass];
  void* first = list.head;
  void* last = first;
  for (std::uint32_t i = 1; i < batch; ++i) last = NextBlock(last);
  list.head = NextBlock(last);
  list.count -= batch;
  LinkBlock(last, nullptr);
  if (!g_transfer[cachedClass].Put(first)) ReturnChain(cachedClass, first);
}

bool ThreadCache::Overflow(std::size_t cachedClass, void* block) {
  if (TryPush(cachedClass, block)) return true;
  FreeList& list = lists_[cachedClass];
  if (list.limit == 0) {
    if (!Enable(cachedClass)) return false;
  } else {
    // A list that keeps overflowing without a miss between holds more than
    // its thread takes: a thread that only frees keeps one batch.
    if (++overages_[cachedClass] > kMaxOverages && list.limit > kBatches[cachedClass])
      LowerLimit(cachedClass);
    if (list.count >= list.limit) HandOnBatch(cachedClass);
  }
  return TryPush(cachedClass, block);
}

void ThreadCache::ReturnAll() noexcept {
  for (std::size_t c = 0; c < kCachedClassCount; ++c) {
    void* blocks = lists_[c].head;
    lists_[c] = FreeList{};
    overages_[c] = 0;
    ReturnChain(c, blocks);
  }
  limitBytes_ = 0;
}

ThreadCache* AttachThreadCache() {
  if (t_threadState != ThreadState::kMayAttach || !ThreadCachingOn()) return nullptr;
  t_threadState = ThreadState::kAttaching;
  void* memory = g_managers[kCacheClass]->Allocate(sizeof(ThreadCache));
  ThreadCache* cache = nullptr;
  if (memory != nullptr) {
    cache = new (memory) ThreadCache;
    if (platform::CallAtThreadExit(&ReleaseAtThreadExit, cache)) {
      t_threadCache = cache;
    } else {
      // Without the exit call the blocks would be lost with the thread.
      ReleaseCacheMemory(cache);
      cache = nullptr;
    }
  }
  t_threadState = ThreadState::kMayAttach;
  return cache;
}

void ReturnThreadCache(bool detach) noexcept {
  ThreadCache* cache = t_threadCache;
  if (cache == nullptr) return;
  cache->ReturnAll();
  if (!detach && ThreadCachingOn()) return;
  t_threadCache = nullptr;
  platform::CallAtThreadExit(&ReleaseAtThreadExit, nullptr);
  ReleaseCacheMemory(cache);
}

void DrainTransferCache() noexcept {
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    while (void* batch = g_transfer[c].Take()) ReturnChain(c, batch);
}

bool ThreadCachingOn() noexcept {
  Mode mode = g_mode.load(std::memory_order_relaxed);
  if (mode == Mode::kUndecided) {
    const char* value = platform::EnvironmentValue("TVX_SMALLBLOCK_THREAD_CACHE");
    bool off = false;
    if (value != nullptr)
      for (const char* word : {"0", "off", "no", "false"})
        off = off || std::strcmp(value, word) == 0;
    Mode expected = Mode::kUndecided;
    g_mode.compare_exchange_strong(expected, off ? Mode::kOff : Mode::kOn,
                                   std::memory_order_relaxed);
    mode = g_mode.load(std::memory_order_relaxed);
  }
  return mode == Mode::kOn;
}

void SetThreadCachingMode(bool on) noexcept {
  g_mode.store(on ? Mode::kOn : Mode::kOff, std::memory_order_relaxed);
}

void InstallCachedClassManagers(AllocatorInterface* const* managers,
                                bool (*const* contains)(const void*)) noexcept {
  for (std::size_t c = 0; c < kCachedClassCount; ++c) {
    g_managers[c] = managers[c];
    g_contains[c] = contains[c];
  }
}

void NoteEarlyBlock(std::size_t size) noexcept {
  if (IsCachedRequest(size))
    g_earlyBlocks[CachedClassOf(size)].fetch_add(1, std::memory_order_seq_cst);
}

void ForgetEarlyBlock(std::size_t size) noexcept {
  if (!IsCachedRequest(size)) return;
  // A block given with a wrong size may land here too; never go below zero.
  auto& count = g_earlyBlocks[CachedClassOf(size)];
  std::uint32_t seen = count.load(std::memory_order_relaxed);
  while (seen != 0 && !count.compare_exchange_weak(seen, seen - 1, std::memory_order_relaxed)) {
  }
}

CacheCheck CheckBlockForCache(std::size_t cachedClass, void* block) {
  // Whether the class owns the block comes first: only then are its 16 bytes
  // there to be read.
  if (g_contains[cachedClass] != nullptr && !g_contains[cachedClass](block))
    return CacheCheck::kToManagers;
  if (IsMarkedFree(block)) {
    debug::internal::ContractViolation("!IsMarkedFree(block)", __FILE__, __LINE__);
    return CacheCheck::kDrop;
  }
  MarkFree(block);
  return CacheCheck::kAccept;
}

std::size_t ThreadCachedBlocks(std::size_t blockSize) noexcept {
  const ThreadCache* cache = t_threadCache;
  if (cache == nullptr || !IsCachedRequest(blockSize)) return 0;
  const std::size_t c = CachedClassOf(blockSize);
  return kCachedBlockSizes[c] == blockSize ? cache->Count(c) : 0;
}

std::size_t ThreadCachedBytes() noexcept {
  const ThreadCache* cache = t_threadCache;
  std::size_t bytes = 0;
  if (cache != nullptr)
    for (std::size_t c = 0; c < kCachedClassCount; ++c)
      bytes += std::size_t{cache->Count(c)} * kCachedBlockSizes[c];
  return bytes;
}

std::size_t TransferCachedBlocks(std::size_t blockSize) noexcept {
  if (!IsCachedRequest(blockSize)) return 0;
  const std::size_t c = CachedClassOf(blockSize);
  if (kCachedBlockSizes[c] != blockSize) return 0;
  std::size_t batches = 0;
  for (const auto& s : g_transfer[c].slot)
    if (s.load(std::memory_order_relaxed) != nullptr) ++batches;
  return batches * kBatches[c];
}

}  // namespace tvxcore::utility::internal
