// An intrusive lock-free stack (Treiber stack) with ABA protection: the top
// pointer and a modification tag change together in one compare-and-swap.
// Used by the allocator's chunks for their free blocks and by the lock and
// gate record pools.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::threads::internal {

// The two forms of the stack's 16 bytes of state. Each is a complete stack;
// LockFreeStack uses one of them for the whole process.
//
// Packed: the top pointer and a 20-bit tag share the first 8 bytes and change
// in one 8-byte compare-and-swap. Elements are 16-byte aligned and lie below
// 2^48, which leaves the low 4 and the high 16 bits of the word to the tag. A
// pop that read a stale top fails its compare-and-swap unless exactly a
// multiple of 2^20 operations happened in between while its thread was paused.
struct PackedStackLayout {
  static constexpr std::uint64_t kAddressMask = 0x0000FFFFFFFFFFF0ull;
  static constexpr std::uint64_t kLowTagMask = 0xF;

  // Whether the form can hold `element`: 16-byte aligned and below 2^48.
  static bool Fits(const void* element) noexcept {
    return (reinterpret_cast<std::uint64_t>(element) & ~kAddressMask) == 0;
  }

  TVX_ALWAYS_INLINE static void Push(std::uint64_t* state, void* element) noexcept {
    if (__builtin_expect(!Fits(element), 0)) Unfit(element);
    auto* link = static_cast<std::uint64_t*>(element);
    const std::uint64_t node = reinterpret_cast<std::uint64_t>(element);
    std::uint64_t word = __atomic_load_n(state, __ATOMIC_RELAXED);
    for (;;) {
      __atomic_store_n(link, word & kAddressMask, __ATOMIC_RELAXED);
      if (__atomic_compare_exchange_n(state, &word, node | NextTag(word), true, __ATOMIC_RELEASE,
                                      __ATOMIC_RELAXED))
        return;
    }
  }

  TVX_ALWAYS_INLINE static void* Pop(std::uint64_t* state) noexcept {
    std::uint64_t word = __atomic_load_n(state, __ATOMIC_ACQUIRE);
    for (;;) {
      const std::uint64_t top = word & kAddressMask;
      if (top == 0) return nullptr;
      const std::uint64_t next = ReadLink(top);
      if (__atomic_compare_exchange_n(state, &word, next | NextTag(word), true, __ATOMIC_ACQUIRE,
                                      __ATOMIC_ACQUIRE))
        return reinterpret_cast<void*>(top);
    }
  }

  static std::uint64_t NextTag(std::uint64_t word) noexcept {
    // Adding 1 to the low nibble carries into bit 4; route that carry to bit 48.
    const std::uint64_t low = (word & kLowTagMask) + 1;
    const std::uint64_t high = (word >> 48) + (low >> 4);
    return ((high & 0xFFFF) << 48) | (low & kLowTagMask);
  }

  // Ends the process with a message: the element cannot be stored, and
  // storing part of its address would corrupt the stack.
  [[noreturn]] static void Unfit(const void* element) noexcept;

  // Reads the link of an element that may have been popped and handed to a
  // new owner since `top` was read. The value is then stale but harmless: the
  // tag check of the following compare-and-swap rejects it. ThreadSanitizer
  // cannot know that the value is discarded, so under it this one load is left
  // uninstrumented; every ordering the stack relies on still goes through the
  // instrumented loads of the state and the compare-and-swap.
#if defined(__SANITIZE_THREAD__)
  TVX_NOINLINE __attribute__((no_sanitize_thread))
#endif
  static std::uint64_t
  ReadLink(std::uint64_t element) noexcept {
    return __atomic_load_n(reinterpret_cast<const std::uint64_t*>(element), __ATOMIC_RELAXED);
  }
};

// Wide: the top pointer in the first 8 bytes and a 64-bit count of operations
// in the second, changed together by one 16-byte compare-and-swap
// (cmpxchg16b). Any address fits and the count does not come round in the
// life of a process, at more than twice the cost of the packed form per
// operation. The state must be 16-byte aligned.
struct WideStackLayout {
  static void Push(std::uint64_t* state, void* element) noexcept;
  static void* Pop(std::uint64_t* state) noexcept;
};

