// The worker pool behind CreateAsyncThreadedExecutor: a fixed set of threads,
// started up front, fed from one ThreadSafeDelayQueue and held by one gate.
#include <cxxabi.h>
#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include "debug/internal/DebuggerSeams.h"
#include "execution/internal/ThreadSafeDelayQueue.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/ReadWriteLock.h"
#include "tvxcore/threads/SyncPoint.h"
#include "tvxcore/utility/HostInfo.h"

namespace tvxcore::threads {
namespace {

using internal::ThreadSafeDelayQueue;
using Item = ThreadSafeDelayQueue::Item;

constexpr const char* kWorkerFile = "..\\..\\threads\\src\\ThreadedWorkQueue";
constexpr const char* kWorkerFunction =
    "tvxcore::threads::`anonymous-namespace'::ThreadedWorkQueue::WorkerMain";

// The readable name of an exception's dynamic type ("std::runtime_error").
std::string TypeNameOf(const std::exception& exception) {
  const char* mangled = typeid(exception).name();
  int status = 0;
  char* readable = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = (status == 0 && readable != nullptr) ? readable : mangled;
  std::free(readable);
  return name;
}

class ThreadedWorkQueue final : public AsyncThreadedExecutor {
 public:
  ThreadedWorkQueue(const std::string& name, int threadCount, ThreadPriority priority,
                    const boost::function<void()>& onThreadStart,
                    const boost::function<void()>& onThreadExit);
  ~ThreadedWorkQueue() override;
  ThreadedWorkQueue(const ThreadedWorkQueue&) = delete;
  ThreadedWorkQueue& operator=(const ThreadedWorkQueue&) = delete;

  bool CallAsynchronously(const boost::function<void()>& function,
                          unsigned int delayMilliseconds) override;
  int GetThreadCount() override { return static_cast<int>(threads_.size()); }
  void Terminate() override;
  bool IsTerminated() override;
  bool IsCurrentThreadExecutorThread() override;
  void WaitForQueuedWork() override;
  void Pause() override;
  void Resume() override;
  void WaitUntilResumed() override;

 private:
  // Thrown by the items Terminate posts; ends the worker that runs one.
  struct TerminateThreadException {};

  static void WorkerMain(const boost::shared_ptr<ThreadSafeDelayQueue>& queue,
                         const boost::shared_ptr<Gate>& gate);
  static void ThrowTerminate() { throw TerminateThreadException(); }

  bool PostShared(const boost::function<void()>& function, unsigned int delayMilliseconds,
                  bool& outOfMemory) TVX_REQUIRES_SHARED(queueLock_);
  template <typename Operation>
  void WithGate(Operation operation);
  void TerminateImpl();

