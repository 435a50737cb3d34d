// tvxcore/utility/SmallBlockAllocator.h: the general heap of the library.
//
// Blocks of up to 8192 bytes come from 70 size-classed managers that hand out
// blocks through lock-free stacks; bigger requests go to the system's pages.
// In front of the managers each thread keeps a small cache of free blocks per
// size class, so that most requests take no atomic operation; it can be
// switched off (SetThreadCaching, TVX_SMALLBLOCK_THREAD_CACHE=0).
// Blocks carry no header: Dispose() must be told the size given to Allocate().
// All functions are thread-safe, and a block may be freed on any thread.
#pragma once

#include <cstddef>
#include <limits>
#include <map>
#include <new>
#include <vector>

#include "tvxcore/Export.h"

namespace tvxcore::utility {

class TVXCORE_EXPORT SmallBlockAllocator {
 public:
  SmallBlockAllocator() = delete;

  // Returns a block of at least `size` bytes, 16-byte aligned. Never returns
  // null: running out of memory throws std::bad_alloc ("bad allocation").
  static void* Allocate(std::size_t size);

  // Gives back a block. `size` must be the value passed to Allocate(); a null
  // pointer is ignored. A wrong size is not detected.
  static void Dispose(void* pointer, std::size_t size);

  // The size of the block a request of `size` bytes would get: `size` itself
  // above 8192 or before the allocator has built its tables.
  static std::size_t GetActualAllocationSize(std::size_t size);

  // Per-thread caching. Each thread keeps up to 64 KiB (at most 1024 blocks)
  // of free blocks per size class up to 8192 bytes, at most 384 KiB in all,
  // and hands surplus blocks on in batches; a block freed on another thread
  // than its allocator's goes to the freeing thread's cache. Full batches
  // pass between threads through a transfer cache (at most a list's worth,
  // 64 KiB, a class). A thread's blocks go back to the managers when it
  // ends. Requests of exactly 4160 bytes and above 8192 bytes always go to
  // the managers or the system.
  //
  // Caching is on unless the environment variable TVX_SMALLBLOCK_THREAD_CACHE
  // is "0" (or "off", "no", "false") when the first thread would take a
  // cache, or SetThreadCaching(false) is called. Off, every request goes to
  // the managers as they stand, with no per-thread state: call it before the
  // first allocation to have that for the whole process. Turning caching off
  // later flushes the calling thread and the transfer cache; other threads
  // keep their caches until they end or call FlushThreadCache().
  static void SetThreadCaching(bool enabled);
  static bool IsThreadCaching();

  // Gives the calling thread's cached blocks and every batch in the transfer
  // cache back to the managers, which then give back the chunks that hold
  // no used block. Blocks cached by other threads stay where they are. Also
  // drops the calling thread's cache when caching is off.
  static void FlushThreadCache();

  // No metrics are gathered: GetSnapshot() returns false and leaves its
  // argument alone.
  class TVXCORE_EXPORT Metrics {
   public:
    struct Snapshot {};
    static bool GetSnapshot(Snapshot& outSnapshot);
  };

  // Standard allocator over Allocate()/Dispose(). All instances compare equal.
  template <typename T>
  class STLAllocator {
   public:
    using value_type = T;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using propagate_on_container_move_assignment = std::true_type;
    using is_always_equal = std::true_type;
    template <typename U>
    struct rebind {
      using other = STLAllocator<U>;
    };

    STLAllocator() noexcept = default;
    template <typename U>
    STLAllocator(const STLAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
      if (n > std::numeric_limits<std::size_t>::max() / sizeof(T))
        throw std::bad_array_new_length();
      return static_cast<T*>(SmallBlockAllocator::Allocate(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t n) noexcept {
      SmallBlockAllocator::Dispose(p, n * sizeof(T));
    }

    template <typename U>
    bool operator==(const STLAllocator<U>&) const noexcept {
      return true;
    }
    template <typename U>
    bool operator!=(const STLAllocator<U>&) const noexcept {
      return false;
    }
  };

  // Base class that makes `new T` and `delete` of a class use the allocator.
  template <typename T>
  class Allocated {
   public:
    static void* operator new(std::size_t size) { return SmallBlockAllocator::Allocate(size); }
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
      try {
        return SmallBlockAllocator::Allocate(size);
      } catch (...) {
        return nullptr;
      }
    }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* pointer, std::size_t size) noexcept {
      SmallBlockAllocator::Dispose(pointer, size);
    }
    static void operator delete(void*, void*) noexcept {}

   protected:
    Allocated() = default;
    ~Allocated() = default;
  };

  template <typename K, typename V, typename Compare = std::less<K>>
  using map = std::map<K, V, Compare, STLAllocator<std::pair<const K, V>>>;
  template <typename T>
  using vector = std::vector<T, STLAllocator<T>>;
};

}  // namespace tvxcore::utility
