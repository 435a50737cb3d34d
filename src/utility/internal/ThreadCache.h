// The per-thread caches and the transfer cache in front of the size-class
// managers of SmallBlockAllocator.
//
// Each thread keeps, per class of the request table (68 classes, blocks of 16
// to 8192 bytes), a singly linked list of free blocks that only it touches:
// taking or giving a block there is a few plain instructions and no atomic
// operation. An empty list is refilled with one batch of blocks, a full one
// hands one batch on. Batches go whole between threads through the transfer
// cache (one atomic exchange a batch) and block by block to and from the
// managers, which stay exactly as they are and never learn which thread
// returns a block. Requests of exactly 4160 bytes (served by the class 4160,
// which also carves the smallest chunks) and everything above 8192 bytes are
// never cached.
//
// Bounds. A list holds at most MaxListBlocks() blocks (64 KiB, at most 1024
// blocks); the lists of one thread hold at most kThreadCacheBytes (384 KiB)
// together, counted by their limits, so a thread never holds more however it
// allocates. A list that wants to grow past the thread's bytes takes room
// from the others, a batch from each in turn. The transfer cache holds at
// most a list's worth of whole batches a class (TransferSlots(), 8 to 32
// batches: at most 64 KiB a class, about 4.1 MiB over all classes), and its
// slots' arrays of block pointers take about 94 KiB of static memory.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/SizeClasses.h"

// Debug checks of blocks that enter a cache: a block the class does not own
// (a wrong size, a block made before the allocator was ready) takes the
// managers' road as it would without caching, and a block given back twice
// while it is in a cache, a batch or a manager's free stack is reported and
// dropped. On in builds without NDEBUG, or with TVX_ALLOCATOR_CHECKS=1.
#if !defined(TVX_ALLOCATOR_CHECKS)
#if defined(NDEBUG)
#define TVX_ALLOCATOR_CHECKS 0
#else
#define TVX_ALLOCATOR_CHECKS 1
#endif
#endif

