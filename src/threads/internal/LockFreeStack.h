// An intrusive lock-free stack (Treiber stack) with ABA protection: the top
// pointer and a modification tag change together in one 16-byte
// compare-and-swap (cmpxchg16b, built with -mcx16). Used by the allocator's
// chunks for their free blocks and by the lock and gate record pools.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvxcore::threads::internal {

// Each element is at least 16 bytes, 16-byte aligned, and while it sits on the
// stack its first 8 bytes hold the link to the next element. Push and Pop are
// safe from any number of threads at once and never block.
//
// Memory that has been popped may be written by its new owner while another
// thread, which read the same top a moment earlier, still reads the link from
// it; that thread's compare-and-swap then fails because the tag moved on. The
// memory must therefore stay mapped while any Pop may run (the allocator only
// returns chunks after shutting out all poppers).
class alignas(16) LockFreeStack {
 public:
  constexpr LockFreeStack() noexcept = default;
  LockFreeStack(const LockFreeStack&) = delete;
  LockFreeStack& operator=(const LockFreeStack&) = delete;

  __attribute__((always_inline)) void Push(void* element) noexcept {
    auto* link = static_cast<std::uint64_t*>(element);
    const std::uint64_t node = reinterpret_cast<std::uint64_t>(element);
    for (;;) {
      const std::uint64_t tag = __atomic_load_n(&tag_, __ATOMIC_ACQUIRE);
      const std::uint64_t top = __atomic_load_n(&top_, __ATOMIC_ACQUIRE);
      __atomic_store_n(link, top, __ATOMIC_RELAXED);
      if (__sync_bool_compare_and_swap(&word_, Pack(top, tag), Pack(node, tag + 1))) return;
    }
  }

  // Returns the top element, or null when the stack is empty.
  __attribute__((always_inline)) void* Pop() noexcept {
    for (;;) {
      const std::uint64_t tag = __atomic_load_n(&tag_, __ATOMIC_ACQUIRE);
      const std::uint64_t top = __atomic_load_n(&top_, __ATOMIC_ACQUIRE);
      if (top == 0) return nullptr;
      const std::uint64_t next = ReadLink(top);
      if (__sync_bool_compare_and_swap(&word_, Pack(top, tag), Pack(next, tag + 1)))
        return reinterpret_cast<void*>(top);
    }
  }

  // Links `count` elements of `stride` bytes from `first` upward into a stack
  // whose top is the last element, as if each had been pushed in turn. Only
  // for a stack that no other thread can reach yet.
  void BuildUnshared(void* first, std::size_t count, std::size_t stride) noexcept {
    auto* base = static_cast<unsigned char*>(first);
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < count; ++i) {
      auto* element = base + i * stride;
      __atomic_store_n(reinterpret_cast<std::uint64_t*>(element), below, __ATOMIC_RELAXED);
      below = reinterpret_cast<std::uint64_t>(element);
    }
    word_ = Pack(below, 0);  // published by whatever makes the stack reachable
  }

  bool IsEmpty() const noexcept { return __atomic_load_n(&top_, __ATOMIC_ACQUIRE) == 0; }

 private:
  static unsigned __int128 Pack(std::uint64_t top, std::uint64_t tag) noexcept {
    return (static_cast<unsigned __int128>(tag) << 64) | top;
  }

  // Reads the link of an element that may have been popped and handed to a
  // new owner since `top` was read. The value is then stale but harmless: the
  // tag check of the following compare-and-swap rejects it. ThreadSanitizer
  // cannot know that the value is discarded, so under it this one load is left
  // uninstrumented; every ordering the stack relies on still goes through the
  // instrumented tag/top loads and the compare-and-swap.
#if defined(__SANITIZE_THREAD__)
  __attribute__((noinline, no_sanitize_thread))
#endif
  static std::uint64_t
  ReadLink(std::uint64_t element) noexcept {
    return __atomic_load_n(reinterpret_cast<const std::uint64_t*>(element), __ATOMIC_RELAXED);
  }

  // word_ overlays {top_, tag_}: the halves are read one at a time (a torn
  // pair only makes the compare-and-swap fail) and written together.
  union {
    unsigned __int128 word_ = 0;
    struct {
      std::uint64_t top_;
      std::uint64_t tag_;
    };
  };
};

static_assert(sizeof(LockFreeStack) == 16);

}  // namespace tvxcore::threads::internal
