#include "tvxcore/threads/DelayedExecution.h"

#include <boost/bind/bind.hpp>
#include <boost/throw_exception.hpp>
#include <boost/weak_ptr.hpp>

namespace tvxcore::threads {
namespace {

void RepeatStep(const boost::weak_ptr<AsyncExecutor>& executor,
                const boost::function<bool()>& function, unsigned int delayMilliseconds) {
  if (!function()) return;
  CallConditionalRepeatDelayFunctionAsynchronously(executor.lock(), function, delayMilliseconds);
}

bool CallIfAlive(const boost::weak_ptr<boost::function<void()>>& weakFunction) {
  const boost::shared_ptr<boost::function<void()>> function = weakFunction.lock();
  if (!function) return false;
  (*function)();
  return true;
}

void RunIfAlive(const boost::weak_ptr<QueueOnlyOnce>& weakSelf, void (QueueOnlyOnce::*run)()) {
  if (const boost::shared_ptr<QueueOnlyOnce> self = weakSelf.lock()) ((*self).*run)();
}

}  // namespace

void CallConditionalRepeatDelayFunctionAsynchronously(
    boost::shared_ptr<AsyncExecutor> const& executor, boost::function<bool()> const& function,
    unsigned int delayMilliseconds) {
  if (!executor || function.empty()) return;
  executor->CallAsynchronously(boost::bind(&RepeatStep, boost::weak_ptr<AsyncExecutor>(executor),
                                           function, delayMilliseconds),
                               delayMilliseconds);
}

RepeatDelayFunction::RepeatDelayFunction(boost::shared_ptr<AsyncExecutor> const& executor,
                                         boost::function<void()> const& function,
                                         unsigned int delayMilliseconds)
    : function_(new boost::function<void()>(function)) {
  CallConditionalRepeatDelayFunctionAsynchronously(
      executor, boost::bind(&CallIfAlive, boost::weak_ptr<boost::function<void()>>(function_)),
      delayMilliseconds);
}

RepeatDelayFunction::~RepeatDelayFunction() = default;

void RepeatDelayFunction::DoNotCallAgain() { function_.reset(); }

QueueOnlyOnce::QueueOnlyOnce(boost::function<void()> const& function,
                             boost::shared_ptr<AsyncExecutor> const& executor,
                             int delayMilliseconds)
    : function_(function), executor_(executor), delayMilliseconds_(delayMilliseconds) {
  if (function_.empty()) boost::throw_exception(boost::bad_function_call());
}

bool QueueOnlyOnce::Request() {
  std::uint32_t expected = 0;
  if (!queued_.compare_exchange_strong(expected, 1)) return true;
  const bool posted =
      executor_ && executor_->CallAsynchronously(
                       boost::bind(&RunIfAlive, boost::weak_ptr<QueueOnlyOnce>(weak_from_this()),
                                   &QueueOnlyOnce::RunQueued),
                       static_cast<unsigned int>(delayMilliseconds_));
  if (!posted) queued_.store(0);
  return posted;
}

void QueueOnlyOnce::RunQueued() {
  queued_.store(0);
  function_();
}

}  // namespace tvxcore::threads
