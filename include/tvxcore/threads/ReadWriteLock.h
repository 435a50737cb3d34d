// tvxcore/threads/ReadWriteLock.h: a shared/exclusive lock in which writers
// take precedence, built for very short shared sections (the allocator's fast
// path, the executors' queues).
#pragma once

#include <atomic>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::threads {

// Many readers or one writer. A writer announces itself before it waits, and
// from that moment every TryLockShared() fails and LockShared() queues behind
// it, so a stream of readers cannot starve a writer.
//
// TryLockShared() without an announced writer is one compare-and-swap and
// never sleeps on a writer. Neither mode is recursive, and a thread holding
// the shared lock must not call LockExclusive(). All members are thread-safe.
class TVXCORE_EXPORT ReadWriteLock {
 public:
  ReadWriteLock() = default;
  ReadWriteLock(const ReadWriteLock&) = delete;
  ReadWriteLock& operator=(const ReadWriteLock&) = delete;

  // Takes the shared lock unless a writer is announced; false then, at once.
  TVX_ALWAYS_INLINE bool TryLockShared() {
    std::uint64_t seen = state_.load(std::memory_order_relaxed);
    if ((seen >> 32) != 0) return false;
    if (state_.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                     std::memory_order_relaxed))
      return true;
    return TryLockSharedContended();
  }

  // Takes the shared lock, waiting out an announced writer.
  void LockShared();

  TVX_ALWAYS_INLINE void UnlockShared() {
    const std::uint64_t before = state_.fetch_sub(1, std::memory_order_release);
    if ((before >> 32) != 0 && (before & kReaderMask) == 1) WakeWriter();
  }

  // Announces the writer, then waits for the other writers and the readers.
  void LockExclusive();
  void UnlockExclusive();

 private:
  static constexpr std::uint64_t kReaderMask = 0xffffffffu;
  static constexpr std::uint64_t kOneWriter = std::uint64_t{1} << 32;

  bool TryLockSharedContended();
  void WakeWriter();

  // Low 32 bits: readers inside. High 32 bits: writers announced.
  std::atomic<std::uint64_t> state_{0};
  boost::condition_variable writerGone_;
  boost::mutex writerGoneMutex_;  // guards writerGone_ and waitingWriters_
  boost::mutex writerMutex_;      // held by the writer through its exclusive period
  std::uint32_t waitingWriters_ = 0;
};

}  // namespace tvxcore::threads
