// What every AsyncExecutor kind promises, run over each kind: a row in
// ExecutorKinds adds a kind to every case.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "execution/ExecutorTestSupport.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/EventLoop.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/SubExecutor.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::Counter;
using tvxtest::FinishesInTime;

// A kind: how to make one, whether it owns a pool's controls (pause, waiting
// for the work due from inside) and reports what items throw, and how to
// wait for the work due (after Terminate: for the threads' end). A kind of
// width 1 runs items one at a time in the order they were queued. kLoad
// items come from each of four threads at once.
struct ThreadedKind {
  static constexpr bool kThreaded = true;
  static constexpr int kLoad = 25000;
  static void WaitForQueuedWork(AsyncThreadedExecutor& executor) { executor.WaitForQueuedWork(); }
};

template <int Threads>
struct WorkQueueKind : ThreadedKind {
  static constexpr bool kReportsFailures = true;
  static constexpr int kLoad = 250000;  // past the ring of the pool's queue
  static boost::shared_ptr<AsyncThreadedExecutor> Create() {
    return CreateAsyncThreadedExecutor("Contract", Threads, ThreadPriority_Normal, {}, {});
  }
};

// A sub executor of the given width over a pool of 4 that only it uses; the
// pool ends with the sub executor's last queued call.
template <int Width>
struct SubExecutorKind : ThreadedKind {
  static constexpr bool kReportsFailures = false;
  static boost::shared_ptr<AsyncThreadedExecutor> Create() {
    return CreateSubExecutor(
        CreateAsyncThreadedExecutor("ContractParent", 4, ThreadPriority_Normal, {}, {}), Width);
  }
};

// One thread running an event loop; what its items throw is dropped silently.
struct EventLoopKind {
  static constexpr bool kThreaded = false;
  static constexpr int kLoad = 25000;
  static constexpr bool kReportsFailures = false;
  static boost::shared_ptr<AsyncEventLoopExecutor> Create() {
    return CreateAsyncEventLoopExecutor("Contract", ThreadPriority_Normal, {}, {});
  }
  static void WaitForQueuedWork(AsyncEventLoopExecutor& executor) {
    if (executor.IsCurrentThreadExecutorThread()) return;
    auto marker = std::make_shared<Counter>();
    if (executor.CallAsynchronously([marker] { marker->Add(); }, 0)) {
      marker->WaitFor(1);  // behind everything due before it
    } else {
      executor.WaitForThreadEnd();
    }
  }
};

using ExecutorKinds = ::testing::Types<WorkQueueKind<1>, WorkQueueKind<4>, SubExecutorKind<1>,
                                       SubExecutorKind<2>, EventLoopKind>;

template <typename Kind>
class AsyncExecutorContract : public ::testing::Test {
 protected:
  void SetUp() override {
    executor_ = Kind::Create();
    ASSERT_TRUE(executor_);
  }
  void TearDown() override {
    if (executor_) {
      executor_->Terminate();
      Kind::WaitForQueuedWork(*executor_);
    }
  }
  decltype(Kind::Create()) executor_;
};

TYPED_TEST_SUITE(AsyncExecutorContract, ExecutorKinds);

TYPED_TEST(AsyncExecutorContract, RunsEveryItemOnceOnItsOwnThreadsWithinItsWidth) {
  auto& executor = this->executor_;
  EXPECT_FALSE(executor->IsCurrentThreadExecutorThread());
  constexpr int kProducers = 4, kItems = TypeParam::kLoad;
  const int width = executor->GetThreadCount();
  std::mutex mutex;
  std::vector<std::vector<int>> order(kProducers);
  std::atomic<int> foreignThreads{0}, running{0}, crowded{0};
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p)
    producers.emplace_back([&, p] {
      for (int i = 0; i < kItems; ++i)
        ASSERT_TRUE(executor->CallAsynchronously(
            [&, p, i] {
              if (++running > width) ++crowded;
              if (!executor->IsCurrentThreadExecutorThread()) ++foreignThreads;
              {
                std::lock_guard<std::mutex> lock(mutex);
                order[p].push_back(i);
              }
              --running;
            },
            0));
    });
  for (std::thread& producer : producers) producer.join();
  TypeParam::WaitForQueuedWork(*executor);
  EXPECT_EQ(foreignThreads.load(), 0);
  EXPECT_EQ(crowded.load(), 0) << "more items at once than the width";
  for (std::vector<int>& seen : order) {
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(kItems)) << "all that was due has run";
    if (width > 1) std::sort(seen.begin(), seen.end());
    for (int i = 0; i < kItems; ++i) ASSERT_EQ(seen[i], i) << "once each; width 1: in order";
  }
}

TYPED_TEST(AsyncExecutorContract, DelaysAreLowerBoundsAndKeepDeadlineOrder) {
  using Clock = std::chrono::steady_clock;
  auto& executor = this->executor_;
  // Queued latest first. A due item may run up to 6 ms early; 1 ms counts
  // as the shortest delay of 7 ms.
  const unsigned int delays[] = {90, 50, 25, 1};
  std::mutex mutex;
  std::vector<unsigned int> ranDelays;
  Counter ran;
  const Clock::time_point start = Clock::now();
  for (const unsigned int delay : delays)
    ASSERT_TRUE(executor->CallAsynchronously(
        [&, delay] {
          const auto waited =
              std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
          EXPECT_GE(waited, std::max<long>(delay, 7) - 6) << "delay " << delay;
          {
            std::lock_guard<std::mutex> lock(mutex);
            ranDelays.push_back(delay);
          }
          ran.Add();
        },
        delay));
  ASSERT_TRUE(ran.WaitFor(4));
  if (executor->GetThreadCount() == 1) {
    EXPECT_EQ(ranDelays, (std::vector<unsigned int>{1, 25, 50, 90}));
  }
}

