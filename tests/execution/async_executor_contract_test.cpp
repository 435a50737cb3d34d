// What every AsyncExecutor kind promises, run over each kind: a row in
// ExecutorKinds adds a kind to every case.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "execution/ExecutorTestSupport.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/Gate.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::Counter;
using tvxtest::FinishesInTime;

// A kind: how to make one, and whether it runs items one at a time in the
// order they were queued.
template <int Threads>
struct WorkQueueKind {
  static constexpr bool kSerial = Threads == 1;
  static boost::shared_ptr<AsyncThreadedExecutor> Create() {
    return CreateAsyncThreadedExecutor("Contract", Threads, ThreadPriority_Normal, {}, {});
  }
};

using ExecutorKinds = ::testing::Types<WorkQueueKind<1>, WorkQueueKind<4>>;

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
      executor_->WaitForQueuedWork();
    }
  }
  boost::shared_ptr<AsyncThreadedExecutor> executor_;
};

TYPED_TEST_SUITE(AsyncExecutorContract, ExecutorKinds);

TYPED_TEST(AsyncExecutorContract, RunsEveryItemOnItsOwnThreadsInOrderWherePromised) {
  auto& executor = this->executor_;
  EXPECT_FALSE(executor->IsCurrentThreadExecutorThread());
  constexpr int kItems = 2000;
  std::mutex mutex;
  std::vector<int> order;
  std::atomic<int> foreignThreads{0};
  for (int i = 0; i < kItems; ++i)
    ASSERT_TRUE(executor->CallAsynchronously(
        [&, i] {
          if (!executor->IsCurrentThreadExecutorThread()) ++foreignThreads;
          std::lock_guard<std::mutex> lock(mutex);
          order.push_back(i);
        },
        0));
  executor->WaitForQueuedWork();
  ASSERT_EQ(order.size(), static_cast<std::size_t>(kItems)) << "all that was due has run";
  EXPECT_EQ(foreignThreads.load(), 0);
  if (TypeParam::kSerial) {
    for (int i = 0; i < kItems; ++i) ASSERT_EQ(order[i], i) << "first in, first out";
  }
}

TYPED_TEST(AsyncExecutorContract, DelaysAreLowerBoundsAndKeepDeadlineOrder) {
  using Clock = std::chrono::steady_clock;
  auto& executor = this->executor_;
  struct Row {
    unsigned int delay;
    long minimumMs;  // the delay, less the 6 ms by which due items may be early
  };
  // Queued latest first; 1 ms counts as the shortest delay of 7 ms.
  const Row rows[] = {{90, 84}, {50, 44}, {25, 19}, {1, 1}};
  std::mutex mutex;
  std::vector<unsigned int> ranDelays;
  Counter ran;
  const Clock::time_point start = Clock::now();
  for (const Row& row : rows)
    ASSERT_TRUE(executor->CallAsynchronously(
        [&, row] {
          const auto waited =
              std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
          EXPECT_GE(waited, row.minimumMs) << "delay " << row.delay;
          {
            std::lock_guard<std::mutex> lock(mutex);
            ranDelays.push_back(row.delay);
          }
          ran.Add();
        },
        row.delay));
  ASSERT_TRUE(ran.WaitFor(4));
  if (TypeParam::kSerial) {
    EXPECT_EQ(ranDelays, (std::vector<unsigned int>{1, 25, 50, 90}));
  }
}

TYPED_TEST(AsyncExecutorContract, PauseHoldsWorkUntilResume) {
  auto& executor = this->executor_;
  executor->Pause();
  Counter ran;
  constexpr int kItems = 20;
  for (int i = 0; i < kItems; ++i) ASSERT_TRUE(executor->CallAsynchronously([&] { ran.Add(); }, 0));
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
  ASSERT_TRUE(executor->CallAsynchronously([&] { timed.Add(); }, 20));
  executor->Terminate();
  executor->Terminate();  // twice is harmless
  EXPECT_TRUE(executor->IsTerminated());
  EXPECT_FALSE(executor->CallAsynchronously([&] { ran.Add(); }, 0)) << "refused once terminated";
  release.Open();
  EXPECT_TRUE(FinishesInTime([&] { executor->WaitForQueuedWork(); })) << "the workers end";
  EXPECT_TRUE(FinishesInTime([&] { executor->WaitForQueuedWork(); })) << "joined already";
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
  for (const Row& row : rows) {
    Counter after;
    // The report is traced and shown (standard output under the test runner).
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(executor->CallAsynchronously(row.item, 0));
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(executor->CallAsynchronously([&] { after.Add(); }, 0));
    executor->WaitForQueuedWork();
    const std::string output =
        ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(after.Value(), 8) << row.report;
    if (row.report.empty()) {
      EXPECT_EQ(output.find("WorkerMain()"), std::string::npos) << output;
    } else {
      EXPECT_NE(output.find(row.report), std::string::npos) << output;
    }
  }
  EXPECT_FALSE(executor->CallAsynchronously(boost::function<void()>(), 0)) << "empty function";
}

TYPED_TEST(AsyncExecutorContract, WaitForQueuedWorkFromInsideReturnsAtOnce) {
  auto& executor = this->executor_;
  Counter returned;
  ASSERT_TRUE(executor->CallAsynchronously(
      [&] {
        executor->WaitForQueuedWork();
        returned.Add();
      },
      0));
  EXPECT_TRUE(returned.WaitFor(1));
}

TYPED_TEST(AsyncExecutorContract, MayBeReleasedFromItsOwnItem) {
  Counter done;
  {
    auto keepAlive = std::make_shared<boost::shared_ptr<AsyncThreadedExecutor>>(this->executor_);
    this->executor_.reset();
    AsyncThreadedExecutor* raw = keepAlive->get();
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
