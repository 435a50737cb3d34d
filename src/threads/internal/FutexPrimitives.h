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
// lock word (kFree, kHeld, or kContended: held with sleepers). The owner may lock again;
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
    std::uint32_t expected = kFree;
    if (!word_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
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
    std::uint32_t expected = kFree;
    if (!word_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
                                       std::memory_order_relaxed))
      return false;
    owner_.store(self, std::memory_order_relaxed);
    recursion_ = 1;
    return true;
  }

  void Unlock() noexcept TVX_RELEASE() TVX_NO_THREAD_SAFETY_ANALYSIS {
    if (--recursion_ != 0) return;
    owner_.store(kNoOwner, std::memory_order_relaxed);
    if (word_.exchange(kFree, std::memory_order_release) == kContended)
      platform::FutexWake(&word_, 1);
  }

  bool IsHeldByCurrentThread() const noexcept {
    return owner_.load(std::memory_order_relaxed) == platform::CurrentThreadId();
  }

 private:
  // The states of the lock word; a futex word is a plain 32-bit integer.
  static constexpr std::uint32_t kFree = 0;
  static constexpr std::uint32_t kHeld = 1;
  static constexpr std::uint32_t kContended = 2;
  // No thread has the id 0.
  static constexpr std::uint32_t kNoOwner = 0;

  void LockContended(std::uint32_t seen) noexcept {
    if (seen != kContended) seen = word_.exchange(kContended, std::memory_order_acquire);
    while (seen != kFree) {
      platform::FutexWait(&word_, kContended, -1);
      seen = word_.exchange(kContended, std::memory_order_acquire);
    }
  }

  std::atomic<std::uint32_t> word_{kFree};
  std::atomic<std::uint32_t> owner_{kNoOwner};
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
    if (signalled_.exchange(kSignalled, std::memory_order_seq_cst) == kNotSignalled)
      platform::FutexWake(&signalled_, kWakeAll);
  }
  void Reset() noexcept { signalled_.store(kNotSignalled, std::memory_order_seq_cst); }

  // Waits until signalled, at most `milliseconds` (negative: for ever).
  // Returns whether the event was found signalled.
  bool Wait(int milliseconds) noexcept;

 private:
  // The states of the futex word.
  static constexpr std::uint32_t kNotSignalled = 0;
  static constexpr std::uint32_t kSignalled = 1;
  static constexpr int kWakeAll = 0x7fffffff;

  std::atomic<std::uint32_t> signalled_{kNotSignalled};
};

}  // namespace tvxcore::threads::internal