namespace tvxcore::utility::internal {

inline constexpr bool kAllocatorChecks = TVX_ALLOCATOR_CHECKS != 0;

// The classes of the request table, ascending: every class up to 8192 bytes
// but 4160.
inline constexpr std::size_t kCachedClassCount = 68;
// Served by the class 4160 uncached, although the table would round it up.
inline constexpr std::size_t kUncachedRequest = 4160;

constexpr std::array<std::size_t, kCachedClassCount> MakeCachedBlockSizes() {
  std::array<std::size_t, kCachedClassCount> sizes{};
  std::size_t n = 0;
  for (const SizeClass& c : kSizeClasses)
    if (c.blockSize <= kLargestTableSize && c.blockSize != kUncachedRequest)
      sizes[n++] = c.blockSize;
  return sizes;
}
inline constexpr std::array<std::size_t, kCachedClassCount> kCachedBlockSizes =
    MakeCachedBlockSizes();

// Entry (size + 15) / 16 is the cached class of a request of `size` bytes:
// every block size is a multiple of 16, so rounding up to 16 keeps the class.
constexpr std::array<std::uint8_t, kLargestTableSize / 16 + 1> MakeRequestClasses() {
  std::array<std::uint8_t, kLargestTableSize / 16 + 1> classes{};
  std::size_t c = 0;
  for (std::size_t i = 0; i < classes.size(); ++i) {
    while (kCachedBlockSizes[c] < i * 16) ++c;
    classes[i] = static_cast<std::uint8_t>(c);
  }
  return classes;
}
inline constexpr std::array<std::uint8_t, kLargestTableSize / 16 + 1> kRequestClasses =
    MakeRequestClasses();

TVX_ALWAYS_INLINE constexpr bool IsCachedRequest(std::size_t size) {
  return size <= kLargestTableSize && size != kUncachedRequest;
}
TVX_ALWAYS_INLINE constexpr std::size_t CachedClassOf(std::size_t size) {
  return kRequestClasses[(size + 15) >> 4];
}

// Blocks moved at once between a thread's list and the transfer cache or the
// managers: 4 KiB worth, between 1 and 32 blocks.
inline constexpr std::size_t kBatchBytes = 4096;
inline constexpr std::uint32_t kMaxBatchBlocks = 32;
// Most blocks and bytes that one list of one thread may hold.
inline constexpr std::size_t kMaxListBytes = 64 * 1024;
inline constexpr std::uint32_t kMaxListBlocks = 1024;
// Most bytes that the lists of one thread may hold together: more than one
// batch of every class (about 270 KiB), so that every class can be cached.
inline constexpr std::size_t kThreadCacheBytes = 384 * 1024;
// Most batches that the transfer cache holds for any class.
inline constexpr std::uint32_t kMaxTransferSlots = 32;
// A list that overflows this many times in a row without growing gives up a
// batch of its limit, so a thread that only frees keeps little.
inline constexpr std::uint8_t kMaxOverages = 3;

constexpr std::uint32_t BatchBlocks(std::size_t blockSize) {
  const std::size_t blocks = kBatchBytes / blockSize;
  return blocks < 1 ? 1 : blocks > kMaxBatchBlocks ? kMaxBatchBlocks : std::uint32_t(blocks);
}
constexpr std::uint32_t MaxListBlocks(std::size_t blockSize) {
  const std::size_t blocks = kMaxListBytes / blockSize;
  return blocks < BatchBlocks(blockSize) ? BatchBlocks(blockSize)
         : blocks > kMaxListBlocks       ? kMaxListBlocks
                                         : std::uint32_t(blocks);
}

// Batches that the transfer cache holds for a class: as many as make a full
// list, so that a thread that frees a list's worth at once hands it all on.
constexpr std::uint32_t TransferSlots(std::size_t blockSize) {
  return MaxListBlocks(blockSize) / BatchBlocks(blockSize);
}

// One class's free blocks on one thread. A free block's first 8 bytes link
// to the next; `count` blocks are linked from `head`, never more than `limit`.
// A limit of 0 means that this thread does not cache the class (yet).
struct FreeList {
  void* head;
  std::uint32_t count;
  std::uint32_t limit;
};

TVX_ALWAYS_INLINE void* NextBlock(const void* block) noexcept {
  void* next;
  std::memcpy(&next, block, sizeof next);
  return next;
}
TVX_ALWAYS_INLINE void LinkBlock(void* block, void* next) noexcept {
  std::memcpy(block, &next, sizeof next);
}

// The blocks that one thread holds. Only its own thread touches it; the
// thread gives it all back when it ends.
class ThreadCache {
 public:
  ThreadCache() = default;
  ThreadCache(const ThreadCache&) = delete;
  ThreadCache& operator=(const ThreadCache&) = delete;

  // The fast paths: no atomic operation, no call.
  TVX_ALWAYS_INLINE void* TryPop(std::size_t cachedClass) noexcept {
    FreeList& list = lists_[cachedClass];
    void* block = list.head;
    if (__builtin_expect(block == nullptr, 0)) return nullptr;
    list.head = NextBlock(block);
    --list.count;
    return block;
  }
  TVX_ALWAYS_INLINE bool TryPush(std::size_t cachedClass, void* block) noexcept {
    FreeList& list = lists_[cachedClass];
    if (__builtin_expect(list.count >= list.limit, 0)) return false;
    LinkBlock(block, list.head);
    list.head = block;
    ++list.count;
    return true;
  }

  // TryPop's slow path: when the list of the class is empty, refills it
  // with a batch from the transfer cache or the manager. Returns a block, or
  // null when this thread does not cache the class or the manager had no
  // block; throws std::bad_alloc when the manager cannot grow.
  void* Refill(std::size_t cachedClass);

  // TryPush's slow path: when the list is full, hands a batch on to make
  // room; takes `block`. False when this thread does not cache the class;
  // the caller then gives the block to the manager itself.
  bool Overflow(std::size_t cachedClass, void* block);

  // Gives every block to the managers and forgets the limits.
  void ReturnAll() noexcept;

  std::uint32_t Count(std::size_t cachedClass) const noexcept { return lists_[cachedClass].count; }
  std::size_t LimitBytes() const noexcept { return limitBytes_; }

 private:
  bool Enable(std::size_t cachedClass) noexcept;
  void Grow(std::size_t cachedClass) noexcept;
  bool MakeRoom(std::size_t cachedClass, std::size_t bytes) noexcept;
  void LowerLimit(std::size_t cachedClass) noexcept;
  void HandOnBatch(std::size_t cachedClass) noexcept;

