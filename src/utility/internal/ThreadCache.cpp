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

// Full batches on their way between threads, up to a list's worth a class
// (TransferSlots() batches), so that a burst that fills a list passes whole.
// A slot is an array of BatchBlocks() block pointers: the thread that hands a
// batch on writes it from its own list, whose blocks it wrote last, and the
// thread that takes the batch reads the array (a few cache lines, all at
// once) and links the blocks into its own list with stores that do not wait
// on each other. Following a batch's links instead would wait, block after
// block, for a line last written on the other thread's core.
//
// The states of a class's slots share one word, two bits a slot: a thread
// claims a slot with one compare-and-swap (empty to filling, full to taking)
// and releases it with one add (filling to full, taking to empty); between
// the two the array is that thread's alone. No lock, and no thread ever waits
// for another. A child made by fork() drops the claims of the threads it does
// not have, with the blocks they were moving.
constexpr std::uint64_t kEmpty = 0;
constexpr std::uint64_t kFilling = 1;
constexpr std::uint64_t kFull = 2;
constexpr std::uint64_t kTaking = 3;
constexpr std::uint64_t kLowBits = 0x5555555555555555u;

constexpr std::array<std::uint32_t, kCachedClassCount> MakeSlotCounts() {
  std::array<std::uint32_t, kCachedClassCount> slots{};
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    slots[c] = TransferSlots(kCachedBlockSizes[c]);
  return slots;
}
constexpr std::array<std::uint32_t, kCachedClassCount> kSlots = MakeSlotCounts();

// Where each class's arrays start among all the slots' pointers: each class
// on cache lines of its own.
constexpr std::array<std::size_t, kCachedClassCount + 1> MakeSlotOffsets() {
  constexpr std::size_t kLine = 64 / sizeof(void*);
  std::array<std::size_t, kCachedClassCount + 1> offsets{};
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    offsets[c + 1] =
        offsets[c] + (std::size_t{kSlots[c]} * kBatches[c] + kLine - 1) / kLine * kLine;
  return offsets;
}
constexpr std::array<std::size_t, kCachedClassCount + 1> kSlotOffsets = MakeSlotOffsets();

constexpr bool EverySlotFitsItsWord() {
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    if (kSlots[c] < 1 || kSlots[c] > kMaxTransferSlots) return false;
  return true;
}
static_assert(EverySlotFitsItsWord(), "a class's slot states fit one word");

struct alignas(64) SlotStates {
  std::atomic<std::uint64_t> word{0};
};
SlotStates g_slotStates[kCachedClassCount];
alignas(64) void* g_slotBlocks[kSlotOffsets[kCachedClassCount]];

void** SlotBlocks(std::size_t cachedClass, unsigned slot) noexcept {
  return g_slotBlocks + kSlotOffsets[cachedClass] + std::size_t{slot} * kBatches[cachedClass];
}

// The lowest bit of the field of every slot of the class that is in `state`.
constexpr std::uint64_t SlotsIn(std::size_t cachedClass, std::uint64_t states,
                                std::uint64_t state) {
  const std::uint64_t differ = states ^ (state * kLowBits);
  return ~(differ | differ >> 1) & (kLowBits >> (64 - 2 * kSlots[cachedClass]));
}

// Moves a slot of the class from `state` to the next one (empty to filling,
// full to taking) and returns its index; -1 when no slot is in `state`.
int ClaimSlot(std::size_t cachedClass, std::uint64_t state) noexcept {
  std::atomic<std::uint64_t>& word = g_slotStates[cachedClass].word;
  std::uint64_t seen = word.load(std::memory_order_relaxed);
  for (;;) {
    const std::uint64_t match = SlotsIn(cachedClass, seen, state);
    if (match == 0) return -1;
    const int bit = __builtin_ctzll(match);
    // Acquire: what the thread that released the slot did with its array
    // comes before what this one does.
    if (word.compare_exchange_weak(seen, seen + (std::uint64_t{1} << bit),
                                   std::memory_order_acquire, std::memory_order_relaxed))
      return bit / 2;
  }
}

