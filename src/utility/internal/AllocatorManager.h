// The size-classed block managers behind SmallBlockAllocator.
//
// A manager hands out blocks of one size from chunks. A chunk is a 64-byte
// header followed by whole blocks, and is itself one block of the next bigger
// class (4160, 66624) or, at the top (932800 bytes), pages from the system.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "debug/internal/ContractCheck.h"
#include "threads/internal/FutexPrimitives.h"
#include "threads/internal/LockFreeStack.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/ReadWriteLock.h"
#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxcore::utility {

// One size class. The managers live for the whole process and are never
// destroyed, so the interface has no public destructor.
class AllocatorInterface {
 public:
  // A block of GetBlockSize() bytes, or null.
  virtual void* Allocate(std::size_t inSize) = 0;
  // Takes back a block; false if the block doesn't belong to this manager.
  virtual bool Deallocate(void* inPointer, std::size_t inSize) = 0;
  virtual std::size_t GetBlockSize() const = 0;

 protected:
  AllocatorInterface() = default;
  ~AllocatorInterface() = default;
};

// Once a manager holds this many bytes of chunks, its new chunks have this size.
inline constexpr std::size_t kLargestChunkSize = 932800;
inline constexpr std::size_t kChunkHeaderSize = 64;
// The largest request that the size-class table serves.
inline constexpr std::size_t kLargestTableSize = 8192;

namespace internal {

// Where a size above a manager's block size is reported.
inline constexpr const char* kContractFile = "..\\..\\utility\\src\\SmallBlockAllocator";
inline constexpr long kContractLine = 530;

// The header at the start of each chunk's own memory; the blocks follow it.
struct alignas(16) Chunk {
  Chunk* self;
  std::uint64_t chunkSize;
  std::uint64_t blockSize;
  std::uint32_t blockCount;
  std::atomic<std::uint64_t> used;
  alignas(16) threads::internal::LockFreeStack
      freeBlocks;  // a free block's first bytes hold its link
  unsigned char reserved[kChunkHeaderSize - 48 - sizeof(threads::internal::LockFreeStack)];
};
static_assert(sizeof(Chunk) == kChunkHeaderSize, "chunk header is 64 bytes");

// A growable array of chunk pointers in 16 bytes, so that a manager's fast-path
// fields fit one cache line. Used both as the manager's list of chunks and, kept
// sorted by address, as its address set. Changed only under the growth lock
// with the view closed; read by fast-path threads while the view is open.
class ChunkList {
 public:
  ChunkList() = default;
  ChunkList(const ChunkList&) = delete;
  ChunkList& operator=(const ChunkList&) = delete;

  Chunk** begin() const noexcept { return items_; }
  Chunk** end() const noexcept { return items_ + size_; }
  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Chunk* back() const noexcept { return items_[size_ - 1]; }
  void pop_back() noexcept { --size_; }

  // Throws std::bad_alloc when the room can't be had; the list is unchanged then.
  void reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    void* grown = std::realloc(items_, capacity * sizeof(Chunk*));
    if (grown == nullptr) throw std::bad_alloc();
    items_ = static_cast<Chunk**>(grown);
    capacity_ = static_cast<std::uint32_t>(capacity);
  }
  void push_back(Chunk* chunk) { insert(end(), chunk); }
  void insert(Chunk** at, Chunk* chunk) {
    const std::size_t index = static_cast<std::size_t>(at - items_);
    if (size_ == capacity_) reserve(capacity_ == 0 ? 16 : 2 * std::size_t{capacity_});
    std::move_backward(items_ + index, items_ + size_, items_ + size_ + 1);
    items_[index] = chunk;
    ++size_;
  }
  void erase(Chunk** at) noexcept {
    std::move(at + 1, end(), at);
    --size_;
  }

  // The address-ordered form: the first entry whose base is above `address`.
  Chunk** UpperBound(const void* address) const noexcept {
    return std::upper_bound(begin(), end(), address, [](const void* a, const Chunk* chunk) {
      return reinterpret_cast<std::uintptr_t>(a) < reinterpret_cast<std::uintptr_t>(chunk);
    });
  }
  void InsertOrdered(Chunk* chunk) { insert(UpperBound(chunk), chunk); }
  void EraseOrdered(Chunk* chunk) noexcept {
    Chunk** at = UpperBound(chunk);
    if (at != begin() && *(at - 1) == chunk) erase(at - 1);
  }

