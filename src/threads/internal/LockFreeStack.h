// An intrusive lock-free stack (Treiber stack) with ABA protection: the top
// pointer and a modification tag share one 64-bit word and change together in
// one compare-and-swap. Used by the allocator's chunks for their free blocks
// and by the lock and gate record pools.
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
class LockFreeStack {
 public:
  constexpr LockFreeStack() noexcept = default;
  LockFreeStack(const LockFreeStack&) = delete;
  LockFreeStack& operator=(const LockFreeStack&) = delete;

  __attribute__((always_inline)) void Push(void* element) noexcept {
    auto* link = static_cast<std::uint64_t*>(element);
    const std::uint64_t node = reinterpret_cast<std::uint64_t>(element);
    std::uint64_t word = __atomic_load_n(&word_, __ATOMIC_RELAXED);
    for (;;) {
      __atomic_store_n(link, word & kAddressMask, __ATOMIC_RELAXED);
      if (__atomic_compare_exchange_n(&word_, &word, Pack(node, NextTag(word)), true,
                                      __ATOMIC_RELEASE, __ATOMIC_RELAXED))
        return;
    }
  }

  // Returns the top element, or null when the stack is empty.
  __attribute__((always_inline)) void* Pop() noexcept {
    std::uint64_t word = __atomic_load_n(&word_, __ATOMIC_ACQUIRE);
    for (;;) {
      const std::uint64_t top = word & kAddressMask;
      if (top == 0) return nullptr;
      const std::uint64_t next = ReadLink(top);
      if (__atomic_compare_exchange_n(&word_, &word, Pack(next, NextTag(word)), true,
                                      __ATOMIC_ACQUIRE, __ATOMIC_ACQUIRE))
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
    // Published by whatever makes the stack reachable.
    __atomic_store_n(&word_, below, __ATOMIC_RELAXED);
  }

  bool IsEmpty() const noexcept {
    return (__atomic_load_n(&word_, __ATOMIC_ACQUIRE) & kAddressMask) == 0;
  }

 private:
  // Elements are 16-byte aligned and user-space addresses on x86-64 Linux stay
  // below 2^47, so an element's address leaves the low 4 and the high 16 bits
  // of the word free: together they hold a 20-bit tag that every push and pop
  // advances. A pop that read a stale top fails its compare-and-swap unless
  // exactly 2^20 operations happened in between while its thread was paused.
  static constexpr std::uint64_t kAddressMask = 0x0000FFFFFFFFFFF0ull;
  static constexpr std::uint64_t kLowTagMask = 0xF;

  static std::uint64_t NextTag(std::uint64_t word) noexcept {
    // Adding 1 to the low nibble carries into bit 4; route that carry to bit 48.
    const std::uint64_t low = (word & kLowTagMask) + 1;
    const std::uint64_t high = (word >> 48) + (low >> 4);
    return ((high & 0xFFFF) << 48) | (low & kLowTagMask);
  }
  static std::uint64_t Pack(std::uint64_t address, std::uint64_t tagBits) noexcept {
    return address | tagBits;
  }

  // Reads the link of an element that may have been popped and handed to a
  // new owner since `top` was read. The value is then stale but harmless: the
  // tag check of the following compare-and-swap rejects it. ThreadSanitizer
  // cannot know that the value is discarded, so under it this one load is left
  // uninstrumented; every ordering the stack relies on still goes through the
  // instrumented loads of the word and the compare-and-swap.
#if defined(__SANITIZE_THREAD__)
  __attribute__((noinline, no_sanitize_thread))
#endif
  static std::uint64_t
  ReadLink(std::uint64_t element) noexcept {
    return __atomic_load_n(reinterpret_cast<const std::uint64_t*>(element), __ATOMIC_RELAXED);
  }

  std::uint64_t word_ = 0;
};

static_assert(sizeof(LockFreeStack) == 8);

}  // namespace tvxcore::threads::internal
