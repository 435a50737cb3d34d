#include "tvxcore/threads/ReadWriteLock.h"

#include "platform/Thread.h"

namespace tvxcore::threads {

bool ReadWriteLock::TryLockSharedContended() {
  // Another reader changed the word between the read and the swap: back off a
  // little, doubling the spin up to 16, then yield the processor for 1 ms.
  int spin = 1;
  for (;;) {
    if (spin <= 16) {
      for (int i = 0; i < spin; ++i) __builtin_ia32_pause();
      spin *= 2;
    } else {
      platform::SleepMilliseconds(1);
      spin = 1;
    }
    std::uint64_t seen = state_.load(std::memory_order_relaxed);
    if ((seen >> 32) != 0) return false;
    if (state_.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                     std::memory_order_relaxed))
      return true;
  }
}

void ReadWriteLock::LockShared() TVX_NO_THREAD_SAFETY_ANALYSIS {
  if (TryLockShared()) return;
  CheckedLock writer(writerMutex_);
  state_.fetch_add(1, std::memory_order_acquire);
}

void ReadWriteLock::WakeWriter() {
  CheckedLock lock(writerGoneMutex_);
  if (waitingWriters_ > 0) writerGone_.notify_one();
}

void ReadWriteLock::WaitForReadersToLeave() {
  if ((state_.load(std::memory_order_acquire) & kReaderMask) == 0) return;
  CheckedLock lock(writerGoneMutex_);
  ++waitingWriters_;
  while ((state_.load(std::memory_order_acquire) & kReaderMask) != 0) lock.Wait(writerGone_);
  --waitingWriters_;
}

// writerMutex_ is held from here to UnlockExclusive(), which the analysis of
// one function cannot follow.
void ReadWriteLock::LockExclusive() TVX_NO_THREAD_SAFETY_ANALYSIS {
  state_.fetch_add(kOneWriter, std::memory_order_acq_rel);
  writerMutex_.Lock();
  WaitForReadersToLeave();
}

void ReadWriteLock::UnlockExclusive() TVX_NO_THREAD_SAFETY_ANALYSIS {
  writerMutex_.Unlock();
  state_.fetch_sub(kOneWriter, std::memory_order_release);
}

}  // namespace tvxcore::threads
