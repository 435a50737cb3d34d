// Event-loop adaptors, the executor with its own loop thread, and the main
// thread's registration.
#include "tvxcore/threads/EventLoop.h"

#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <boost/thread/thread.hpp>
#include <boost/weak_ptr.hpp>
#include <exception>
#include <memory>
#include <new>

#include "base/NoDestructor.h"
#include "debug/internal/ContractCheck.h"
#include "execution/internal/FunctionQueue.h"
#include "platform/EventLoop.h"
#include "threads/internal/MainThread.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/threads/ReadWriteLock.h"
#include "tvxcore/threads/SyncPoint.h"

namespace tvxcore::threads {
namespace internal {

// The lock of the register of shared executors, under which the main thread
// is registered and its adaptor made.
BoostRecursiveMutex& SharedRegisterMutex() {
  static base::NoDestructor<BoostRecursiveMutex> mutex;
  return *mutex;
}

}  // namespace internal

namespace {

using platform::EventLoop;

// A call delivered by the loop. Nothing a call throws crosses the loop's
// dispatch: the loop serves everyone on its thread, and the caller that
// queued the call is long gone.
class CallMessage final : public EventLoop::Message {
 public:
  explicit CallMessage(boost::function<void()> const& function) : function_(function) {}
  void Deliver() override {
    try {
      function_();
    } catch (std::exception const&) {
    } catch (...) {
    }
  }

 private:
  boost::function<void()> function_;
};

// The one thread, "SharedTimerThread", that turns delayed calls of every
// adaptor into loop messages when they come due. It lives while an adaptor
// holds it.
boost::shared_ptr<AsyncThreadedExecutor> SharedTimerExecutor() {
  static base::NoDestructor<BoostMutex> mutex;
  static base::NoDestructor<boost::weak_ptr<AsyncThreadedExecutor>> timer;
  CheckedLock lock(*mutex);
  boost::shared_ptr<AsyncThreadedExecutor> executor = timer->lock();
  if (!executor) {
    executor = CreateAsyncThreadedExecutor("SharedTimerThread", 1, ThreadPriority_Normal, {}, {});
    *timer = executor;
  }
  return executor;
}

void PostWhenDue(std::shared_ptr<EventLoop> const& loop, std::uint64_t channel,
                 boost::function<void()> const& function) {
  loop->Post(channel, std::make_unique<CallMessage>(function), EventLoop::Lane::kPosted);
}

// A thread's private channel into its event loop; closing it (on
// destruction) drops what it has not yet delivered.
class MessageLoopAdaptor {
 public:
  MessageLoopAdaptor()
      : timerExecutor_(SharedTimerExecutor()),
        loop_(EventLoop::ForCurrentThread()),
        channel_(loop_->OpenChannel()),
        threadId_(loop_->ThreadId()) {}
  ~MessageLoopAdaptor() { loop_->CloseChannel(channel_); }
  MessageLoopAdaptor(const MessageLoopAdaptor&) = delete;
  MessageLoopAdaptor& operator=(const MessageLoopAdaptor&) = delete;

  // Queues `function` into the loop, after `delay` milliseconds when not 0.
  // An undelayed call from another thread goes ahead of posted messages.
  bool PostToWindow(boost::function<void()> const& function, unsigned int delay) {
    if (delay == 0) {
      auto message = std::make_unique<CallMessage>(function);
      const bool own = GetCurrentThreadID() == threadId_;
      return loop_->Post(channel_, std::move(message),
                         own ? EventLoop::Lane::kPosted : EventLoop::Lane::kNotify);
    }
    if (!timerExecutor_) return false;
    return timerExecutor_->CallAsynchronously(boost::bind(&PostWhenDue, loop_, channel_, function),
                                              delay);
  }

  void PostQuit() { loop_->PostQuit(); }

