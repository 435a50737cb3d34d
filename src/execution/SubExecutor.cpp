// Sub executors: a FIFO of items and a count of runners queued on the parent.
//
// Each runner queued on the parent takes exactly one item, runs it, and
// queues the next runner behind whatever else the parent holds. The state
// lives in a SubExecutorImpl that every queued runner holds strongly and
// every pending delayed call weakly, so the public SubExecutor may go away
// while its queue drains.
#include "tvxcore/threads/SubExecutor.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <boost/thread/thread.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/RecursiveMutex.h"
#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxcore::threads {
namespace {

using utility::SmallBlockAllocator;
using Wrapper = boost::function<void(boost::function<void()> const&)>;

// Sequence numbers and delayed-call numbers are 64 bits wide so that a
// long-lived executor never wraps them.
using Sequence = std::int64_t;

// One queued item: the function and its sequence number, linked into the
// FIFO. Held by the FIFO until a runner takes it.
struct Item : SmallBlockAllocator::Allocated<Item> {
  explicit Item(boost::function<void()> const& f) : function(f) {}
  boost::function<void()> function;
  Sequence sequence = 0;
  Item* next = nullptr;
};

// A singly linked FIFO of items. Post and take are a couple of pointer
// writes and never grow a container; the owner's lock guards it.
class ItemFifo {
 public:
  ItemFifo() = default;
  ItemFifo(const ItemFifo&) = delete;
  ItemFifo& operator=(const ItemFifo&) = delete;
  ~ItemFifo() {
    while (Item* item = Take()) delete item;
  }
  void Post(Item* item) {
    item->next = nullptr;
    if (tail_ != nullptr)
      tail_->next = item;
    else
      head_ = item;
    tail_ = item;
  }
  Item* Take() {
    Item* item = head_;
    if (item != nullptr) {
      head_ = item->next;
      if (head_ == nullptr) tail_ = nullptr;
      item->next = nullptr;
    }
    return item;
  }

 private:
  Item* head_ = nullptr;
  Item* tail_ = nullptr;
};

class SubExecutorImpl : public boost::enable_shared_from_this<SubExecutorImpl> {
 public:
  SubExecutorImpl(int maxConcurrency, boost::shared_ptr<AsyncExecutor> const& parent)
      : maxConcurrency_(maxConcurrency), parent_(parent) {
    completedSequences_.emplace(0, 0);
  }
  SubExecutorImpl(const SubExecutorImpl&) = delete;
  SubExecutorImpl& operator=(const SubExecutorImpl&) = delete;
  virtual ~SubExecutorImpl() = default;

  // Calls `function`, swallowing whatever it throws: an item's failure must
  // never skip the bookkeeping that follows it.
  virtual void CallFunction(boost::function<void()> const& function) {
    try {
      function();
    } catch (std::exception const&) {
    } catch (...) {
    }
  }

  bool CallAsynchronously(boost::function<void()> const& function, unsigned int delayMilliseconds)
      TVX_EXCLUDES(mutex_) {
    RecursiveMutexLock lock(mutex_);
    return CallAsynchronouslyLocked(function, delayMilliseconds);
  }

  int GetThreadCount() const { return maxConcurrency_; }

  void Terminate() TVX_EXCLUDES(mutex_) {
    DelayedMap discarded;
    {
      RecursiveMutexLock lock(mutex_);
      terminated_ = true;
      // The functions are destroyed after the lock is given back: a
      // destructor may reach this executor again.
      discarded.swap(delayedItems_);
      ResumeLocked();
    }
  }

  bool IsTerminated() const TVX_EXCLUDES(mutex_) {
    RecursiveMutexLock lock(mutex_);
    return terminated_;
  }

  bool IsCurrentThreadExecutorThread() const TVX_EXCLUDES(mutex_) {
    RecursiveMutexLock lock(mutex_);
    return IsRunningThreadLocked(boost::this_thread::get_id());
  }

  void WaitForQueuedWork() TVX_EXCLUDES(mutex_) {
    boost::thread::id const self = boost::this_thread::get_id();
    Sequence target;
    {
      RecursiveMutexLock lock(mutex_);
      if (IsRunningThreadLocked(self)) return;
      target = lastSequence_;
    }
    if (target <= 0) return;
    auto gate = boost::make_shared<Gate>(false);
    {
      RecursiveMutexLock lock(mutex_);
      if (!completedSequences_.empty() && completedSequences_.begin()->second >= target) return;
      waiters_.emplace(target, std::make_pair(self, gate));
    }
    gate->PassThrough(-1);
  }

  void Pause() TVX_EXCLUDES(mutex_) {
    RecursiveMutexLock lock(mutex_);
    if (!terminated_) paused_ = true;
  }

  void Resume() TVX_EXCLUDES(mutex_) {
    RecursiveMutexLock lock(mutex_);
    ResumeLocked();
  }

