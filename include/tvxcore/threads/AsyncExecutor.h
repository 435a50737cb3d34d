// tvxcore/threads/AsyncExecutor.h: the one abstraction every piece of
// asynchronous work of the library goes through.
//
// An executor takes a function and, if wanted, a delay in milliseconds, and
// runs the function later on a thread of its own. Executors that own their
// threads (worker pools) also answer whether the caller is one of them, wait
// for the work already due, and pause and resume.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <string>

#include "tvxcore/Export.h"
#include "tvxcore/threads/Thread.h"

namespace tvxcore::threads {

class TVXCORE_EXPORT AsyncExecutor {
 public:
  virtual ~AsyncExecutor();

  // Queues a call of `function` to run after `delayMilliseconds` (0: as soon
  // as a thread is free). False if the call could not be queued: the
  // executor is terminated, or `function` is empty.
  virtual bool CallAsynchronously(boost::function<void()> const& function,
                                  unsigned int delayMilliseconds) = 0;
  // How many threads may run this executor's work at once.
  virtual int GetThreadCount() = 0;
  // Stops accepting work; work already due still runs, and the threads end.
  virtual void Terminate() = 0;
  virtual bool IsTerminated() = 0;
};

class TVXCORE_EXPORT AsyncThreadedExecutor : public AsyncExecutor {
 public:
  // True when the calling thread is one of this executor's own threads.
  virtual bool IsCurrentThreadExecutorThread() = 0;
  // Returns once every thread has finished what it took and everything due
  // at the time of the call has run; after Terminate, joins the threads.
  // Returns at once on one of the executor's own threads.
  virtual void WaitForQueuedWork() = 0;
  // Threads may take one item each while paused, and hold it until Resume.
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  // Blocks the caller while the executor is paused.
  virtual void WaitUntilResumed() = 0;
};

// A pool of `threadCount` worker threads fed from one queue, all started
// before the call returns. A negative count is a multiple of the processors
// (-1: one thread a processor). With more than one thread, the threads are
// called `name` followed by a blank and a two-digit number from 01. Null if
// the executor could not be allocated.
TVXCORE_EXPORT boost::shared_ptr<AsyncThreadedExecutor> CreateAsyncThreadedExecutor(
    std::string const& name, int threadCount, ThreadPriority priority,
    boost::function<void()> const& onThreadStart, boost::function<void()> const& onThreadExit);

}  // namespace tvxcore::threads
