#include "execution/internal/ThreadSafeDelayQueue.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <memory>

namespace tvxcore::threads::internal {
namespace {

boost::posix_time::ptime Now() { return boost::posix_time::microsec_clock::universal_time(); }

}  // namespace

ThreadSafeDelayQueue::ThreadSafeDelayQueue(int threadCount) : threadCount_(threadCount) {}

ThreadSafeDelayQueue::~ThreadSafeDelayQueue() {
  ClearDelayedItems();
  completionPort_.DrainForDestruction([](void* packet) { delete static_cast<Item*>(packet); });
}

bool ThreadSafeDelayQueue::Post(Item*& item, unsigned int delayMilliseconds, bool wakeWorker) {
  if (delayMilliseconds == 0) {
    if (!completionPort_.Post(item)) return false;
    item = nullptr;
    return true;
  }
  delayMilliseconds = std::max(delayMilliseconds, kMinimumDelayMilliseconds);
  const boost::posix_time::ptime now = Now();
  const boost::posix_time::ptime deadline =
      now + boost::posix_time::milliseconds(static_cast<long>(delayMilliseconds));
  CheckedLock lock(mutex_);
  const bool mustRescan = delayedItems_.empty() || deadline < delayedItems_.front().first ||
                          now >= delayedItems_.front().first;
  delayedItems_.emplace_back(deadline, item);
  std::push_heap(delayedItems_.begin(), delayedItems_.end(), LaterFirst());
  item = nullptr;
  if (mustRescan) {
    std::uint32_t expected = kDutyWaiting;
    if (timerDuty_.compare_exchange_strong(expected, kDutyFree) && wakeWorker)
      return completionPort_.Post(nullptr);
  }
  return true;
}

unsigned int ThreadSafeDelayQueue::ServiceTimers(bool alreadyOnDuty) {
  if (!alreadyOnDuty) {
    std::uint32_t expected = kDutyFree;
    if (!timerDuty_.compare_exchange_strong(expected, kDutyScanning)) return kNoTimeLimit;
  }
  CheckedLock lock(mutex_);
  const boost::posix_time::ptime now = Now();
  static const boost::posix_time::time_duration kLookAhead = boost::posix_time::microseconds(6000);
  const boost::posix_time::ptime horizon = now + kLookAhead;
  while (!delayedItems_.empty() && delayedItems_.front().first <= horizon) {
    if (!completionPort_.Post(delayedItems_.front().second)) break;
    std::pop_heap(delayedItems_.begin(), delayedItems_.end(), LaterFirst());
    delayedItems_.pop_back();
  }
  unsigned int wait = kNoTimeLimit;
  if (!delayedItems_.empty()) {
    const long long micros = (delayedItems_.front().first - now).total_microseconds();
    wait = static_cast<unsigned int>(std::clamp<long long>(micros / 1000, 0, kNoTimeLimit - 2));
  }
  timerDuty_.store(kDutyWaiting);
  return wait;
}

bool ThreadSafeDelayQueue::GetNext(Item*& item, unsigned int timeoutMilliseconds) {
  bool onDuty = false;
  unsigned int remaining = timeoutMilliseconds;
  for (;;) {
    unsigned int wait = ServiceTimers(onDuty);
    onDuty = wait < kNoTimeLimit;
    if (remaining != kNoTimeLimit) {
      wait = wait >= kNoTimeLimit - 1 ? remaining : std::min(wait, remaining);
      remaining -= wait;
    }
    void* packet = nullptr;
    // A wait that is negative as a signed number has no limit.
    const bool taken = completionPort_.Take(packet, static_cast<int>(wait));
    item = static_cast<Item*>(packet);
    if (item == nullptr && taken) continue;  // a wake-up: look at the timers again
    if (onDuty) {
      std::uint32_t expected = kDutyWaiting;
      if (timerDuty_.compare_exchange_strong(expected, kDutyFree) && threadCount_ >= 2)
        completionPort_.Post(nullptr);
    }
    return taken;
  }
}

void ThreadSafeDelayQueue::ClearDelayedItems() {
  std::vector<Entry> discarded;
  {
    CheckedLock lock(mutex_);
    discarded.swap(delayedItems_);
  }
  // Destroyed outside the lock: an item's destructor may post again.
  for (Entry& entry : discarded) delete entry.second;
}

}  // namespace tvxcore::threads::internal