 private:
  using DelayedMap =
      SmallBlockAllocator::map<Sequence, boost::function<void()>, std::less<Sequence>>;
  using IntervalMap = SmallBlockAllocator::map<Sequence, Sequence, std::less<Sequence>>;
  using WaiterMap = std::multimap<
      Sequence, std::pair<boost::thread::id, boost::shared_ptr<Gate>>, std::less<Sequence>,
      SmallBlockAllocator::STLAllocator<
          std::pair<const Sequence, std::pair<boost::thread::id, boost::shared_ptr<Gate>>>>>;

  bool CallAsynchronouslyLocked(boost::function<void()> const& function,
                                unsigned int delayMilliseconds) TVX_REQUIRES(mutex_) {
    if (terminated_) return false;
    if (function.empty()) return false;
    if (delayMilliseconds == 0) {
      Item* item = new Item(function);
      item->sequence = ++lastSequence_;
      pendingItems_.Post(item);
      ++pendingCount_;
      ScheduleRunnerLocked();
      return true;
    }
    Sequence const number = ++lastDelayedNumber_;
    delayedItems_.emplace(number, function);
    boost::weak_ptr<SubExecutorImpl> weak(shared_from_this());
    return parent_->CallAsynchronously([weak, number] { DelayedCallDue(weak, number); },
                                       delayMilliseconds);
  }

  // Queues one more runner on the parent if there is an item for it and a
  // slot free. A refused runner changes nothing: the items wait for a later
  // call to get one through.
  void ScheduleRunnerLocked() TVX_REQUIRES(mutex_) {
    if (pendingCount_ <= 0 || paused_ || activeRunners_ >= maxConcurrency_) return;
    boost::shared_ptr<SubExecutorImpl> self(shared_from_this());
    if (parent_->CallAsynchronously([self] { RunOneItem(self); }, 0)) ++activeRunners_;
  }

  void ResumeLocked() TVX_REQUIRES(mutex_) {
    if (!paused_) return;
    paused_ = false;
    for (int i = 0; i < maxConcurrency_; ++i) ScheduleRunnerLocked();
  }

  bool IsRunningThreadLocked(boost::thread::id id) const TVX_REQUIRES(mutex_) {
    for (boost::thread::id const& running : runningThreads_)
      if (running == id) return true;
    return false;
  }

  void RemoveRunningThreadLocked(boost::thread::id id) TVX_REQUIRES(mutex_) {
    for (auto it = runningThreads_.begin(); it != runningThreads_.end(); ++it) {
      if (*it == id) {
        *it = runningThreads_.back();
        runningThreads_.pop_back();
        return;
      }
    }
  }

  // Records `sequence` as finished and opens the gates of the waiters whose
  // target is now covered by the unbroken run of finished numbers from 0.
  void MarkCompletedLocked(Sequence sequence) TVX_REQUIRES(mutex_) {
    if (sequence <= 0) return;
    auto next = completedSequences_.upper_bound(sequence);
    auto at = next;
    if (next != completedSequences_.begin() && std::prev(next)->second == sequence - 1) {
      at = std::prev(next);
      at->second = sequence;
    } else {
      at = completedSequences_.emplace_hint(next, sequence, sequence);
    }
    if (next != completedSequences_.end() && next->first == at->second + 1) {
      at->second = next->second;
      completedSequences_.erase(next);
    }
    Sequence const done = completedSequences_.begin()->second;
    while (!waiters_.empty() && waiters_.begin()->first <= done) {
      waiters_.begin()->second.second->Open();
      waiters_.erase(waiters_.begin());
    }
  }

  // Runs `function` as the item numbered `sequence` on the calling thread,
  // which already counts as an active runner, and then does its bookkeeping.
  void RunAndFinish(boost::function<void()>& function, Sequence sequence) TVX_EXCLUDES(mutex_) {
    boost::thread::id const self = boost::this_thread::get_id();
    CallFunction(function);
    function.clear();
    RecursiveMutexLock lock(mutex_);
    --activeRunners_;
    RemoveRunningThreadLocked(self);
    MarkCompletedLocked(sequence);
    ScheduleRunnerLocked();
  }

  static void RunOneItem(boost::shared_ptr<SubExecutorImpl> const& impl) {
    Item* item = nullptr;
    {
      RecursiveMutexLock lock(impl->mutex_);
      if (!impl->paused_) item = impl->pendingItems_.Take();
      if (item == nullptr) {
        --impl->activeRunners_;
        return;
      }
      --impl->pendingCount_;
      impl->runningThreads_.push_back(boost::this_thread::get_id());
    }
    impl->RunAndFinish(item->function, item->sequence);
    delete item;
  }

