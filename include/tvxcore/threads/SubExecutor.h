// tvxcore/threads/SubExecutor.h: narrow or serial executors that borrow the
// threads of a parent executor instead of owning any.
//
// One client of a large shared pool can thus run its work one item at a time
// (a serial queue on a pool) or a few at a time, without a thread of its own.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/threads/AsyncExecutor.h"

namespace tvxcore::threads {

// An executor over `parent` that runs at most `maxConcurrency` of its items
// at once, in the order they were queued (a width of 1 never overlaps two
// items, though they may run on different threads of the parent).
//
// - Width: a negative `maxConcurrency`, or one above the parent's thread
//   count, becomes the parent's thread count. If the width comes out below 1
//   (a null parent, a parent without threads, a width of 0) the result is a
//   null pointer and nothing is created.
// - Fairness: each item is run by one call queued on the parent, and the next
//   item queues a new call behind whatever else the parent has; a long
//   backlog never holds a parent thread.
// - Delays: a delayed call waits on the parent's timers; when it comes due it
//   runs at once if a slot is free, else joins the queue. No order is
//   promised between delayed and undelayed calls.
// - Failures: an exception leaving an item is swallowed without a report, and
//   never costs the executor a slot.
// - WaitForQueuedWork waits for every undelayed item queued before the call
//   (including delayed calls that have come due by then), in whatever order
//   they finish; from inside one of the executor's items it returns at once.
// - IsCurrentThreadExecutorThread is true only inside one of its items.
// - Pause stops new items from starting (running ones finish); Terminate
//   refuses new calls, drops delayed calls not yet due, and lets queued items
//   run (releasing a pause to do so). WaitUntilResumed returns at once.
// - Releasing the last reference terminates the executor without waiting;
//   items already queued still run, since the calls queued on the parent
//   keep the executor's state alive.
// - If the parent refuses calls (terminated), queued items wait and run only
//   if a later call gets through.
//
// All operations may be called from any thread, also from inside items. The
// executor's lock is held while it queues on the parent, never while an item
// runs, so sub executors may be stacked on sub executors.
TVXCORE_EXPORT boost::shared_ptr<AsyncThreadedExecutor> CreateSubExecutor(
    boost::shared_ptr<AsyncExecutor> const& parent, int maxConcurrency);

// As CreateSubExecutor, but every item is handed to `wrapper`, which decides
// whether and how to call it (for example inside a try block or with some
// per-thread state set up). An empty wrapper gives a plain sub executor.
TVXCORE_EXPORT boost::shared_ptr<AsyncThreadedExecutor> CreateSubExecutorWithFunctionWrapper(
    boost::shared_ptr<AsyncExecutor> const& parent, int maxConcurrency,
    boost::function<void(boost::function<void()> const&)> const& wrapper);

}  // namespace tvxcore::threads
