// The shared executor register and parallel loops: who runs which iteration,
// how many runners are queued, and the lifetime of the shared executors.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "execution/ManualExecutor.h"
#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/utility/HostInfo.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::ManualExecutor;

struct Call {
  int iteration, processor;
  std::thread::id thread;
};

struct Calls {
  std::mutex mutex;
  std::vector<Call> calls;
  boost::function<void(int, int)> Record() {
    return [this](int iteration, int processor) {
      std::lock_guard<std::mutex> lock(mutex);
      calls.push_back({iteration, processor, std::this_thread::get_id()});
    };
  }
  // Every iteration exactly once, every processor index below `runners`.
  void ExpectEachOnce(int iterations, int runners) {
    std::vector<int> seen(iterations, 0);
    for (auto const& c : calls) {
      ASSERT_GE(c.iteration, 0);
      ASSERT_LT(c.iteration, iterations);
      ++seen[c.iteration];
      EXPECT_GE(c.processor, 0);
      EXPECT_LT(c.processor, runners);
    }
    for (int i = 0; i < iterations; ++i) EXPECT_EQ(seen[i], 1) << "iteration " << i;
  }
};

TEST(ParallelFor, QueuesOneRunnerFewerThanThreadsOrRunsOnTheCaller) {
  const struct {
    int threads;  // -1: no executor
    int iterations;
    size_t queued;    // runners queued; 0: ran synchronously, no task
    size_t runFirst;  // queued runners run before the caller takes part
  } cases[] = {
      {-1, 5, 0, 0}, {1, 5, 0, 0}, {4, 0, 0, 0}, {4, 1, 0, 0},   {0, 3, 0, 0},
      {4, 8, 3, 0},  {4, 8, 3, 2}, {4, 2, 1, 1}, {2, 100, 1, 0}, {64, 10, 9, 9},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(std::to_string(c.threads) + " threads, " + std::to_string(c.iterations));
    boost::shared_ptr<ManualExecutor> executor;
    if (c.threads >= 0) executor = boost::make_shared<ManualExecutor>(c.threads);
    Calls calls;
    auto task =
        AsyncExecuteTaskOnAllThreadsWithProcessorIndex(calls.Record(), c.iterations, executor);
    size_t const held = executor ? executor->Due() : 0;
    EXPECT_EQ(held, c.queued);
    if (c.queued == 0) {
      ASSERT_EQ(task, nullptr);
      ASSERT_EQ(calls.calls.size(), static_cast<size_t>(c.iterations));
      for (int i = 0; i < c.iterations; ++i) {
        EXPECT_EQ(calls.calls[i].iteration, i);
        EXPECT_EQ(calls.calls[i].processor, 0);
        EXPECT_EQ(calls.calls[i].thread, std::this_thread::get_id());
      }
      continue;
    }
    ASSERT_NE(task, nullptr);
    EXPECT_TRUE(calls.calls.empty());
    executor->Run(c.runFirst);
    task->ExecuteAndWait();
    executor->Run(held);  // late runners find nothing left
    calls.ExpectEachOnce(c.iterations, static_cast<int>(c.queued + 1));
    // A runner that starts alone takes every iteration: the caller when it
    // comes first, else the first queued runner, either with index 0.
    for (auto const& call : calls.calls) EXPECT_EQ(call.processor, 0);
  }
}

// A runner started while the first is inside an iteration takes the next
// index and the iterations left.
TEST(ParallelFor, RunnersNumberThemselvesInTheOrderTheyStart) {
  auto executor = boost::make_shared<ManualExecutor>(3);
  Calls calls;
  auto record = calls.Record();
  auto task = AsyncExecuteTaskOnAllThreadsWithProcessorIndex(
      [&](int iteration, int processor) {
        record(iteration, processor);
        if (iteration == 0) executor->Run(1);
      },
      6, executor);
  ASSERT_NE(task, nullptr);
  ASSERT_EQ(executor->Due(), 2u);
  executor->Run(1);
  task->ExecuteAndWait();
  calls.ExpectEachOnce(6, 3);
  for (auto const& call : calls.calls) EXPECT_EQ(call.processor, call.iteration == 0 ? 0 : 1);
}

TEST(ParallelFor, EveryIterationRunsOnceOnAWorkerPool) {
  auto pool = CreateAsyncThreadedExecutor("ParallelPool", 4, ThreadPriority_Normal, {}, {});
  ASSERT_NE(pool, nullptr);
  for (int iterations : {2, 3, 8, 64, 5000}) {
    for (int round = 0; round < 20; ++round) {
      Calls calls;
      auto task = AsyncExecuteTaskOnAllThreadsWithProcessorIndex(calls.Record(), iterations, pool);
      ASSERT_NE(task, nullptr);
      task->ExecuteAndWait();
      calls.ExpectEachOnce(iterations, std::min(4, iterations));
    }
  }
  pool->Terminate();
  pool->WaitForQueuedWork();
}

