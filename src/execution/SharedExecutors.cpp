// The register of shared executors, and parallel loops over an executor.
#include "tvxcore/threads/SharedExecutors.h"

#include <algorithm>
#include <atomic>
#include <boost/weak_ptr.hpp>
#include <vector>

#include "execution/internal/SharedThreadsRegister.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/RecursiveMutex.h"
#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxcore::threads {

IMultithreadedTask::~IMultithreadedTask() = default;

namespace {

// The process-wide register. It is made on first use and destroyed at exit;
// idle temporary executors still in it then end as their destructors say.
struct SharedThreads {
  // Reentrant: Set... holds it around Get..., and the main-thread update may
  // call back into the register.
  RecursiveMutex mutex;
  boost::weak_ptr<AsyncExecutor> cpuBoundExecutor TVX_GUARDED_BY(mutex);
  boost::weak_ptr<AsyncExecutor> ioBoundExecutor TVX_GUARDED_BY(mutex);
  boost::weak_ptr<AsyncEventLoopAdaptor> mainThreadExecutor TVX_GUARDED_BY(mutex);
  // Idle single-thread executors, used as a stack.
  std::vector<boost::shared_ptr<AsyncThreadedExecutor>> temporaryExecutors TVX_GUARDED_BY(mutex);
};

SharedThreads& Register() {
  static SharedThreads shared;
  return shared;
}

boost::shared_ptr<AsyncExecutor> CreateShared(boost::weak_ptr<AsyncExecutor>& slot,
                                              char const* name, int threadCount,
                                              ThreadPriority priority) {
  if (boost::shared_ptr<AsyncExecutor> live = slot.lock()) return live;
  boost::shared_ptr<AsyncExecutor> made =
      CreateAsyncThreadedExecutor(name, threadCount, priority, {}, {});
  if (made) slot = made;
  return made;
}

void SetShared(boost::weak_ptr<AsyncExecutor>& slot,
               boost::shared_ptr<AsyncExecutor> const& executor) {
  if (!slot.lock()) slot = executor;
}

// One parallel loop. Iterations are handed out by one shared counter and
// counted by another; the gate a waiter sleeps on is made only when the
// waiter finds work outstanding after taking its own share.
class MultithreadedTask final : public IMultithreadedTask,
                                public utility::SmallBlockAllocator::Allocated<MultithreadedTask> {
 public:
  MultithreadedTask(boost::function<void(int, int)> const& function, int iterationCount)
      : iterationCount_(iterationCount), function_(function) {}
  MultithreadedTask(const MultithreadedTask&) = delete;
  MultithreadedTask& operator=(const MultithreadedTask&) = delete;
  ~MultithreadedTask() override { delete doneGate_.load(std::memory_order_acquire); }

  void Run() {
    int const processor = nextProcessorIndex_.fetch_add(1, std::memory_order_relaxed);
    if (nextIteration_.load(std::memory_order_relaxed) >= iterationCount_) return;
    for (int i = nextIteration_.fetch_add(1, std::memory_order_relaxed); i < iterationCount_;
         i = nextIteration_.fetch_add(1, std::memory_order_relaxed)) {
      function_(i, processor);
      // Sequentially consistent, paired with the publication of the gate in
      // ExecuteAndWait: either this thread sees the gate or the waiter sees
      // the count.
      if (finishedIterations_.fetch_add(1, std::memory_order_seq_cst) + 1 == iterationCount_) {
        if (Gate* gate = doneGate_.load(std::memory_order_seq_cst)) gate->Open();
      }
    }
  }

  void ExecuteAndWait() override {
    Run();
    if (finishedIterations_.load(std::memory_order_acquire) >= iterationCount_) return;
    Gate* gate = new Gate(false);
    Gate* expected = nullptr;
    if (!doneGate_.compare_exchange_strong(expected, gate, std::memory_order_seq_cst)) {
      delete gate;
      gate = expected;
    }
    if (finishedIterations_.load(std::memory_order_seq_cst) < iterationCount_)
      gate->PassThrough(-1);
  }

 private:
  // The two counters every iteration touches sit on lines of their own, apart
  // from each other and from the fields that are only read.
  alignas(64) std::atomic<int> nextIteration_{0};
  alignas(64) std::atomic<int> finishedIterations_{0};
  alignas(64) std::atomic<int> nextProcessorIndex_{0};
  std::atomic<Gate*> doneGate_{nullptr};
  int const iterationCount_;
  boost::function<void(int, int)> const function_;
};

// What a runner queued on the executor holds: the task, strongly.
struct TaskRunner {
  boost::shared_ptr<MultithreadedTask> task;
  void operator()() const { task->Run(); }
};

}  // namespace

boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  return CreateShared(shared.cpuBoundExecutor, "CPU", -1, ThreadPriority_Normal);
}

boost::shared_ptr<AsyncExecutor> CreateIOBoundExecutor() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  return CreateShared(shared.ioBoundExecutor, "IO", 4, ThreadPriority_Lowest);
}

boost::shared_ptr<AsyncExecutor> GetCPUBoundExecutor() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  return shared.cpuBoundExecutor.lock();
}

boost::shared_ptr<AsyncExecutor> GetIOBoundExecutor() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  return shared.ioBoundExecutor.lock();
}

void SetCPUBoundExecutor(boost::shared_ptr<AsyncExecutor> const& executor) {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  SetShared(shared.cpuBoundExecutor, executor);
}

void SetIOBoundExecutor(boost::shared_ptr<AsyncExecutor> const& executor) {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  SetShared(shared.ioBoundExecutor, executor);
}

boost::shared_ptr<AsyncThreadedExecutor> BorrowTemporarySingleThreadedExecutor() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  if (shared.temporaryExecutors.empty())
    return CreateAsyncThreadedExecutor("Temporary Thread", 1, ThreadPriority_Normal, {}, {});
  boost::shared_ptr<AsyncThreadedExecutor> executor = shared.temporaryExecutors.back();
  shared.temporaryExecutors.pop_back();
  executor->Resume();
  return executor;
}

void ReturnTemporarySingleThreadedExecutor(
    boost::shared_ptr<AsyncThreadedExecutor> const& executor) {
  if (!executor) return;
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  if (shared.temporaryExecutors.size() < 2) {
    executor->Pause();
    shared.temporaryExecutors.push_back(executor);
  } else {
    executor->Terminate();
  }
}

void CleanupAllSharedThreads() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  for (auto const& executor : shared.temporaryExecutors) {
    executor->Resume();
    executor->Terminate();
  }
  shared.temporaryExecutors.clear();
}

boost::shared_ptr<IMultithreadedTask> AsyncExecuteTaskOnAllThreadsWithProcessorIndex(
    boost::function<void(int, int)> const& function, int iterationCount,
    boost::shared_ptr<AsyncExecutor> const& executor) {
  int const runnerCount = std::min(executor ? executor->GetThreadCount() : 1, iterationCount);
  if (!executor || runnerCount < 2) {
    for (int i = 0; i < iterationCount; ++i) function(i, 0);
    return boost::shared_ptr<IMultithreadedTask>();
  }
  boost::shared_ptr<MultithreadedTask> task(new MultithreadedTask(function, iterationCount));
  for (int i = 1; i < runnerCount; ++i) executor->CallAsynchronously(TaskRunner{task}, 0);
  return task;
}

boost::shared_ptr<IMultithreadedTask> AsyncExecuteTaskOnAllThreads(
    boost::function<void(int)> const& function, int iterationCount,
    boost::shared_ptr<AsyncExecutor> const& executor) {
  boost::function<void(int, int)> dropIndex;
  if (!function.empty()) dropIndex = [function](int iteration, int) { function(iteration); };
  return AsyncExecuteTaskOnAllThreadsWithProcessorIndex(dropIndex, iterationCount, executor);
}

void ExecuteCPUBoundTaskOnAllProcessors(boost::function<void(int)> const& function,
                                        int iterationCount) {
  if (auto task = AsyncExecuteTaskOnAllThreads(function, iterationCount, GetCPUBoundExecutor()))
    task->ExecuteAndWait();
}

void ExecuteCPUBoundTaskOnAllProcessorsWithProcessorIndex(
    boost::function<void(int, int)> const& function, int iterationCount) {
  if (auto task = AsyncExecuteTaskOnAllThreadsWithProcessorIndex(function, iterationCount,
                                                                 GetCPUBoundExecutor()))
    task->ExecuteAndWait();
}

namespace internal {

MainThreadAdaptor GetMainThreadSlot() {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  return shared.mainThreadExecutor.lock();
}

MainThreadAdaptor UpdateMainThreadSlot(
    boost::function<MainThreadAdaptor(MainThreadAdaptor const& current)> const& update) {
  SharedThreads& shared = Register();
  RecursiveMutexLock lock(shared.mutex);
  MainThreadAdaptor result = update(shared.mainThreadExecutor.lock());
  shared.mainThreadExecutor = result;
  return result;
}

}  // namespace internal
}  // namespace tvxcore::threads