 private:
  Chunk** items_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
};
static_assert(sizeof(ChunkList) == 16, "a chunk list is a pointer and two counts");

// A manager's growth lock: the library's reentrant futex mutex, declared as a
// lock to the compiler's thread-safety analysis so that the members it
// guards are checked.
class TVX_CAPABILITY("mutex") GrowthLock {
 public:
  constexpr GrowthLock() noexcept = default;
  GrowthLock(const GrowthLock&) = delete;
  GrowthLock& operator=(const GrowthLock&) = delete;

  void Lock() noexcept TVX_ACQUIRE() TVX_NO_THREAD_SAFETY_ANALYSIS { mutex_.Lock(); }
  void Unlock() noexcept TVX_RELEASE() TVX_NO_THREAD_SAFETY_ANALYSIS { mutex_.Unlock(); }

 private:
  threads::internal::FutexRecursiveMutex mutex_;
};

// A manager's view lock: the library's shared/exclusive lock, declared to the
// analysis so that the published view is read only under it.
class TVX_CAPABILITY("mutex") ViewLock {
 public:
  ViewLock() = default;
  ViewLock(const ViewLock&) = delete;
  ViewLock& operator=(const ViewLock&) = delete;

  TVX_ALWAYS_INLINE bool TryLockShared()
      TVX_TRY_ACQUIRE_SHARED(true) TVX_NO_THREAD_SAFETY_ANALYSIS {
    return lock_.TryLockShared();
  }
  void LockShared() TVX_ACQUIRE_SHARED() TVX_NO_THREAD_SAFETY_ANALYSIS { lock_.LockShared(); }
  TVX_ALWAYS_INLINE void UnlockShared() TVX_RELEASE_SHARED() TVX_NO_THREAD_SAFETY_ANALYSIS {
    lock_.UnlockShared();
  }
  void LockExclusive() TVX_ACQUIRE() TVX_NO_THREAD_SAFETY_ANALYSIS { lock_.LockExclusive(); }
  void UnlockExclusive() TVX_RELEASE() TVX_NO_THREAD_SAFETY_ANALYSIS { lock_.UnlockExclusive(); }

 private:
  threads::ReadWriteLock lock_;
};

}  // namespace internal

// A manager of blocks of kBlockSize bytes. New chunks are kFirstChunkSize
// bytes while it holds less than kSecondChunkSize bytes of chunks, then
// kSecondChunkSize, and kLargestChunkSize once it holds that much. When every
// block is free it gives back all chunks, or all but one if kKeepLastChunk.
//
// Allocate and Deallocate are thread-safe. Their fast path holds the view lock
// shared for a few instructions; chunks are added, sorted and given back under
// the growth lock with the view closed, so no fast path sees them change.
// Locks are taken from small block size to large only: a manager that holds
// its growth lock calls the manager one level up for chunks.
template <std::size_t kBlockSize, std::size_t kFirstChunkSize, std::size_t kSecondChunkSize,
          int kKeepLastChunk>
class alignas(64) AllocatorManager final : public AllocatorInterface {
  static_assert(kBlockSize % 16 == 0, "blocks must keep 16-byte alignment");
  static_assert(kFirstChunkSize - kChunkHeaderSize >= kBlockSize, "a chunk holds a block");

 public:
  // What a manager holds, for tests and reports.
  struct Census {
    std::size_t chunks;
    std::uint64_t heldBytes;
    std::int64_t freeBlocks;
    std::uint64_t usedBlocks;
  };

