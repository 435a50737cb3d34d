// Repeating and coalesced calls on an executor.
#include "tvxcore/threads/DelayedExecution.h"

#include <gtest/gtest.h>

#include <boost/function.hpp>
#include <boost/make_shared.hpp>
#include <memory>

#include "execution/ExecutorTestSupport.h"
#include "tvxcore/threads/AsyncExecutor.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::Counter;

boost::shared_ptr<AsyncThreadedExecutor> SingleWorker() {
  return CreateAsyncThreadedExecutor("Delayed", 1, ThreadPriority_Normal, {}, {});
}

void Finish(const boost::shared_ptr<AsyncThreadedExecutor>& executor) {
  executor->Terminate();
  executor->WaitForQueuedWork();
}

TEST(CallConditionalRepeatDelayFunctionAsynchronously, RepeatsWhileTrueAndStopsAtFalse) {
  auto executor = SingleWorker();
  // Rows: calls that answer true before the one false.
  for (int trueCalls : {0, 1, 4}) {
    Counter calls, sentinel;
    CallConditionalRepeatDelayFunctionAsynchronously(
        executor,
        [&] {
          calls.Add();
          return calls.Value() <= trueCalls;
        },
        8);
    ASSERT_TRUE(calls.WaitFor(trueCalls + 1));
    // A later deadline than any step the chain could still queue: on one
    // worker that step would run first.
    ASSERT_TRUE(executor->CallAsynchronously([&] { sentinel.Add(); }, 40));
    ASSERT_TRUE(sentinel.WaitFor(1));
    EXPECT_EQ(calls.Value(), trueCalls + 1) << "the chain ended at the false answer";
  }
  // Nothing to run or nowhere to run it: nothing happens.
  CallConditionalRepeatDelayFunctionAsynchronously(
      {}, [] { return true; }, 8);
  CallConditionalRepeatDelayFunctionAsynchronously(executor, {}, 8);
  Finish(executor);
}

TEST(RepeatDelayFunction, CallsUntilToldOrDestroyed) {
  auto executor = SingleWorker();
  for (bool destroy : {false, true}) {
    Counter calls, sentinel;
    auto repeat = std::make_unique<RepeatDelayFunction>(
        executor, [&] { calls.Add(); }, 8);
    ASSERT_TRUE(calls.WaitFor(3));
    // Stopped from the executor's own thread, so no call is in progress.
    ASSERT_TRUE(executor->CallAsynchronously(
        [&] {
          if (destroy) {
            repeat.reset();
          } else {
            repeat->DoNotCallAgain();
            repeat->DoNotCallAgain();  // twice is harmless
          }
          sentinel.Add();
        },
        0));
    ASSERT_TRUE(sentinel.WaitFor(1));
    const int stoppedAt = calls.Value();
    ASSERT_TRUE(executor->CallAsynchronously([&] { sentinel.Add(); }, 40));
    ASSERT_TRUE(sentinel.WaitFor(2));
    EXPECT_EQ(calls.Value(), stoppedAt) << (destroy ? "destroyed" : "told");
  }
  Finish(executor);
}

TEST(QueueOnlyOnce, ABurstOfRequestsMakesOneCallAndNoneIsLost) {
  auto executor = SingleWorker();
  Counter calls;
  boost::shared_ptr<QueueOnlyOnce> once;
  bool requestDuringCall = true;
  once = boost::make_shared<QueueOnlyOnce>(
      [&] {
        calls.Add();
        if (requestDuringCall) {
          requestDuringCall = false;
          once->Request();  // comes while the call runs: queues another
        }
      },
      executor, 0);
  executor->Pause();
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(once->Request());
  executor->Resume();
  ASSERT_TRUE(calls.WaitFor(2));
  executor->WaitForQueuedWork();
  EXPECT_EQ(calls.Value(), 2) << "100 requests, one call; one request during it, one more";

  // The queued call holds the object weakly: gone before it runs, no call.
  executor->Pause();
  requestDuringCall = false;
  EXPECT_TRUE(once->Request());
  once.reset();
  executor->Resume();
  executor->WaitForQueuedWork();
  EXPECT_EQ(calls.Value(), 2);

  EXPECT_THROW(QueueOnlyOnce(boost::function<void()>(), executor, 0), boost::bad_function_call);
  Finish(executor);
  auto refused = boost::make_shared<QueueOnlyOnce>([] {}, executor, 0);
  EXPECT_FALSE(refused->Request()) << "a terminated executor takes no call";
}

}  // namespace