  // Null once terminated; each worker holds its own reference.
  boost::shared_ptr<ThreadSafeDelayQueue> queue_ TVX_GUARDED_BY(queueLock_);
  ReadWriteLock queueLock_;
  BoostMutex joinMutex_;  // serialises WaitForQueuedWork; outer to queueLock_
  bool joined_ TVX_GUARDED_BY(joinMutex_) = false;
  // Written by the constructor only; joined under joinMutex_.
  std::vector<std::unique_ptr<boost::thread>> threads_;
  // The workers' identities, kept apart from the thread objects so that a
  // caller may ask while another joins.
  std::vector<boost::thread::id> threadIds_;
  boost::shared_ptr<Gate> gate_;
};

ThreadedWorkQueue::ThreadedWorkQueue(const std::string& name, int threadCount,
                                     ThreadPriority priority,
                                     const boost::function<void()>& onThreadStart,
                                     const boost::function<void()>& onThreadExit)
    : queue_(boost::make_shared<ThreadSafeDelayQueue>(threadCount)),
      gate_(boost::make_shared<Gate>(false)) {
  threads_.reserve(static_cast<std::size_t>(threadCount));
  threadIds_.reserve(static_cast<std::size_t>(threadCount));
  for (int i = 0; i < threadCount; ++i) {
    std::string threadName = name;
    if (threadCount != 1) {
      char number[16];
      std::snprintf(number, sizeof number, " %02d", i + 1);
      threadName += number;
    }
    threads_.push_back(std::make_unique<boost::thread>(
        CreateNamedThread(threadName, boost::bind(&ThreadedWorkQueue::WorkerMain, queue_, gate_),
                          priority, onThreadStart, onThreadExit)));
    threadIds_.push_back(threads_.back()->get_id());
  }
  // Workers may have taken an item already; none runs one before all exist.
  gate_->Open();
}

ThreadedWorkQueue::~ThreadedWorkQueue() {
  TerminateImpl();
  // Destroying the thread objects detaches the workers that were not joined;
  // they drain with their own references to the queue and the gate.
}

void ThreadedWorkQueue::WorkerMain(const boost::shared_ptr<ThreadSafeDelayQueue>& queue,
                                   const boost::shared_ptr<Gate>& gate) {
  if (!queue || !gate) return;
  // One ignore flag per clause, shared by every worker of every executor.
  static bool ignoreStdException = false;
  static bool ignoreUnknownException = false;
  for (;;) {
    try {
      for (;;) {
        Item* taken = nullptr;
        const bool gotItem = queue->GetNext(taken, ThreadSafeDelayQueue::kNoTimeLimit);
        std::unique_ptr<Item> item(taken);  // destroyed after the call, or while unwinding
        if (gotItem && item) {
          gate->PassThrough(-1);
          (*item)();
        }
      }
    } catch (const TerminateThreadException&) {
      return;
    } catch (const std::exception& exception) {
      if (!ignoreStdException) {
        const std::string message = "WorkerMain(): caught std exception of type \"" +
                                    TypeNameOf(exception) + "\", what() returned \"" +
                                    exception.what() + "\". Continuing.\r\n";
        if (debug::BreakAfterAssertDialog(ignoreStdException, "false", message.c_str(), kWorkerFile,
                                          411, kWorkerFunction) &&
            debug::IsDebuggerAttached())
          debug::internal::BreakIntoDebugger();
      }
    } catch (...) {
      if (!ignoreUnknownException &&
          debug::BreakAfterAssertDialog(ignoreUnknownException, "false",
                                        "WorkerMain(): caught unknown exception. Continuing.\r\n",
                                        kWorkerFile, 418, kWorkerFunction) &&
          debug::IsDebuggerAttached())
        debug::internal::BreakIntoDebugger();
    }
  }
}

bool ThreadedWorkQueue::PostShared(const boost::function<void()>& function,
                                   unsigned int delayMilliseconds, bool& outOfMemory) {
  if (function.empty() || !queue_) return false;
  // A single worker posting a timed call to itself needs no wake-up: it looks
  // at the timers when its current item ends.
  const bool wakeWorker =
      delayMilliseconds != 0 && (threads_.size() > 1 || !IsCurrentThreadExecutorThread());
  Item* item = nullptr;
  try {
    item = new Item(function);
  } catch (const std::bad_alloc&) {
    outOfMemory = true;
    return false;
  }
  const bool posted = queue_->Post(item, delayMilliseconds, wakeWorker);
  delete item;  // null when the queue took it
  return posted;
}

bool ThreadedWorkQueue::CallAsynchronously(const boost::function<void()>& function,
                                           unsigned int delayMilliseconds) {
  if (!queueLock_.TryLockShared()) return false;
  bool outOfMemory = false;
  const bool posted = PostShared(function, delayMilliseconds, outOfMemory);
  queueLock_.UnlockShared();
  if (outOfMemory) throw std::bad_alloc();
  return posted;
}

bool ThreadedWorkQueue::IsTerminated() {
  if (!queueLock_.TryLockShared()) return true;
  const bool terminated = !queue_;
  queueLock_.UnlockShared();
  return terminated;
}

bool ThreadedWorkQueue::IsCurrentThreadExecutorThread() {
  const boost::thread::id self = boost::this_thread::get_id();
  for (const boost::thread::id& id : threadIds_)
    if (id == self) return true;
  return false;
}

void ThreadedWorkQueue::Terminate() { TerminateImpl(); }

void ThreadedWorkQueue::TerminateImpl() {
  boost::shared_ptr<ThreadSafeDelayQueue> queue;
  queueLock_.LockExclusive();
  queue.swap(queue_);
  queueLock_.UnlockExclusive();
  if (!queue) return;
  queue->ClearDelayedItems();
  // One terminate item per worker, behind everything already due.
  for (std::size_t i = 0; i < threads_.size(); ++i) {
    Item* item = new Item(&ThreadedWorkQueue::ThrowTerminate);
    queue->Post(item, 0, false);
    delete item;
  }
  gate_->Open();
}

void ThreadedWorkQueue::WaitForQueuedWork() {
  if (IsCurrentThreadExecutorThread()) return;
  CheckedLock lock(joinMutex_);
  if (joined_) return;
  SyncPoint meeting(static_cast<unsigned int>(threads_.size() + 1));
  bool running = false;
  if (queueLock_.TryLockShared()) {
    if (queue_) {
      running = true;
      for (std::size_t i = 0; i < threads_.size(); ++i) {
        Item* item = new Item([meeting]() mutable { meeting.Wait(); });
        queue_->Post(item, 0, false);
        delete item;
      }
    }
    queueLock_.UnlockShared();
  }
  if (running) {
    meeting.Wait();
    return;
  }
  for (const auto& thread : threads_) thread->join();
  joined_ = true;
}

template <typename Operation>
void ThreadedWorkQueue::WithGate(Operation operation) {
  if (!queueLock_.TryLockShared()) return;
  if (gate_ && queue_) operation(*gate_);
  queueLock_.UnlockShared();
}

void ThreadedWorkQueue::Pause() {
  WithGate([](Gate& gate) { gate.Close(); });
}

void ThreadedWorkQueue::Resume() {
  WithGate([](Gate& gate) { gate.Open(); });
}

void ThreadedWorkQueue::WaitUntilResumed() {
  WithGate([](Gate& gate) { gate.PassThrough(-1); });
}

}  // namespace

boost::shared_ptr<AsyncThreadedExecutor> CreateAsyncThreadedExecutor(
    std::string const& name, int threadCount, ThreadPriority priority,
    boost::function<void()> const& onThreadStart, boost::function<void()> const& onThreadExit) {
  if (threadCount < 0) threadCount = static_cast<int>(utility::CPUCount()) * -threadCount;
  auto* executor = new (std::nothrow)
      ThreadedWorkQueue(name, threadCount, priority, onThreadStart, onThreadExit);
  if (executor == nullptr) return {};
  return boost::shared_ptr<AsyncThreadedExecutor>(executor);
}

}  // namespace tvxcore::threads
