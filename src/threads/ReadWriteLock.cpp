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

void ReadWriteLock::LockShared() {
  if (TryLockShared()) return;
  boost::mutex::scoped_lock writer(writerMutex_);
  state_.fetch_add(1, std::memory_order_acquire);
}

void ReadWriteLock::WakeWriter() {
  boost::mutex::scoped_lock lock(writerGoneMutex_);
  if (waitingWriters_ > 0) writerGone_.notify_one();
}

void ReadWriteLock::LockExclusive() {
  state_.fetch_add(kOneWriter, std::memory_order_acq_rel);
  writerMutex_.lock();
  if ((state_.load(std::memory_order_acquire) & kReaderMask) != 0) {
    boost::mutex::scoped_lock lock(writerGoneMutex_);
    ++waitingWriters_;
    while ((state_.load(std::memory_order_acquire) & kReaderMask) != 0) writerGone_.wait(lock);
    --waitingWriters_;
  }
}

void ReadWriteLock::UnlockExclusive() {
  writerMutex_.unlock();
  state_.fetch_sub(kOneWriter, std::memory_order_release);
}

}  // namespace tvxcore::threads