TEST(ParallelFor, FailuresOnTheCallerReachTheCaller) {
  auto throwing = [](int) { throw std::runtime_error("iteration failed"); };
  EXPECT_THROW(AsyncExecuteTaskOnAllThreads(throwing, 3, nullptr), std::runtime_error);
  EXPECT_THROW(AsyncExecuteTaskOnAllThreads(boost::function<void(int)>(), 1, nullptr),
               boost::bad_function_call);
  EXPECT_EQ(AsyncExecuteTaskOnAllThreads(boost::function<void(int)>(), 0, nullptr), nullptr);
  auto held = boost::make_shared<ManualExecutor>(2);
  auto task = AsyncExecuteTaskOnAllThreads(throwing, 2, held);
  ASSERT_NE(task, nullptr);
  EXPECT_THROW(task->ExecuteAndWait(), std::runtime_error);
}

// The CPU loops use the live CPU executor only, and never make one.
TEST(ParallelFor, CPUBoundLoopsRunOnTheCallerWithoutALiveCPUExecutor) {
  ASSERT_EQ(GetCPUBoundExecutor(), nullptr);
  Calls calls;
  ExecuteCPUBoundTaskOnAllProcessorsWithProcessorIndex(calls.Record(), 6);
  calls.ExpectEachOnce(6, 1);
  for (auto const& call : calls.calls) EXPECT_EQ(call.thread, std::this_thread::get_id());
  EXPECT_EQ(GetCPUBoundExecutor(), nullptr);

  auto cpu = CreateCPUBoundExecutor();
  ASSERT_NE(cpu, nullptr);
  // Without the processor index, and with every write visible to the caller.
  std::vector<int> squares(1000, 0);
  ExecuteCPUBoundTaskOnAllProcessors([&](int i) { squares[i] = i * i; }, 1000);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(squares[i], i * i);
}

TEST(SharedThreads, SharedExecutorsLiveAsLongAsAClientHoldsThem) {
  const struct {
    char const* name;
    boost::shared_ptr<AsyncExecutor> (*create)();
    boost::shared_ptr<AsyncExecutor> (*get)();
    void (*set)(boost::shared_ptr<AsyncExecutor> const&);
    int threads;
  } kinds[] = {
      {"CPU", CreateCPUBoundExecutor, GetCPUBoundExecutor, SetCPUBoundExecutor,
       static_cast<int>(tvxcore::utility::CPUCount())},
      {"IO", CreateIOBoundExecutor, GetIOBoundExecutor, SetIOBoundExecutor, 4},
  };
  for (auto const& k : kinds) {
    SCOPED_TRACE(k.name);
    auto first = k.create();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetThreadCount(), k.threads);
    EXPECT_EQ(k.create(), first);
    EXPECT_EQ(k.get(), first);
    auto mine = boost::make_shared<ManualExecutor>(3);
    k.set(mine);  // a live executor is not replaced
    EXPECT_EQ(k.get(), first);
    first.reset();
    EXPECT_EQ(k.get(), nullptr);
    k.set(mine);
    EXPECT_EQ(k.get(), mine);
    EXPECT_EQ(k.create(), mine);
    mine.reset();
    auto second = k.create();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->GetThreadCount(), k.threads);
  }
}

TEST(SharedThreads, ReserveKeepsTwoIdleTemporaryExecutorsPaused) {
  std::vector<boost::shared_ptr<AsyncThreadedExecutor>> borrowed;
  for (int i = 0; i < 3; ++i) {
    borrowed.push_back(BorrowTemporarySingleThreadedExecutor());
    ASSERT_NE(borrowed.back(), nullptr);
    EXPECT_EQ(borrowed.back()->GetThreadCount(), 1);
  }
  std::atomic<int> ran{0};
  for (auto const& executor : borrowed) ReturnTemporarySingleThreadedExecutor(executor);
  EXPECT_FALSE(borrowed[0]->IsTerminated());
  EXPECT_FALSE(borrowed[1]->IsTerminated());
  EXPECT_TRUE(borrowed[2]->IsTerminated());
  // Work left in a returned executor waits for its next borrower.
  ASSERT_TRUE(borrowed[1]->CallAsynchronously([&] { ++ran; }, 0));
  auto again = BorrowTemporarySingleThreadedExecutor();
  EXPECT_EQ(again, borrowed[1]);
  again->WaitForQueuedWork();
  EXPECT_EQ(ran.load(), 1);
  ReturnTemporarySingleThreadedExecutor(again);
  CleanupAllSharedThreads();
  EXPECT_TRUE(borrowed[0]->IsTerminated());
  EXPECT_TRUE(borrowed[1]->IsTerminated());
  auto fresh = BorrowTemporarySingleThreadedExecutor();
  ASSERT_NE(fresh, nullptr);
  EXPECT_NE(fresh, borrowed[0]);
  EXPECT_NE(fresh, borrowed[1]);
  fresh->Terminate();
  for (auto const& executor : borrowed) executor->WaitForQueuedWork();
  fresh->WaitForQueuedWork();
}

}  // namespace
