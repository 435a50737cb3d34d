// tvxcore/threads/EventLoop.h: a thread's event loop seen as an executor, an
// executor that brings its own loop thread, and the application's main thread.
//
// Work for a user interface must run on the thread that owns its loop. An
// AsyncEventLoopAdaptor makes such a loop look like any other executor; the
// main thread is registered as one, and AsyncCallFromMainThread reaches it
// from anywhere.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <string>

#include "tvxcore/Export.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/Thread.h"

namespace tvxcore::threads {

// An executor whose one thread is the event loop of the thread that made it.
// Its work runs only while that thread runs its loop (RunPlatformEventLoop)
// or drains the queue itself (RunQueuedFunctions).
//
// Undelayed calls run in the order they were made, one a loop message.
// Delayed calls are posted into the loop by a shared timer thread when due,
// and are not held back by a running call. An exception leaving a call that
// the loop delivers is dropped; one leaving a call that RunQueuedFunctions
// runs reaches RunQueuedFunctions' caller.
//
// A non-reentrant adaptor never starts a queued call while another of its
// calls is running: a loop nested inside a call leaves the queue alone until
// the outer call returns. A reentrant one (the main thread) keeps serving
// its queue from nested loops.
//
// GetThreadCount() is always 1. Terminate() ends the loop (a quit reaches
// RunPlatformEventLoop) and refuses new calls; calls queued before it can
// still be run with RunQueuedFunctions. All members are thread-safe except
// RunQueuedFunctions, which belongs to the loop's thread.
class TVXCORE_EXPORT AsyncEventLoopAdaptor : public AsyncExecutor {
 public:
  // True on the thread whose loop this is.
  virtual bool IsCurrentThreadExecutorThread() = 0;
  // Runs the undelayed calls queued so far, in order, on the calling thread
  // (the loop's); stops at once inside a call of a non-reentrant adaptor.
  virtual void RunQueuedFunctions() = 0;
};

// An executor with a thread of its own that runs an event loop.
// Terminate() ends the loop; the thread then runs the undelayed calls
// still queued and ends. Releasing the executor terminates it and lets the
// thread end on its own, so it may be released from one of its calls.
class TVXCORE_EXPORT AsyncEventLoopExecutor : public AsyncExecutor {
 public:
  // True on the executor's own thread.
  virtual bool IsCurrentThreadExecutorThread() = 0;
  // Blocks until the executor's thread has ended (call Terminate first).
  // Not from the executor's own thread.
  virtual void WaitForThreadEnd() = 0;
};

// An adaptor for the calling thread's event loop (made on first use). Every
// adaptor shares one timer thread, "SharedTimerThread", for delayed calls
// while any adaptor lives.
TVXCORE_EXPORT boost::shared_ptr<AsyncEventLoopAdaptor> AdaptCurrentEventLoopAsExecutor(
    bool reentrant);

// Starts a thread called `name` at `priority` that runs an event loop
// (non-reentrant), with `onThreadStart` and `onThreadExit` around it as
// CreateNamedThread runs them. The loop is ready when this returns.
TVXCORE_EXPORT boost::shared_ptr<AsyncEventLoopExecutor> CreateAsyncEventLoopExecutor(
    std::string const& name, ThreadPriority priority, boost::function<void()> const& onThreadStart,
    boost::function<void()> const& onThreadExit);

// Registers the calling thread as the application's main thread, with a
// reentrant adaptor of its loop, and returns that adaptor. Registering the
// same thread again returns the same adaptor; registering another thread
// while one is registered is a contract violation (the contract dialog,
// then config::ThrowError with the input contract key). The register holds
// the adaptor weakly: the main thread stays registered, and
// CurrentThreadIsMainThread true on it, while the caller keeps the result.
TVXCORE_EXPORT boost::shared_ptr<AsyncEventLoopAdaptor> RegisterCurrentThreadAsMainThread();

// The registered main thread's adaptor, or null.
TVXCORE_EXPORT boost::shared_ptr<AsyncEventLoopAdaptor> GetRegisteredMainThread();

// Queues an undelayed call on the registered main thread. With none
// registered the call is dropped without a word.
TVXCORE_EXPORT void AsyncCallFromMainThread(boost::function<void()> const& function);

// Runs the calling thread's event loop until a quit reaches it: the
// Terminate() of an adaptor of this thread, or QuitPlatformEventLoop().
// Loops may nest; a quit ends the innermost one.
TVXCORE_EXPORT void RunPlatformEventLoop();

// Queues a quit on the calling thread's event loop, behind what is queued.
TVXCORE_EXPORT void QuitPlatformEventLoop();

// Calls `onReadable` from the calling thread's event loop whenever `fd` can
// be read without blocking (also at end of file or on an error), until the
// result is released. The callback must read, or it is called again. Null
// if the descriptor cannot be watched (not open, or watched already on this
// thread). Keep `fd` open while the result lives; the result may be
// released on any thread.
TVXCORE_EXPORT boost::shared_ptr<void> WatchReadableOnCurrentThread(
    int fd, boost::function<void()> const& onReadable);

}  // namespace tvxcore::threads
