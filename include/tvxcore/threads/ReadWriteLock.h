// tvxcore/threads/ReadWriteLock.h: a shared/exclusive lock in which writers
// take precedence, built for very short shared sections (the allocator's fast
// path, the executors' queues).
#pragma once

#include <atomic>
#include <boost/thread/condition_variable.hpp>
#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::threads {

// Many readers or one writer. A writer announces itself before it waits, and
// from that moment every TryLockShared() fails and LockShared() queues behind
// it, so a stream of readers cannot starve a writer.
//
// TryLockShared() without an announced writer is one compare-and-swap and
// never sleeps on a writer. Neither mode is recursive, and a thread holding
// the shared lock must not call LockExclusive(). All members are thread-safe.
//
// To clang's thread-safety analysis it is a shared capability: data it guards
// says TVX_GUARDED_BY, readers hold it shared and writers exclusively. The
// five operations are the lock's implementation and are not analysed.
class TVXCORE_EXPORT TVX_CAPABILITY("mutex") ReadWriteLock {
 public:
  ReadWriteLock() = default;
  ReadWriteLock(const ReadWriteLock&) = delete;
  ReadWriteLock& operator=(const ReadWriteLock&) = delete;

  // Takes the shared lock unless a writer is announced; false then, at once.
  TVX_ALWAYS_INLINE bool TryLockShared()
      TVX_TRY_ACQUIRE_SHARED(true) TVX_NO_THREAD_SAFETY_ANALYSIS {
    std::uint64_t seen = state_.load(std::memory_order_relaxed);
    if ((seen >> 32) != 0) return false;
    if (state_.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                     std::memory_order_relaxed))
      return true;
    return TryLockSharedContended();
  }

  // Takes the shared lock, waiting out an announced writer.
  void LockShared() TVX_ACQUIRE_SHARED();

  TVX_ALWAYS_INLINE void UnlockShared() TVX_RELEASE_SHARED() TVX_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint64_t before = state_.fetch_sub(1, std::memory_order_release);
    if ((before >> 32) != 0 && (before & kReaderMask) == 1) WakeWriter();
  }

  // Announces the writer, then waits for the other writers and the readers.
  void LockExclusive() TVX_ACQUIRE();
  void UnlockExclusive() TVX_RELEASE();

 private:
  static constexpr std::uint64_t kReaderMask = 0xffffffffu;
  static constexpr std::uint64_t kOneWriter = std::uint64_t{1} << 32;

  bool TryLockSharedContended();
  void WakeWriter() TVX_EXCLUDES(writerGoneMutex_);
  void WaitForReadersToLeave() TVX_EXCLUDES(writerGoneMutex_);

  // Low 32 bits: readers inside. High 32 bits: writers announced.
  std::atomic<std::uint64_t> state_{0};
  boost::condition_variable writerGone_;
  BoostMutex writerGoneMutex_;  // guards writerGone_ and waitingWriters_
  // Held by the writer from LockExclusive() to UnlockExclusive(); LockShared()
  // takes it for a moment to wait out a writer. Outer to writerGoneMutex_.
  BoostMutex writerMutex_;
  std::uint32_t waitingWriters_ TVX_GUARDED_BY(writerGoneMutex_) = 0;
};

}  // namespace tvxcore::threads
