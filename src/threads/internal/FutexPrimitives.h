// The library's own reentrant mutex and manual-reset event, built on one
// futex word each. They need no construction call to the kernel, so they can
// sit in pooled records and inside the allocator's managers.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Sync.h"
#include "platform/Thread.h"
#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::threads::internal {

// Reentrant mutual exclusion: an owner thread id, a recursion count and a
// lock word (0 free, 1 held, 2 held with sleepers). The owner may lock again;
// each Lock or successful TryLock is paired with one Unlock by the owner.
//
// To the thread-safety analysis it is a plain lock (a capability): what it
// guards says TVX_GUARDED_BY, and a lock type built on it passes the contract
// on. Its own three operations are its implementation and are not analysed.
class TVX_CAPABILITY("mutex") FutexRecursiveMutex {
 public:
  constexpr FutexRecursiveMutex() noexcept = default;
  FutexRecursiveMutex(const FutexRecursiveMutex&) = delete;
  FutexRecursiveMutex& operator=(const FutexRecursiveMutex&) = delete;

  void Lock() noexcept TVX_ACQUIRE() TVX_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t self = platform::CurrentThreadId();
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++recursion_;
      return;
    }
    std::uint32_t expected = 0;
    if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                       std::memory_order_relaxed))
      LockContended(expected);
    owner_.store(self, std::memory_order_relaxed);
    recursion_ = 1;
  }

  bool TryLock() noexcept TVX_TRY_ACQUIRE(true) TVX_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t self = platform::CurrentThreadId();
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++recursion_;
      return true;
    }
    std::uint32_t expected = 0;
    if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                       std::memory_order_relaxed))
      return false;
    owner_.store(self, std::memory_order_relaxed);
    recursion_ = 1;
    return true;
  }

  void Unlock() noexcept TVX_RELEASE() TVX_NO_THREAD_SAFETY_ANALYSIS {
    if (--recursion_ != 0) return;
    owner_.store(0, std::memory_order_relaxed);
    if (word_.exchange(0, std::memory_order_release) == 2) platform::FutexWake(&word_, 1);
  }

  bool IsHeldByCurrentThread() const noexcept {
    return owner_.load(std::memory_order_relaxed) == platform::CurrentThreadId();
  }

 private:
  void LockContended(std::uint32_t seen) noexcept {
    if (seen != 2) seen = word_.exchange(2, std::memory_order_acquire);
    while (seen != 0) {
      platform::FutexWait(&word_, 2, -1);
      seen = word_.exchange(2, std::memory_order_acquire);
    }
  }

  std::atomic<std::uint32_t> word_{0};
  std::atomic<std::uint32_t> owner_{0};
  std::uint32_t recursion_ = 0;  // touched only by the owner
};

// An event that stays signalled until reset, created non-signalled. Set wakes
// every waiter.
class FutexManualResetEvent {
 public:
  constexpr FutexManualResetEvent() noexcept = default;
  FutexManualResetEvent(const FutexManualResetEvent&) = delete;
  FutexManualResetEvent& operator=(const FutexManualResetEvent&) = delete;

  void Set() noexcept {
    if (signalled_.exchange(1, std::memory_order_seq_cst) == 0)
      platform::FutexWake(&signalled_, 0x7fffffff);
  }
  void Reset() noexcept { signalled_.store(0, std::memory_order_seq_cst); }

  // Waits until signalled, at most `milliseconds` (negative: for ever).
  // Returns whether the event was found signalled.
  bool Wait(int milliseconds) noexcept;

 private:
  std::atomic<std::uint32_t> signalled_{0};
};

}  // namespace tvxcore::threads::internal