// A filled slot becomes full; a taken one empty.
void ReleaseFilledSlot(std::size_t cachedClass, int slot) noexcept {
  g_slotStates[cachedClass].word.fetch_add(kFilling << (2 * slot), std::memory_order_release);
}
void ReleaseTakenSlot(std::size_t cachedClass, int slot) noexcept {
  g_slotStates[cachedClass].word.fetch_sub(kTaking << (2 * slot), std::memory_order_release);
}

// Copies a full batch of the class out of the transfer cache into `blocks`;
// false when there is none.
bool TakeBatch(std::size_t cachedClass, void** blocks) noexcept {
  const int slot = ClaimSlot(cachedClass, kFull);
  if (slot < 0) return false;
  std::memcpy(blocks, SlotBlocks(cachedClass, static_cast<unsigned>(slot)),
              kBatches[cachedClass] * sizeof(void*));
  ReleaseTakenSlot(cachedClass, slot);
  return true;
}

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

void ReturnBlocks(std::size_t cachedClass, void* const* blocks, std::uint32_t count) noexcept {
  AllocatorInterface* manager = g_managers[cachedClass];
  const std::size_t size = kCachedBlockSizes[cachedClass];
  for (std::uint32_t i = 0; i < count; ++i)
    if (!manager->Deallocate(blocks[i], size)) ReleaseForeignBlock(blocks[i], size);
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
  void* first;
  void* blocks[kMaxBatchBlocks];
  if (TakeBatch(cachedClass, blocks)) {
    // The blocks' lines may be on another core: linking them is one store
    // each, none waiting for another.
    void* next = nullptr;
    for (std::uint32_t i = count; --i > 0;) {
      LinkBlock(blocks[i], next);
      next = blocks[i];
    }
    first = blocks[0];
    list.head = next;
  } else {
    first = TakeFromManager(cachedClass, count, count);
    if (first == nullptr) return nullptr;
    list.head = NextBlock(first);
  }
  list.count = count - 1;
  Grow(cachedClass);
  return first;
}

// Takes the newest batch off the list and hands it to the transfer cache, or
// to the manager when the transfer cache is full. The list holds at least a
// batch.
void ThreadCache::HandOnBatch(std::size_t cachedClass) noexcept {
  FreeList& list = lists_[cachedClass];
  const std::uint32_t batch = kBatches[cachedClass];
  const int slot = ClaimSlot(cachedClass, kEmpty);
  if (slot >= 0) {
    void** out = SlotBlocks(cachedClass, static_cast<unsigned>(slot));
    void* block = list.head;
    for (std::uint32_t i = 0; i < batch; ++i) {
      out[i] = block;
      block = NextBlock(block);
    }
    list.head = block;
    list.count -= batch;
    ReleaseFilledSlot(cachedClass, slot);
    return;
  }
  void* first = list.head;
  void* last = first;
  for (std::uint32_t i = 1; i < batch; ++i) last = NextBlock(last);
  list.head = NextBlock(last);
  list.count -= batch;
  LinkBlock(last, nullptr);
  ReturnChain(cachedClass, first);
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
  void* blocks[kMaxBatchBlocks];
  for (std::size_t c = 0; c < kCachedClassCount; ++c)
    while (TakeBatch(c, blocks)) ReturnBlocks(c, blocks, kBatches[c]);
}

void DropTransfersInProgress() noexcept {
  for (auto& states : g_slotStates) {
    const std::uint64_t seen = states.word.load(std::memory_order_relaxed);
    // Filling and taking are the odd states.
    const std::uint64_t busy = seen & kLowBits;
    states.word.store(seen & ~(busy | busy << 1), std::memory_order_relaxed);
  }
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
  const std::uint64_t full =
      SlotsIn(c, g_slotStates[c].word.load(std::memory_order_relaxed), kFull);
  return std::size_t(__builtin_popcountll(full)) * kBatches[c];
}

}  // namespace tvxcore::utility::internal
