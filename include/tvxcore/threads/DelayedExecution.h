// tvxcore/threads/DelayedExecution.h: calls that repeat at an interval on any
// executor, and a call that any number of requests queue only once.
#pragma once

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/threads/AsyncExecutor.h"

namespace tvxcore::threads {

// Runs `function` on `executor` after `delayMilliseconds`, and again after the
// same delay each time it returns true, until it returns false. The delay
// runs from the end of one call to the start of the next, so calls never
// overlap and drift is accepted. The chain holds the executor weakly: it ends
// when the executor is gone or refuses the next step (terminated). A null
// executor or an empty function does nothing. An exception out of `function`
// ends the chain and goes to the executor's own handling.
TVXCORE_EXPORT void CallConditionalRepeatDelayFunctionAsynchronously(
    boost::shared_ptr<AsyncExecutor> const& executor, boost::function<bool()> const& function,
    unsigned int delayMilliseconds);

// Calls `function` on `executor` every `delayMilliseconds` (measured as above)
// for as long as this object lives and DoNotCallAgain() has not been called.
// The chain holds the function weakly: a call in progress finishes, the step
// already queued arrives and ends the chain without calling anything. Not
// copyable; its operations are not meant to race each other.
class TVXCORE_EXPORT RepeatDelayFunction {
 public:
  RepeatDelayFunction(boost::shared_ptr<AsyncExecutor> const& executor,
                      boost::function<void()> const& function, unsigned int delayMilliseconds);
  ~RepeatDelayFunction();
  RepeatDelayFunction(const RepeatDelayFunction&) = delete;
  RepeatDelayFunction& operator=(const RepeatDelayFunction&) = delete;

  // Ends the repetition; calling it again does nothing.
  void DoNotCallAgain();

 private:
  boost::shared_ptr<boost::function<void()>> function_;
};

// Collapses a burst of requests into one queued call: Request() queues a call
// of `function` on `executor` unless one is queued already. The queued call
// clears the mark before it calls `function`, so a request made while
// `function` runs queues a new call and is never lost. Always held by a
// boost::shared_ptr (the queued call refers to it weakly and does nothing once
// it is gone). Request() may be called from any thread.
class TVXCORE_EXPORT QueueOnlyOnce : public boost::enable_shared_from_this<QueueOnlyOnce> {
 public:
  // An empty `function` throws boost::bad_function_call.
  QueueOnlyOnce(boost::function<void()> const& function,
                boost::shared_ptr<AsyncExecutor> const& executor, int delayMilliseconds);
  QueueOnlyOnce(const QueueOnlyOnce&) = delete;
  QueueOnlyOnce& operator=(const QueueOnlyOnce&) = delete;

  // Queues the call unless one is queued and has not started. False when the
  // executor refused the call (the mark is cleared again then).
  bool Request();

 private:
  void RunQueued();

  std::atomic<std::uint32_t> queued_{0};
  boost::function<void()> function_;
  boost::shared_ptr<AsyncExecutor> executor_;
  int delayMilliseconds_;
};

}  // namespace tvxcore::threads
