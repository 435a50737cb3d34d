// tvxcore/threads/Thread.h: starting the library's threads with a name and a
// priority, and the identity of the calling thread and process.
#pragma once

#include <boost/function.hpp>
#include <boost/thread/thread.hpp>
#include <cstdint>
#include <string>

#include "tvxcore/Export.h"

namespace tvxcore::threads {

// The priority scale that every thread-creating call of the library takes.
// Any other value of the underlying int counts as ThreadPriority_Normal (the
// fixed underlying type makes every int a valid value). On Linux the priority
// becomes the thread's own nice value; raising it above normal needs
// privileges and silently stays normal without them.
enum ThreadPriority : int {
  ThreadPriority_Idle = 0,
  ThreadPriority_Lowest = 1,
  ThreadPriority_BelowNormal = 2,
  ThreadPriority_Normal = 3,
  ThreadPriority_AboveNormal = 4,
  ThreadPriority_Highest = 5,
};

// Starts a thread and returns it; the caller owns the boost::thread, and
// destroying it detaches the thread. The new thread, in this order:
//   1. ends at once if `body` is empty (neither onStart nor onExit runs);
//   2. runs `onStart` (at the default priority) if it is not empty;
//   3. sets its own priority, ignoring failure;
//   4. runs `body`;
//   5. runs `onExit` (at the requested priority) if it is not empty.
// Nothing is caught: an exception leaving `body` skips `onExit`. Before
// step 2 the thread gives `name` to the system, which keeps its first 15
// bytes for debuggers and process viewers (`top -H`, gdb); the library keeps
// no table of names and never reads a name back.
TVXCORE_EXPORT boost::thread CreateNamedThread(std::string const& name,
                                               boost::function<void()> body,
                                               ThreadPriority priority,
                                               boost::function<void()> const& onStart,
                                               boost::function<void()> const& onExit);

// The system's identifier of the calling thread (the kernel thread id).
TVXCORE_EXPORT std::uint32_t GetCurrentThreadID();

// The system's identifier of the process.
TVXCORE_EXPORT std::uint32_t GetCurrentProcessID();

// True on the thread registered as the application's main thread. False on
// every thread while no main thread is registered.
TVXCORE_EXPORT bool CurrentThreadIsMainThread();

}  // namespace tvxcore::threads
