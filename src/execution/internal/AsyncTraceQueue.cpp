#include "execution/internal/AsyncTraceQueue.h"

#include <boost/bind/bind.hpp>
#include <utility>

namespace tvxcore::debug::internal {
namespace {

// The queue whose drain runs on this thread, if any.
thread_local const AsyncTraceQueue* drainingQueue = nullptr;

class DrainingScope {
 public:
  explicit DrainingScope(const AsyncTraceQueue* queue)
      : previous_(std::exchange(drainingQueue, queue)) {}
  ~DrainingScope() { drainingQueue = previous_; }
  DrainingScope(const DrainingScope&) = delete;
  DrainingScope& operator=(const DrainingScope&) = delete;

 private:
  const AsyncTraceQueue* previous_;
};

}  // namespace

AsyncTraceQueue::AsyncTraceQueue(TraceHandler* inNext,
                                 boost::shared_ptr<threads::AsyncExecutor> inExecutor)
    : mNext(inNext), mExecutor(std::move(inExecutor)) {
  threads::CheckedLock lock(mMutex);
  mWriteRing = &mRings[0];
  mReadRing = &mRings[1];
}

void AsyncTraceQueue::Write(const std::string& inLine) {
  if (drainingQueue == this) {
    // A handler behind this queue traces: waiting here would wait for
    // ourselves.
    mNext->WriteTrace(inLine);
    return;
  }
  {
    threads::CheckedLock lock(mMutex);
    while (mWriteRing->count == kRingLines) {
      ++mWaitingWriters;
      lock.Wait(mSwapped);
      --mWaitingWriters;
    }
    Ring& ring = *mWriteRing;
    ring.lines[ring.position].assign(inLine);  // the slot keeps its capacity
    ring.position = (ring.position + 1) % kRingLines;
    ++ring.count;
  }
  if (!mDrainQueued.exchange(true)) PostDrain();
}

void AsyncTraceQueue::PostDrain() {
  if (mExecutor &&
      mExecutor->CallAsynchronously(boost::bind(&AsyncTraceQueue::Drain, shared_from_this()), 0))
    return;
  Drain();
}

void AsyncTraceQueue::DeliverAll(Ring& ring) {
  while (ring.count != 0) {
    std::string& line = ring.lines[(ring.position + kRingLines - ring.count) % kRingLines];
    try {
      mNext->WriteTrace(line);
    } catch (...) {
      // Nobody to tell: the line is lost, the others go on.
    }
    --ring.count;
  }
}

AsyncTraceQueue::Ring* AsyncTraceQueue::SwapLocked() {
  if (mWriteRing->count == 0) return nullptr;
  std::swap(mWriteRing, mReadRing);
  mSwapped.notify_all();
  return mReadRing;
}

void AsyncTraceQueue::Drain() {
  {
    threads::CheckedLock lock(mMutex);
    if (mClosed) return;
    ++mActiveDrains;
  }
  {
    DrainingScope scope(this);
    // The drain that set mDrainQueued owns the read ring. Ownership passes
    // on when the flag is cleared, so after winning it back every step
    // starts from the rings as they are now, never from a pointer read
    // before: another drain may have swapped them meanwhile.
    for (;;) {
      Ring* reading;
      {
        threads::CheckedLock lock(mMutex);
        reading = mReadRing->count != 0 ? mReadRing : SwapLocked();
      }
      if (reading) {
        DeliverAll(*reading);
        continue;
      }
      // Both rings are empty. A writer that adds a line from here on either
      // finds the flag clear and queues a drain, or its line is seen below.
      mDrainQueued.store(false);
      bool more;
      {
        threads::CheckedLock lock(mMutex);
        more = mWriteRing->count != 0;
      }
      if (!more || mDrainQueued.exchange(true)) break;
    }
  }
  threads::CheckedLock lock(mMutex);
  --mActiveDrains;
  mIdle.notify_all();
}

void AsyncTraceQueue::Close() {
  Ring* reading;
  {
    threads::CheckedLock lock(mMutex);
    mClosed = true;
    while (mActiveDrains > 0) lock.Wait(mIdle);
    reading = mReadRing;
  }
  while (reading) {
    DeliverAll(*reading);
    threads::CheckedLock lock(mMutex);
    reading = SwapLocked();
  }
}

std::size_t AsyncTraceQueue::WaitingWriters() const {
  threads::CheckedLock lock(mMutex);
  return mWaitingWriters;
}

}  // namespace tvxcore::debug::internal
