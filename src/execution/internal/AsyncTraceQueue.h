// The line buffer and drain of debug::AsyncTraceHandler: two rings of 32
// lines, writers filling one while one drain at a time empties the other
// into the next handler, on an executor.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <string>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>

#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/debug/TraceHandler.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::debug::internal {

// Lines leave in the order they came in. A writer that finds its ring full
// waits until the drain swaps the rings. At most one drain is queued or
// running at any time, whatever the executor, so the next handler sees one
// thread at a time; a drain the executor refuses runs on the writer's
// thread. Made and held by boost::shared_ptr: a queued drain keeps the
// queue alive.
class AsyncTraceQueue : public boost::enable_shared_from_this<AsyncTraceQueue> {
 public:
  static constexpr std::size_t kRingLines = 32;

  // `inExecutor` may be null: every drain then runs on a writer's thread.
  AsyncTraceQueue(TraceHandler* inNext, boost::shared_ptr<threads::AsyncExecutor> inExecutor);
  AsyncTraceQueue(const AsyncTraceQueue&) = delete;
  AsyncTraceQueue& operator=(const AsyncTraceQueue&) = delete;

  // Copies `inLine` into the write ring (waiting while it is full) and makes
  // sure a drain will see it. On a thread that is draining this queue, hands
  // the line to the next handler at once instead.
  void Write(const std::string& inLine) TVX_EXCLUDES(mMutex);

  // Waits for a running drain to finish, then hands every waiting line to
  // the next handler on the calling thread. Drains that run later do
  // nothing, and the next handler is not called again. Not to be called
  // from a handler behind this queue.
  void Close() TVX_EXCLUDES(mMutex);

  // How many writers wait for a swap at this moment (for tests).
  std::size_t WaitingWriters() const TVX_EXCLUDES(mMutex);

 private:
  // A ring with its write position and count. The ring writeRing points to
  // is touched under mMutex only; the other belongs to the one drain.
  struct Ring {
    std::array<std::string, kRingLines> lines;
    std::size_t position = 0;  // the next slot to write
    std::size_t count = 0;
  };

  void PostDrain();
  void Drain() TVX_EXCLUDES(mMutex);
  // Hands every line of `ring` to the next handler, oldest first.
  void DeliverAll(Ring& ring);
  // Exchanges the rings when the write ring has lines, and lets waiting
  // writers on. Returns the ring to read now, or null when both are empty.
  Ring* SwapLocked() TVX_REQUIRES(mMutex);

  TraceHandler* const mNext;
  const boost::shared_ptr<threads::AsyncExecutor> mExecutor;

  std::array<Ring, 2> mRings;
  mutable threads::BoostMutex mMutex;  // the writers' lock
  boost::condition_variable mSwapped;  // a swap happened (writers wait)
  boost::condition_variable mIdle;     // a drain ended (Close waits)
  Ring* mWriteRing TVX_GUARDED_BY(mMutex);
  Ring* mReadRing TVX_GUARDED_BY(mMutex);
  std::size_t mWaitingWriters TVX_GUARDED_BY(mMutex) = 0;
  int mActiveDrains TVX_GUARDED_BY(mMutex) = 0;
  bool mClosed TVX_GUARDED_BY(mMutex) = false;

  // Set while a drain is queued or running: one queued drain serves all.
  std::atomic<bool> mDrainQueued{false};
};

}  // namespace tvxcore::debug::internal
