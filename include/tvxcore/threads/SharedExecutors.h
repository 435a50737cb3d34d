// tvxcore/threads/SharedExecutors.h: the executors that clients of a process
// share (processor-bound, input and output, a reserve of single-thread
// executors to borrow), and parallel loops over an executor's threads.
//
// The register owns nothing for long: it knows the shared executors only
// through weak references, so each lives exactly as long as some client
// holds it, and the next Create... call after that makes a new one.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/threads/AsyncExecutor.h"

namespace tvxcore::threads {

// The live executor for processor-bound work ("CPU", one thread a
// processor), made if none is alive. Keep the result for as long as the
// parallelism is wanted: the register does not keep it alive.
TVXCORE_EXPORT boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor();
// The live executor for input and output ("IO", 4 threads at the lowest
// priority), made if none is alive.
TVXCORE_EXPORT boost::shared_ptr<AsyncExecutor> CreateIOBoundExecutor();
// The live shared executor or a null pointer; these never make one.
TVXCORE_EXPORT boost::shared_ptr<AsyncExecutor> GetCPUBoundExecutor();
TVXCORE_EXPORT boost::shared_ptr<AsyncExecutor> GetIOBoundExecutor();
// Installs a client's executor as the shared one, unless one is alive (a
// live executor is never replaced). The register holds it weakly.
TVXCORE_EXPORT void SetCPUBoundExecutor(boost::shared_ptr<AsyncExecutor> const& executor);
TVXCORE_EXPORT void SetIOBoundExecutor(boost::shared_ptr<AsyncExecutor> const& executor);

// A one-thread executor, running and ready: an idle one from the reserve
// (resumed) or a new one called "Temporary Thread".
TVXCORE_EXPORT boost::shared_ptr<AsyncThreadedExecutor> BorrowTemporarySingleThreadedExecutor();
// Gives a borrowed executor back: paused into the reserve while it holds
// fewer than 2, else terminated. Work left queued stays in the paused
// executor until its next borrower resumes it; drain it first if that
// matters.
TVXCORE_EXPORT void ReturnTemporarySingleThreadedExecutor(
    boost::shared_ptr<AsyncThreadedExecutor> const& executor);
// Terminates the reserve's idle executors. The CPU and IO executors and the
// main thread are left to their owners.
TVXCORE_EXPORT void CleanupAllSharedThreads();

// A loop started by AsyncExecuteTaskOnAllThreads. The caller must call
// ExecuteAndWait: the caller takes part in the loop, and it is the only way
// to learn that every iteration has finished.
class TVXCORE_EXPORT IMultithreadedTask {
 public:
  IMultithreadedTask() = default;
  IMultithreadedTask(const IMultithreadedTask&) = default;
  IMultithreadedTask& operator=(const IMultithreadedTask&) = default;
  // Runs iterations on the calling thread until none is left, then blocks
  // until the other threads have finished theirs. Everything the iterations
  // did is visible to the caller when it returns. An exception from an
  // iteration run here leaves ExecuteAndWait (the other threads go on).
  virtual void ExecuteAndWait() = 0;
  virtual ~IMultithreadedTask();
};

// Runs `function(iteration, processorIndex)` for every iteration from 0 to
// `iterationCount` - 1, spread over at most GetThreadCount() of `executor`
// threads, the caller included: min(threads, iterations) - 1 runners are
// queued on the executor and the caller is the last one once it calls
// ExecuteAndWait. Iterations are handed out one at a time, so fast threads
// take more. `processorIndex` numbers the runners 0, 1, ... in the order they
// start, below the number of runners, so that a loop can keep scratch data
// per runner.
//
// With a null executor, or fewer than 2 runners, every iteration runs here in
// order with processor index 0, and the result is a null pointer.
//
// `function` must not throw: an iteration that throws on the executor's
// thread is reported by the executor and never counted, so ExecuteAndWait
// would wait for ever. Running out of memory throws std::bad_alloc.
TVXCORE_EXPORT boost::shared_ptr<IMultithreadedTask> AsyncExecuteTaskOnAllThreadsWithProcessorIndex(
    boost::function<void(int, int)> const& function, int iterationCount,
    boost::shared_ptr<AsyncExecutor> const& executor);
// As above, without the processor index.
TVXCORE_EXPORT boost::shared_ptr<IMultithreadedTask> AsyncExecuteTaskOnAllThreads(
    boost::function<void(int)> const& function, int iterationCount,
    boost::shared_ptr<AsyncExecutor> const& executor);

// Runs the loop to its end on the live CPU executor, the caller taking part.
// With no live CPU executor (these calls never make one), every iteration
// runs on the caller with processor index 0.
TVXCORE_EXPORT void ExecuteCPUBoundTaskOnAllProcessors(boost::function<void(int)> const& function,
                                                       int iterationCount);
TVXCORE_EXPORT void ExecuteCPUBoundTaskOnAllProcessorsWithProcessorIndex(
    boost::function<void(int, int)> const& function, int iterationCount);

}  // namespace tvxcore::threads