  AllocatorManager() {
    view_.chunks.reserve(256);
    view_.chunkSet.reserve(256);
    published_.store(&view_, std::memory_order_release);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(AllocatorManager, view_) + offsetof(View, freeCount) == kHotLine &&
                      offsetof(AllocatorManager, viewLock_) + sizeof(std::uint64_t) <= 2 * kHotLine,
                  "the free count and the view lock word share one cache line");
#pragma GCC diagnostic pop
  }
  AllocatorManager(const AllocatorManager&) = delete;
  AllocatorManager& operator=(const AllocatorManager&) = delete;

  void* Allocate(std::size_t inSize) override {
    TVX_CONTRACT(inSize <= kBlockSize, internal::kContractFile, internal::kContractLine);
    if (void* block = TryPopFast()) return block;
    return AllocateSlow();
  }

  bool Deallocate(void* inPointer, std::size_t inSize) override {
    TVX_CONTRACT(inSize <= kBlockSize, internal::kContractFile, internal::kContractLine);
    Outcome outcome = TryReturnFast(inPointer, false);
    if (outcome == Outcome::kNotTried) {
      // Under the growth lock nobody else can hold the view closed or be
      // announced as its writer, so the shared lock comes at once.
      GrowthLockHolder hold(growthLock_);
      outcome = TryReturnFast(inPointer, true);
    }
    if (outcome == Outcome::kReturnedChunkEmpty) {
      GrowthLockHolder hold(growthLock_);
      CloseView();
      ViewReopener reopen(*this);
      Shrink();
    }
    return outcome != Outcome::kForeign;
  }

  std::size_t GetBlockSize() const override { return kBlockSize; }

  // Whether the block lies in one of this manager's chunks (the allocator's
  // debug checks ask before a block enters a thread's cache).
  bool Contains(const void* inPointer) {
    if (viewLock_.TryLockShared()) {
      const bool found = FindInOpenView(inPointer);
      viewLock_.UnlockShared();
      if (found) return true;  // else the view was maybe closed: ask again
    }
    GrowthLockHolder hold(growthLock_);
    return FindChunk(view_, inPointer) != nullptr;
  }

  // Around fork(): the caller locks every manager from small block size to
  // large, so that no thread is inside a manager when the process is copied,
  // and unlocks them after it. The child, which has only the forking thread,
  // starts with fresh locks: the view lock's inner mutexes may have been held
  // by a thread that the child does not have.
  void LockForFork() TVX_NO_THREAD_SAFETY_ANALYSIS {
    growthLock_.Lock();
    viewLock_.LockExclusive();
  }
  void UnlockAfterFork(bool inChild) TVX_NO_THREAD_SAFETY_ANALYSIS {
    if (inChild) {
      new (&viewLock_) internal::ViewLock;
      new (&growthLock_) internal::GrowthLock;
      return;
    }
    viewLock_.UnlockExclusive();
    growthLock_.Unlock();
  }

  Census TakeCensus() {
    GrowthLockHolder hold(growthLock_);
    Census census{view_.chunks.size(), held_, view_.freeCount.load(std::memory_order_relaxed), 0};
    for (const internal::Chunk* chunk : view_.chunks)
      census.usedBlocks += chunk->used.load(std::memory_order_relaxed);
    return census;
  }

 private:
  enum class Outcome { kNotTried, kReturned, kReturnedChunkEmpty, kForeign };

  // Items 2 to 5 of the manager's state, reached through published_ while the
  // fast path is allowed.
  struct View {
    internal::Chunk* current = nullptr;
    std::atomic<std::int64_t> freeCount{0};
    internal::ChunkList chunks;
    internal::ChunkList chunkSet;  // ordered by address
  };

  class TVX_SCOPED_CAPABILITY GrowthLockHolder {
   public:
    explicit GrowthLockHolder(internal::GrowthLock& lock) TVX_ACQUIRE(lock) : lock_(lock) {
      lock_.Lock();
    }
    ~GrowthLockHolder() TVX_RELEASE() { lock_.Unlock(); }
    GrowthLockHolder(const GrowthLockHolder&) = delete;
    GrowthLockHolder& operator=(const GrowthLockHolder&) = delete;

   private:
    internal::GrowthLock& lock_;
  };

  // Publishes the view again when the structure change ends, also by an exception.
  class ViewReopener {
   public:
    explicit ViewReopener(AllocatorManager& manager) : manager_(manager) {}
    // Opening needs no lock: a fast path that still sees null falls back to
    // the growth lock, which the reopening thread holds.
    ~ViewReopener() TVX_NO_THREAD_SAFETY_ANALYSIS {
      manager_.published_.store(&manager_.view_, std::memory_order_release);
    }
    ViewReopener(const ViewReopener&) = delete;
    ViewReopener& operator=(const ViewReopener&) = delete;

   private:
    AllocatorManager& manager_;
  };

  void* TryPopFast() {
    if (!viewLock_.TryLockShared()) return nullptr;
    void* block = nullptr;
    if (View* view = published_.load(std::memory_order_acquire)) {
      if (internal::Chunk* chunk = view->current) {
        block = chunk->freeBlocks.Pop();
        if (block != nullptr) {
          chunk->used.fetch_add(1, std::memory_order_relaxed);
          view->freeCount.fetch_sub(1, std::memory_order_relaxed);
        }
      }
    }
    viewLock_.UnlockShared();
    return block;
  }

  void* AllocateSlow() {
    GrowthLockHolder hold(growthLock_);
    // Another thread may have grown the manager while this one waited.
    if (void* block = TryPopFast()) return block;
    CloseView();
    ViewReopener reopen(*this);
    void* block = nullptr;
    if (view_.freeCount.load(std::memory_order_relaxed) != 0 && !view_.chunks.empty()) {
      // Refill from the emptiest chunk; full chunks drift to the front.
      SortByUsedDescending();
      view_.current = view_.chunks.back();
      block = PopFromCurrent();
    }
    if (block == nullptr) {
      Grow();
      block = PopFromCurrent();
    }
    return block;
  }

  // With the view closed: nobody else touches the chunks.
  void* PopFromCurrent() TVX_REQUIRES(growthLock_) {
    internal::Chunk* chunk = view_.current;
    if (chunk == nullptr) return nullptr;
    void* block = chunk->freeBlocks.Pop();
    if (block != nullptr) {
      chunk->used.fetch_add(1, std::memory_order_relaxed);
      view_.freeCount.fetch_sub(1, std::memory_order_relaxed);
    }
    return block;
  }

  Outcome TryReturnFast(void* pointer, bool mayWait) {
    if (mayWait) {
      viewLock_.LockShared();
    } else if (!viewLock_.TryLockShared()) {
      return Outcome::kNotTried;
    }
    Outcome outcome = Outcome::kNotTried;
    if (View* view = published_.load(std::memory_order_acquire)) {
      internal::Chunk* chunk = FindChunk(*view, pointer);
      if (chunk == nullptr) {
        outcome = Outcome::kForeign;
      } else {
        // The free count goes up before the push, so it may briefly be high.
        view->freeCount.fetch_add(1, std::memory_order_relaxed);
        chunk->freeBlocks.Push(pointer);
        const bool empty = chunk->used.fetch_sub(1, std::memory_order_relaxed) == 1;
        const std::size_t keep = kKeepLastChunk ? 1 : 0;
        outcome =
            empty && view->chunks.size() > keep ? Outcome::kReturnedChunkEmpty : Outcome::kReturned;
      }
    }
    viewLock_.UnlockShared();
    return outcome;
  }

  bool FindInOpenView(const void* pointer) TVX_REQUIRES_SHARED(viewLock_) {
    const View* view = published_.load(std::memory_order_acquire);
    return view != nullptr && FindChunk(*view, pointer) != nullptr;
  }

  static internal::Chunk* FindChunk(const View& view, const void* pointer) {
    const auto address = reinterpret_cast<std::uintptr_t>(pointer);
    auto contains = [address](const internal::Chunk* chunk) {
      const auto base = reinterpret_cast<std::uintptr_t>(chunk);
      return address >= base && address < base + chunk->chunkSize;
    };
    if (view.current != nullptr && contains(view.current)) return view.current;
    internal::Chunk** it = view.chunkSet.UpperBound(pointer);
    if (it == view.chunkSet.begin()) return nullptr;
    --it;
    return contains(*it) ? *it : nullptr;
  }

  // Waits out every fast-path user and leaves the view closed.
  void CloseView() TVX_REQUIRES(growthLock_) {
    viewLock_.LockExclusive();
    published_.store(nullptr, std::memory_order_relaxed);
    viewLock_.UnlockExclusive();
  }

  void SortByUsedDescending() TVX_REQUIRES(growthLock_) {
    std::sort(view_.chunks.begin(), view_.chunks.end(),
              [](const internal::Chunk* a, const internal::Chunk* b) {
                return a->used.load(std::memory_order_relaxed) >
                       b->used.load(std::memory_order_relaxed);
              });
  }

  void Grow() TVX_REQUIRES(growthLock_) {
    const std::size_t size = held_ >= kLargestChunkSize  ? kLargestChunkSize
                             : held_ >= kSecondChunkSize ? kSecondChunkSize
                                                         : kFirstChunkSize;
    // From the manager one level up, or the system at the top; throws when
    // memory is exhausted.
    void* memory = SmallBlockAllocator::Allocate(size);
    auto* chunk = new (memory) internal::Chunk;
    chunk->self = chunk;
    chunk->chunkSize = size;
    chunk->blockSize = kBlockSize;
    chunk->blockCount = static_cast<std::uint32_t>((size - kChunkHeaderSize) / kBlockSize);
    chunk->used.store(0, std::memory_order_relaxed);
    // Blocks are handed out from the end of the chunk downward.
    chunk->freeBlocks.BuildUnshared(static_cast<unsigned char*>(memory) + kChunkHeaderSize,
                                    chunk->blockCount, kBlockSize);
    try {
      view_.chunks.push_back(chunk);
      try {
        view_.chunkSet.InsertOrdered(chunk);
      } catch (...) {
        view_.chunks.pop_back();
        throw;
      }
    } catch (...) {
      SmallBlockAllocator::Dispose(memory, size);
      throw;
    }
    held_ += size;
    view_.freeCount.fetch_add(chunk->blockCount, std::memory_order_relaxed);
    view_.current = chunk;
  }

  void Shrink() TVX_REQUIRES(growthLock_) {
    const std::size_t keep = kKeepLastChunk ? 1 : 0;
    if (view_.chunks.size() <= keep) return;
    SortByUsedDescending();
    view_.current = view_.chunks.empty() ? nullptr : view_.chunks.back();
    while (view_.chunks.size() > keep &&
           view_.chunks.back()->used.load(std::memory_order_relaxed) == 0) {
      internal::Chunk* chunk = view_.chunks.back();
      view_.chunks.pop_back();
      view_.chunkSet.EraseOrdered(chunk);
      view_.freeCount.fetch_sub(chunk->blockCount, std::memory_order_relaxed);
      if (view_.current == chunk) view_.current = nullptr;
      const std::size_t size = chunk->chunkSize;
      held_ -= size;
      // May in turn empty a chunk of the next level.
      SmallBlockAllocator::Dispose(chunk->self, size);
    }
  }

  // Every allocation and release writes the free count and the view lock's
  // word and reads the published view, the current chunk's address and the
  // chunk lists. The padding puts all of these but the current chunk (written
  // only with the view closed) in one cache line, so threads sharing a class
  // pass one line of the manager between them instead of two.
  static constexpr std::size_t kHotLine = 64;
  static constexpr std::size_t kPadding =
      kHotLine - sizeof(void*) - sizeof(void*) - sizeof(internal::GrowthLock);
  [[maybe_unused]] unsigned char padding_[kPadding];
  internal::GrowthLock growthLock_;
  // Changed only under the growth lock with the view closed; the fast path
  // reads it through published_ under the view lock.
  View view_ TVX_GUARDED_BY(growthLock_);
  std::uint64_t held_ TVX_GUARDED_BY(growthLock_) = 0;  // bytes in chunks
  // Stored with the view lock held exclusively when the view closes, and
  // without it when the view opens again (see ViewReopener).
  std::atomic<View*> published_ TVX_GUARDED_BY(viewLock_){nullptr};
  internal::ViewLock viewLock_;
};

}  // namespace tvxcore::utility