  FreeList lists_[kCachedClassCount] = {};
  std::size_t limitBytes_ = 0;  // sum of limit x block size over the lists
  std::uint8_t overages_[kCachedClassCount] = {};
  std::uint8_t nextVictim_ = 0;  // the list that MakeRoom lowers next
};

// The calling thread's cache, or null: not made yet, caching off, or the
// thread is ending. Initial-exec: one load relative to the thread pointer.
extern constinit thread_local ThreadCache* t_threadCache [[gnu::tls_model("initial-exec")]];

// Makes the calling thread's cache when caching is on and the thread may have
// one; null otherwise. Call only once the allocator is ready.
ThreadCache* AttachThreadCache();

// Gives the calling thread's blocks back to the managers; with `detach`, or
// when caching is off, also drops the thread's cache until it attaches again.
void ReturnThreadCache(bool detach) noexcept;

// Gives every batch of the transfer cache back to the managers.
void DrainTransferCache() noexcept;

// In the child of fork(): frees the transfer cache's slots that threads the
// child does not have were filling or taking (their blocks stay unused).
void DropTransfersInProgress() noexcept;

// Whether caching is on: decided by SetThreadCachingMode, else by the
// environment variable TVX_SMALLBLOCK_THREAD_CACHE ("0", "off", "no" or
// "false" turn it off), read once.
bool ThreadCachingOn() noexcept;
void SetThreadCachingMode(bool on) noexcept;

// The managers of the cached classes, in class order; set once while the
// allocator builds its tables.
void InstallCachedClassManagers(AllocatorInterface* const* managers,
                                bool (*const* contains)(const void*)) noexcept;

// Blocks made around the managers before the allocator was ready must never
// enter a cache (they may be smaller than the class and belong to the C
// heap): while any of a class is alive, no thread caches that class.
void NoteEarlyBlock(std::size_t size) noexcept;
void ForgetEarlyBlock(std::size_t size) noexcept;

// Gives a block that no manager owns back to where it came from; defined
// beside the allocator's entry points.
void ReleaseForeignBlock(void* pointer, std::size_t size) noexcept;

// With the checks on, a block given back carries a mark in its second word
// (every block has at least 16 bytes) until it is handed out again: its
// address mixed with a constant, which user data matches only by design.
inline constexpr std::uintptr_t kFreeMarkKey = 0x9E3779B97F4A7C15u;
TVX_ALWAYS_INLINE void MarkFree(void* block) noexcept {
  const std::uintptr_t mark = reinterpret_cast<std::uintptr_t>(block) ^ kFreeMarkKey;
  std::memcpy(static_cast<char*>(block) + sizeof(void*), &mark, sizeof mark);
}
TVX_ALWAYS_INLINE void ClearFreeMark(void* block) noexcept {
  const std::uintptr_t none = 0;
  std::memcpy(static_cast<char*>(block) + sizeof(void*), &none, sizeof none);
}
TVX_ALWAYS_INLINE bool IsMarkedFree(const void* block) noexcept {
  std::uintptr_t mark;
  std::memcpy(&mark, static_cast<const char*>(block) + sizeof(void*), sizeof mark);
  return mark == (reinterpret_cast<std::uintptr_t>(block) ^ kFreeMarkKey);
}

// With the checks on, what becomes of a block given to a thread's list: it
// enters, marked; it is dropped, because it carries the mark already (a
// double free, reported as a contract violation); or it takes the managers'
// road, because the class doesn't own it (a wrong size, or a block made
// before the allocator was ready), exactly as without caching.
enum class CacheCheck { kAccept, kDrop, kToManagers };
CacheCheck CheckBlockForCache(std::size_t cachedClass, void* block);

// For tests: the blocks of the class whose block size is `blockSize` that the
// calling thread holds, the bytes it holds over all classes, and the blocks
// of the class in the transfer cache.
std::size_t ThreadCachedBlocks(std::size_t blockSize) noexcept;
std::size_t ThreadCachedBytes() noexcept;
std::size_t TransferCachedBlocks(std::size_t blockSize) noexcept;

}  // namespace tvxcore::utility::internal