TYPED_TEST(AsyncExecutorContract, AnEarlierDeadlineIsServedWithoutWaitingForLaterOnes) {
  auto& executor = this->executor_;
  Counter early, late;
  TypeParam::WaitForQueuedWork(*executor);  // every worker idle, none keeping time
  // Posted from outside and from the executor's own thread: either way the
  // worker keeping time for the minute-long timer learns of the new one.
  ASSERT_TRUE(executor->CallAsynchronously([&] { late.Add(); }, 60000));
  ASSERT_TRUE(executor->CallAsynchronously([&] { early.Add(); }, 15));
  ASSERT_TRUE(early.WaitFor(1));
  ASSERT_TRUE(executor->CallAsynchronously(
      [&] { executor->CallAsynchronously([&] { early.Add(); }, 15); }, 0));
  EXPECT_TRUE(early.WaitFor(2));
  EXPECT_EQ(late.Value(), 0);
}

TYPED_TEST(AsyncExecutorContract, PauseHoldsWorkUntilResume) {
  if constexpr (!TypeParam::kThreaded) {
    GTEST_SKIP() << "a pool's control";
  } else {
    auto& executor = this->executor_;
    executor->Pause();
    Counter ran;
    constexpr int kItems = 20;
    for (int i = 0; i < kItems; ++i)
      ASSERT_TRUE(executor->CallAsynchronously(
          [&, i] {
            if (i == 0) executor->WaitForQueuedWork();  // from inside: returns at once
            ran.Add();
          },
          0));
    ASSERT_TRUE(executor->CallAsynchronously([&] { ran.Add(); }, 10)) << "timers are served paused";
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    EXPECT_EQ(ran.Value(), 0) << "nothing runs while paused";
    EXPECT_TRUE(FinishesInTime([&] {
      std::thread resumer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        executor->Resume();
      });
      executor->WaitUntilResumed();
      resumer.join();
    }));
    EXPECT_TRUE(ran.WaitFor(kItems + 1));
  }
}

TYPED_TEST(AsyncExecutorContract, TerminateWhileBusyRunsDueWorkAndDropsTimers) {
  auto& executor = this->executor_;
  Gate release(false);
  Counter started, ran, timed;
  ASSERT_TRUE(executor->CallAsynchronously(
      [&] {
        started.Add();
        release.PassThrough(-1);
      },
      0));
  ASSERT_TRUE(started.WaitFor(1));
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(executor->CallAsynchronously([&] { ran.Add(); }, 0));
  ASSERT_TRUE(executor->CallAsynchronously([&] { timed.Add(); }, 60000));
  executor->Terminate();
  executor->Terminate();  // twice is harmless
  EXPECT_TRUE(executor->IsTerminated());
  EXPECT_FALSE(executor->CallAsynchronously([&] { ran.Add(); }, 0)) << "refused once terminated";
  release.Open();
  EXPECT_TRUE(FinishesInTime([&] { TypeParam::WaitForQueuedWork(*executor); }))
      << "the workers end";
  EXPECT_TRUE(FinishesInTime([&] { TypeParam::WaitForQueuedWork(*executor); })) << "joined already";
  EXPECT_EQ(ran.Value(), 50) << "work due before Terminate runs";
  EXPECT_EQ(timed.Value(), 0) << "a timer pending at Terminate never runs";
}

TYPED_TEST(AsyncExecutorContract, ItemsThatThrowAreReportedAndTheWorkersGoOn) {
  struct Row {
    std::function<void()> item;
    std::string report;
  };
  const Row rows[] = {
      {[] { throw std::runtime_error("boom"); },
       "WorkerMain(): caught std exception of type \"std::runtime_error\", what() returned "
       "\"boom\". Continuing."},
      {[] { throw 42; }, "WorkerMain(): caught unknown exception. Continuing."},
      {boost::function<void()>([] {}), ""},
  };
  auto& executor = this->executor_;
  tvxcore::debug::ScAssertToStdOut noDialog;
  for (const Row& row : rows) {
    Counter after;
    // The report is traced and shown (standard output under the test runner).
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(executor->CallAsynchronously(row.item, 0));
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(executor->CallAsynchronously([&] { after.Add(); }, 0));
    TypeParam::WaitForQueuedWork(*executor);
    const std::string output =
        ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(after.Value(), 8) << row.report;
    if (row.report.empty() || !TypeParam::kReportsFailures) {
      EXPECT_EQ(output.find("WorkerMain()"), std::string::npos) << output;
    } else {
      EXPECT_NE(output.find(row.report), std::string::npos) << output;
    }
  }
  EXPECT_FALSE(executor->CallAsynchronously(boost::function<void()>(), 0)) << "empty function";
}

TYPED_TEST(AsyncExecutorContract, MayBeReleasedFromItsOwnItem) {
  Counter done;
  {
    auto keepAlive = std::make_shared<decltype(TypeParam::Create())>(this->executor_);
    this->executor_.reset();
    auto* raw = keepAlive->get();
    ASSERT_TRUE(raw->CallAsynchronously(
        [keepAlive, &done] {
          keepAlive->reset();  // the last reference: the executor goes here
          done.Add();
        },
        0));
  }
  EXPECT_TRUE(done.WaitFor(1));
}

}  // namespace