// Whether this process uses the wide form: when a mapping of the process can
// lie at or above 2^48, which takes 5-level paging, decided once on first use
// by asking the system for memory up there. The answer never changes.
bool ChooseWideStacks() noexcept;
extern int S_stackForm;  // 0 not yet chosen, 1 packed, 2 wide

inline bool UsesWideStacks() noexcept {
  const int form = __atomic_load_n(&S_stackForm, __ATOMIC_RELAXED);
  if (__builtin_expect(form == 0, 0)) return ChooseWideStacks();
  return form == 2;
}

// Each element is at least 16 bytes, 16-byte aligned, and while it sits on the
// stack its first 8 bytes hold the link to the next element. Push and Pop are
// safe from any number of threads at once and never block.
//
// Memory that has been popped may be written by its new owner while another
// thread, which read the same top a moment earlier, still reads the link from
// it; that thread's compare-and-swap then fails because the tag moved on. The
// memory must therefore stay mapped while any Pop may run (the allocator only
// returns chunks after shutting out all poppers).
//
// `Layout` fixes the form of one stack (tests run both). The default picks the
// packed form when every address of the process fits it and the wide form
// otherwise. The packed form still checks each element it is given and ends
// the process with a message rather than store an address it cannot hold.
template <typename Layout = void>
class BasicLockFreeStack {
 public:
  constexpr BasicLockFreeStack() noexcept = default;
  BasicLockFreeStack(const BasicLockFreeStack&) = delete;
  BasicLockFreeStack& operator=(const BasicLockFreeStack&) = delete;

  TVX_ALWAYS_INLINE void Push(void* element) noexcept {
    if (Wide()) {
      WideStackLayout::Push(state_, element);
    } else {
      PackedStackLayout::Push(state_, element);
    }
  }

  // Returns the top element, or null when the stack is empty.
  TVX_ALWAYS_INLINE void* Pop() noexcept {
    return Wide() ? WideStackLayout::Pop(state_) : PackedStackLayout::Pop(state_);
  }

  // Links `count` elements of `stride` bytes from `first` upward into a stack
  // whose top is the last element, as if each had been pushed in turn. Only
  // for a stack that no other thread can reach yet.
  void BuildUnshared(void* first, std::size_t count, std::size_t stride) noexcept {
    const bool wide = Wide();
    auto* base = static_cast<unsigned char*>(first);
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < count; ++i) {
      auto* element = base + i * stride;
      if (!wide && !PackedStackLayout::Fits(element)) PackedStackLayout::Unfit(element);
      __atomic_store_n(reinterpret_cast<std::uint64_t*>(element), below, __ATOMIC_RELAXED);
      below = reinterpret_cast<std::uint64_t>(element);
    }
    // Published by whatever makes the stack reachable. The tag or count
    // starts again at 0: no thread can hold an old top of this stack.
    __atomic_store_n(&state_[0], below, __ATOMIC_RELAXED);
    __atomic_store_n(&state_[1], std::uint64_t{0}, __ATOMIC_RELAXED);
  }

  bool IsEmpty() const noexcept {
    const std::uint64_t word = __atomic_load_n(&state_[0], __ATOMIC_ACQUIRE);
    return (Wide() ? word : word & PackedStackLayout::kAddressMask) == 0;
  }

 private:
  static bool Wide() noexcept {
    if constexpr (__is_same(Layout, PackedStackLayout)) {
      return false;
    } else if constexpr (__is_same(Layout, WideStackLayout)) {
      return true;
    } else {
      return UsesWideStacks();
    }
  }

  // Packed: the word, then 8 unused bytes. Wide: the top, then the count.
  alignas(16) std::uint64_t state_[2] = {0, 0};
};

using LockFreeStack = BasicLockFreeStack<>;

static_assert(sizeof(LockFreeStack) == 16 && alignof(LockFreeStack) == 16);

}  // namespace tvxcore::threads::internal