 private:
  const boost::shared_ptr<AsyncThreadedExecutor> timerExecutor_;
  const std::shared_ptr<EventLoop> loop_;
  const std::uint64_t channel_;
  const std::uint32_t threadId_;
};

// The undelayed calls of an adaptor and the loop-thread state of draining
// them. Everything but the queue's producer side belongs to the loop thread.
struct DrainState {
  DrainState(bool isReentrant, boost::shared_ptr<MessageLoopAdaptor> const& loopWindow)
      : reentrant(isReentrant), window(loopWindow) {}
  internal::FunctionQueue queue;
  const bool reentrant;
  bool insideCall = false;
  // Calls run by RunQueuedFunctions whose loop message will find nothing.
  // Kept as a count only; no decision reads it.
  int emptyDrainsToExpect = 0;
  const boost::shared_ptr<MessageLoopAdaptor> window;  // for re-posting
};

bool DrainOne(boost::shared_ptr<DrainState> const& state, bool fromRunQueuedFunctions) {
  if (state->insideCall && !state->reentrant) {
    // A loop nested inside one of this queue's calls on a thread that keeps
    // them apart: the item waits until the outer call has returned.
    state->window->PostToWindow(boost::bind(&DrainOne, state, false), 0);
    return false;
  }
  boost::function<void()> function;
  if (!state->queue.Take(function)) {
    if (!fromRunQueuedFunctions) --state->emptyDrainsToExpect;
    return false;
  }
  if (fromRunQueuedFunctions) ++state->emptyDrainsToExpect;
  struct Restore {
    bool& flag;
    bool saved;
    ~Restore() { flag = saved; }
  } restore{state->insideCall, state->insideCall};
  state->insideCall = true;
  if (!function.empty()) function();
  return true;
}

class EventLoopAdaptor final : public AsyncEventLoopAdaptor {
 public:
  explicit EventLoopAdaptor(bool reentrant)
      : loopThreadId_(GetCurrentThreadID()),
        window_(boost::shared_ptr<MessageLoopAdaptor>(new MessageLoopAdaptor)),
        state_(new DrainState(reentrant, window_)) {}
  ~EventLoopAdaptor() override TVX_NO_THREAD_SAFETY_ANALYSIS {}  // no other user is left
  EventLoopAdaptor(const EventLoopAdaptor&) = delete;
  EventLoopAdaptor& operator=(const EventLoopAdaptor&) = delete;

  bool CallAsynchronously(boost::function<void()> const& function,
                          unsigned int delayMilliseconds) override {
    if (function.empty()) return false;
    if (!windowLock_.TryLockShared()) return false;
    bool queued = false;
    try {
      if (window_) {
        if (delayMilliseconds == 0) {
          state_->queue.Append(function);
          queued = window_->PostToWindow(boost::bind(&DrainOne, state_, false), 0);
        } else {
          queued = window_->PostToWindow(function, delayMilliseconds);
        }
      }
    } catch (...) {
      windowLock_.UnlockShared();
      throw;
    }
    windowLock_.UnlockShared();
    return queued;
  }

  int GetThreadCount() override { return 1; }

  void Terminate() override {
    windowLock_.LockExclusive();
    boost::shared_ptr<MessageLoopAdaptor> window = std::move(window_);
    window_.reset();
    windowLock_.UnlockExclusive();
    if (window) window->PostQuit();
  }

  bool IsTerminated() override {
    if (!windowLock_.TryLockShared()) return true;
    const bool terminated = !window_;
    windowLock_.UnlockShared();
    return terminated;
  }

  bool IsCurrentThreadExecutorThread() override { return GetCurrentThreadID() == loopThreadId_; }

  void RunQueuedFunctions() override {
    // The queue's consumer side belongs to the loop's thread.
    if (!IsCurrentThreadExecutorThread()) return;
    while (DrainOne(state_, true)) {
    }
  }

 private:
  const std::uint32_t loopThreadId_;
  boost::shared_ptr<MessageLoopAdaptor> window_ TVX_GUARDED_BY(windowLock_);
  ReadWriteLock windowLock_;
  const boost::shared_ptr<DrainState> state_;
};

class EventLoopExecutor final : public AsyncEventLoopExecutor {
 public:
  EventLoopExecutor(std::string const& name, ThreadPriority priority,
                    boost::function<void()> const& onThreadStart,
                    boost::function<void()> const& onThreadExit) {
    SyncPoint ready(2);
    auto slot = boost::make_shared<boost::shared_ptr<AsyncEventLoopAdaptor>>();
    thread_ = CreateNamedThread(name, boost::bind(&ThreadBody, slot, ready), priority,
                                onThreadStart, onThreadExit);
    ready.Wait();
    adaptor_ = *slot;
  }
  ~EventLoopExecutor() override {
    if (adaptor_) adaptor_->Terminate();
    if (thread_.joinable()) thread_.detach();
  }
  EventLoopExecutor(const EventLoopExecutor&) = delete;
  EventLoopExecutor& operator=(const EventLoopExecutor&) = delete;

  bool Started() const { return adaptor_ != nullptr; }