  static void DelayedCallDue(boost::weak_ptr<SubExecutorImpl> const& weak, Sequence number) {
    boost::shared_ptr<SubExecutorImpl> impl = weak.lock();
    if (!impl) return;
    boost::function<void()> function;
    Sequence sequence = 0;
    {
      RecursiveMutexLock lock(impl->mutex_);
      auto found = impl->delayedItems_.find(number);
      if (found == impl->delayedItems_.end()) return;
      function.swap(found->second);
      impl->delayedItems_.erase(found);
      if (impl->paused_ || impl->terminated_ || impl->activeRunners_ >= impl->maxConcurrency_) {
        impl->CallAsynchronouslyLocked(function, 0);
        return;
      }
      sequence = ++impl->lastSequence_;
      ++impl->activeRunners_;
      impl->runningThreads_.push_back(boost::this_thread::get_id());
    }
    impl->RunAndFinish(function, sequence);
  }

  mutable RecursiveMutex mutex_;
  int const maxConcurrency_;
  boost::shared_ptr<AsyncExecutor> const parent_;
  bool paused_ TVX_GUARDED_BY(mutex_) = false;
  bool terminated_ TVX_GUARDED_BY(mutex_) = false;
  // Threads inside CallFunction for this executor now; a thread appears once
  // per item it is running.
  SmallBlockAllocator::vector<boost::thread::id> runningThreads_ TVX_GUARDED_BY(mutex_);
  ItemFifo pendingItems_ TVX_GUARDED_BY(mutex_);
  // Runners accepted by the parent and not yet finished.
  int activeRunners_ TVX_GUARDED_BY(mutex_) = 0;
  int pendingCount_ TVX_GUARDED_BY(mutex_) = 0;
  Sequence lastSequence_ TVX_GUARDED_BY(mutex_) = 0;
  DelayedMap delayedItems_ TVX_GUARDED_BY(mutex_);
  Sequence lastDelayedNumber_ TVX_GUARDED_BY(mutex_) = 0;
  // Finished sequence numbers as disjoint closed intervals keyed by their
  // start; the first always starts at 0.
  IntervalMap completedSequences_ TVX_GUARDED_BY(mutex_);
  WaiterMap waiters_ TVX_GUARDED_BY(mutex_);
};

class SubExecutorWithFnWrapperImpl final : public SubExecutorImpl {
 public:
  SubExecutorWithFnWrapperImpl(int maxConcurrency, boost::shared_ptr<AsyncExecutor> const& parent,
                               Wrapper const& wrapper)
      : SubExecutorImpl(maxConcurrency, parent), wrapper_(wrapper) {}

  void CallFunction(boost::function<void()> const& function) override {
    try {
      wrapper_(function);
    } catch (std::exception const&) {
    } catch (...) {
    }
  }

 private:
  Wrapper const wrapper_;
};

class SubExecutor final : public AsyncThreadedExecutor {
 public:
  explicit SubExecutor(boost::shared_ptr<SubExecutorImpl> impl) : impl_(std::move(impl)) {}
  SubExecutor(const SubExecutor&) = delete;
  SubExecutor& operator=(const SubExecutor&) = delete;
  ~SubExecutor() override {
    if (!impl_->IsTerminated()) impl_->Terminate();
  }

  bool CallAsynchronously(boost::function<void()> const& function,
                          unsigned int delayMilliseconds) override {
    return impl_->CallAsynchronously(function, delayMilliseconds);
  }
  int GetThreadCount() override { return impl_->GetThreadCount(); }
  void Terminate() override { impl_->Terminate(); }
  bool IsTerminated() override { return impl_->IsTerminated(); }
  bool IsCurrentThreadExecutorThread() override { return impl_->IsCurrentThreadExecutorThread(); }
  void WaitForQueuedWork() override { impl_->WaitForQueuedWork(); }
  void Pause() override { impl_->Pause(); }
  void Resume() override { impl_->Resume(); }
  void WaitUntilResumed() override {}

 private:
  boost::shared_ptr<SubExecutorImpl> const impl_;
};

}  // namespace

boost::shared_ptr<AsyncThreadedExecutor> CreateSubExecutor(
    boost::shared_ptr<AsyncExecutor> const& parent, int maxConcurrency) {
  return CreateSubExecutorWithFunctionWrapper(parent, maxConcurrency, Wrapper());
}

boost::shared_ptr<AsyncThreadedExecutor> CreateSubExecutorWithFunctionWrapper(
    boost::shared_ptr<AsyncExecutor> const& parent, int maxConcurrency, Wrapper const& wrapper) {
  int const parentCount = parent ? parent->GetThreadCount() : 0;
  int const limit =
      (maxConcurrency < 0 || maxConcurrency > parentCount) ? parentCount : maxConcurrency;
  if (limit < 1) return boost::shared_ptr<AsyncThreadedExecutor>();
  boost::shared_ptr<SubExecutorImpl> impl =
      wrapper.empty() ? boost::make_shared<SubExecutorImpl>(limit, parent)
                      : boost::make_shared<SubExecutorWithFnWrapperImpl>(limit, parent, wrapper);
  return boost::make_shared<SubExecutor>(impl);
}

}  // namespace tvxcore::threads
