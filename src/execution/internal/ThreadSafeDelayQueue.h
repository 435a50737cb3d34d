// The queue under every worker pool: ready work in first-in, first-out order
// and timed work, served to the workers through one wait.
#pragma once

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/function.hpp>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/CompletionQueue.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::threads::internal {

// Ready items wait in a completion queue, timed items in a heap ordered by
// deadline. There is no timer thread: the idle worker that holds the timer
// duty moves due items (up to 6 ms early) from the heap into the completion
// queue and sleeps with a time-out until the next deadline; the other idle
// workers sleep without limit. A worker that leaves with real work hands the
// duty on with a wake-up, so some idle worker always keeps time.
//
// Items are heap-held functions, owned by the queue from a successful Post
// until GetNext hands them out. All members may be called from any thread;
// the workers call GetNext at the same time.
class ThreadSafeDelayQueue {
 public:
  using Item = boost::function<void()>;
  static constexpr unsigned int kNoTimeLimit = 0xFFFFFFFFu;
  // The shortest delay: anything from 1 to 6 ms waits 7 ms.
  static constexpr unsigned int kMinimumDelayMilliseconds = 7;

  explicit ThreadSafeDelayQueue(int threadCount);
  // Destroys the timed items and the ready items nobody took.
  ~ThreadSafeDelayQueue();
  ThreadSafeDelayQueue(const ThreadSafeDelayQueue&) = delete;
  ThreadSafeDelayQueue& operator=(const ThreadSafeDelayQueue&) = delete;

  // Queues `item` to be ready after `delayMilliseconds` (0: at once, without
  // any lock). On true the queue owns the item and `item` is cleared. A new
  // earliest deadline hands the timer duty out again, and with `wakeWorker`
  // wakes an idle worker to take it. False when the item could not be queued
  // (`item` left to the caller), or when the wake-up for a timed item could
  // not be posted: the item then stays queued and `item` is cleared too.
  bool Post(Item*& item, unsigned int delayMilliseconds, bool wakeWorker);

  // Waits for the next ready item, at most `timeoutMilliseconds`
  // (kNoTimeLimit: for ever), serving the timers meanwhile when this worker
  // holds the duty. True with the item; false on time-out with `item` null.
  bool GetNext(Item*& item, unsigned int timeoutMilliseconds);

  // Destroys every timed item still waiting; ready items are not touched.
  void ClearDelayedItems() TVX_EXCLUDES(mutex_);

 private:
  enum TimerDuty : std::uint32_t {
    kDutyFree = 0,      // the next worker to look claims the duty
    kDutyWaiting = 1,   // the last scan ended; its worker waits or the heap was empty
    kDutyScanning = 2,  // a worker claimed the duty and is scanning
  };
  using Entry = std::pair<boost::posix_time::ptime, Item*>;
  struct LaterFirst {
    bool operator()(const Entry& a, const Entry& b) const { return a.first > b.first; }
  };

  // Milliseconds to the next deadline, or kNoTimeLimit when this worker does
  // not hold the duty or nothing is timed.
  unsigned int ServiceTimers(bool alreadyOnDuty) TVX_EXCLUDES(mutex_);

  platform::CompletionQueue completionPort_;
  std::atomic<std::uint32_t> timerDuty_{kDutyFree};
  BoostMutex mutex_;
  std::vector<Entry> delayedItems_ TVX_GUARDED_BY(mutex_);
  const int threadCount_;
};

}  // namespace tvxcore::threads::internal