  bool CallAsynchronously(boost::function<void()> const& function,
                          unsigned int delayMilliseconds) override {
    return adaptor_->CallAsynchronously(function, delayMilliseconds);
  }
  int GetThreadCount() override { return 1; }
  void Terminate() override { adaptor_->Terminate(); }
  bool IsTerminated() override { return adaptor_->IsTerminated(); }
  bool IsCurrentThreadExecutorThread() override {
    return adaptor_->IsCurrentThreadExecutorThread();
  }
  void WaitForThreadEnd() override {
    if (IsCurrentThreadExecutorThread()) return;  // a thread cannot wait for its own end
    CheckedLock lock(joinMutex_);
    if (thread_.joinable()) thread_.join();
  }

 private:
  static void ThreadBody(boost::shared_ptr<boost::shared_ptr<AsyncEventLoopAdaptor>> const& slot,
                         SyncPoint ready) {
    boost::shared_ptr<AsyncEventLoopAdaptor> adaptor;
    try {
      adaptor = AdaptCurrentEventLoopAsExecutor(false);
    } catch (...) {
      // No loop for this thread: the creator learns it from the empty slot.
    }
    *slot = adaptor;
    ready.Wait();
    if (!adaptor) return;
    RunPlatformEventLoop();
    // Undelayed calls queued before the end still run; what one of them
    // throws is dropped, as the loop drops it, and the rest go on.
    for (;;) {
      try {
        adaptor->RunQueuedFunctions();
        break;
      } catch (...) {
      }
    }
  }

  boost::thread thread_ TVX_GUARDED_BY(joinMutex_);
  BoostMutex joinMutex_;
  boost::shared_ptr<AsyncEventLoopAdaptor> adaptor_;
};

}  // namespace

boost::shared_ptr<AsyncEventLoopAdaptor> AdaptCurrentEventLoopAsExecutor(bool reentrant) {
  return boost::shared_ptr<AsyncEventLoopAdaptor>(new EventLoopAdaptor(reentrant));
}

boost::shared_ptr<AsyncEventLoopExecutor> CreateAsyncEventLoopExecutor(
    std::string const& name, ThreadPriority priority, boost::function<void()> const& onThreadStart,
    boost::function<void()> const& onThreadExit) {
  boost::shared_ptr<EventLoopExecutor> executor(
      new (std::nothrow) EventLoopExecutor(name, priority, onThreadStart, onThreadExit));
  if (!executor || !executor->Started()) return {};
  return executor;
}

boost::shared_ptr<AsyncEventLoopAdaptor> GetRegisteredMainThread() {
  return boost::static_pointer_cast<AsyncEventLoopAdaptor>(
      internal::GetRegisteredMainThreadOwner());
}

boost::shared_ptr<AsyncEventLoopAdaptor> RegisterCurrentThreadAsMainThread() {
  CheckedLock lock(internal::SharedRegisterMutex());
  boost::shared_ptr<AsyncEventLoopAdaptor> ret = GetRegisteredMainThread();
  if (ret) {
    TVX_CONTRACT(!ret || ret->IsCurrentThreadExecutorThread(),
                 "..\\..\\threads\\src\\SharedThreads", 383);
    return ret;
  }
  ret = AdaptCurrentEventLoopAsExecutor(true);
  internal::SetRegisteredMainThread(boost::shared_ptr<void>(ret), GetCurrentThreadID());
  return ret;
}

void AsyncCallFromMainThread(boost::function<void()> const& function) {
  if (boost::shared_ptr<AsyncEventLoopAdaptor> main = GetRegisteredMainThread())
    main->CallAsynchronously(function, 0);
}

void RunPlatformEventLoop() {
  const std::shared_ptr<EventLoop> loop = EventLoop::ForCurrentThread();
  loop->Run(-1);
}

void QuitPlatformEventLoop() { EventLoop::ForCurrentThread()->PostQuit(); }

boost::shared_ptr<void> WatchReadableOnCurrentThread(int fd,
                                                     boost::function<void()> const& onReadable) {
  const std::shared_ptr<EventLoop> loop = EventLoop::ForCurrentThread();
  const std::uint64_t watch = loop->WatchReadable(fd, onReadable);
  if (watch == 0) return {};
  struct Watching {
    std::shared_ptr<EventLoop> loop;
    std::uint64_t watch;
    ~Watching() { loop->Unwatch(watch); }
  };
  return boost::shared_ptr<Watching>(new Watching{loop, watch});
}

}  // namespace tvxcore::threads
