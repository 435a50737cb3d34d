// Sub executors beyond the executor contract: width, order and fairness
// towards the parent, pause, terminate, delayed calls, failures and waiting.
// Most cases drive the sub executor over a parent that runs nothing by
// itself, so the test decides which queued call runs when.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "execution/ExecutorTestSupport.h"
#include "execution/ManualExecutor.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/SubExecutor.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::ManualExecutor;

struct Log {
  std::mutex mutex;
  std::string text;
  void Add(std::string const& s) {
    std::lock_guard<std::mutex> lock(mutex);
    text += s;
  }
  boost::function<void()> Item(std::string const& s) {
    return [this, s] { Add(s); };
  }
};

TEST(SubExecutor, WidthComesFromTheRequestAndTheParent) {
  const struct {
    int parentThreads;  // -1: no parent
    int requested;
    int width;  // 0: no executor
  } cases[] = {
      {4, 1, 1}, {4, 4, 4}, {4, -1, 4}, {4, 100, 4}, {4, 0, 0}, {0, 1, 0}, {-1, 1, 0},
  };
  for (auto const& c : cases) {
    boost::shared_ptr<AsyncExecutor> parent;
    if (c.parentThreads >= 0) parent = boost::make_shared<ManualExecutor>(c.parentThreads);
    auto sub = CreateSubExecutor(parent, c.requested);
    SCOPED_TRACE(std::to_string(c.parentThreads) + " " + std::to_string(c.requested));
    EXPECT_EQ(sub ? sub->GetThreadCount() : 0, c.width);
  }
}

// Each call queued on the parent runs one item and queues the next call
// behind what the parent already holds; no more calls than the width wait.
TEST(SubExecutor, RunsOneItemPerParentCallInQueueOrder) {
  for (int width : {1, 2, 3}) {
    auto parent = boost::make_shared<ManualExecutor>(4);
    auto sub = CreateSubExecutor(parent, width);
    Log log;
    for (char c : std::string("abcde")) ASSERT_TRUE(sub->CallAsynchronously(log.Item({c}), 0));
    EXPECT_EQ(parent->Due(), static_cast<size_t>(width));
    Log other;
    ASSERT_TRUE(parent->CallAsynchronously(other.Item("X"), 0));
    ASSERT_TRUE(parent->Run());
    EXPECT_EQ(log.text, "a");
    // The parent's own item stands before the runner queued by item a.
    for (int i = 1; i < width; ++i) ASSERT_TRUE(parent->Run());
    ASSERT_TRUE(parent->Run());
    EXPECT_EQ(other.text, "X") << width;
    parent->RunAll();
    EXPECT_EQ(log.text, "abcde") << width;
  }
}

// Pause and Resume alone: the executor contract suite.
TEST(SubExecutor, TerminateReleasesWhatPauseHeld) {
  auto parent = boost::make_shared<ManualExecutor>(2);
  auto sub = CreateSubExecutor(parent, 2);
  Log log;
  sub->Pause();
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("a"), 0));
  EXPECT_EQ(parent->Due(), 0u);
  sub->Resume();
  sub->Pause();
  parent->RunAll();  // the runner finds the executor paused and leaves
  EXPECT_EQ(log.text, "");
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("b"), 0));
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("c"), 0));
  EXPECT_EQ(parent->Due(), 0u);
  sub->Terminate();
  EXPECT_EQ(parent->Due(), 2u);
  EXPECT_FALSE(sub->CallAsynchronously(log.Item("d"), 0));
  sub->Pause();  // ignored once terminated
  parent->RunAll();
  EXPECT_EQ(log.text, "abc");
}

// Delayed calls when paused or terminated: the executor contract suite.
TEST(SubExecutor, DelayedCallsRunWhenDueOrJoinTheQueue) {
  const struct {
    char const* name;
    bool busy;        // an item holds the one slot when the call is due
    bool release;     // last reference released before due
    char const* log;  // after the parent has run everything
  } cases[] = {
      {"slot free", false, false, "d"},
      {"slot busy", true, false, "bd"},
      {"released", false, true, ""},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto parent = boost::make_shared<ManualExecutor>(1);
    auto sub = CreateSubExecutor(parent, 1);
    Log log;
    ASSERT_TRUE(sub->CallAsynchronously(log.Item("d"), 25));
    Gate hold(false);
    std::thread busy;
    if (c.busy) {
      ASSERT_TRUE(sub->CallAsynchronously([&] { hold.PassThrough(-1); }, 0));
      ASSERT_TRUE(sub->CallAsynchronously(log.Item("b"), 0));
      busy = std::thread([&] { parent->Run(); });
      ASSERT_TRUE(tvxtest::Eventually([&] { return parent->Due() == 0; }));
    }
    if (c.release) sub.reset();
    ASSERT_TRUE(parent->Fire());
    // With a free slot the call runs inside the parent's timer call itself.
    EXPECT_EQ(log.text, c.busy || c.release ? "" : "d");
    hold.Open();
    if (busy.joinable()) busy.join();
    parent->RunAll();
    EXPECT_EQ(log.text, c.log);
  }
}

// Failing items without a wrapper: the executor contract suite.
TEST(SubExecutor, WrapperRunsEveryItemAndFailuresKeepTheSlot) {
  auto parent = boost::make_shared<ManualExecutor>(1);
  int wrapperCalls = 0;
  auto sub = CreateSubExecutorWithFunctionWrapper(parent, 1, [&](boost::function<void()> const& f) {
    ++wrapperCalls;
    f();
  });
  Log log;
  ASSERT_TRUE(sub->CallAsynchronously([] { throw std::runtime_error("item failed"); }, 0));
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("."), 0));
  ASSERT_TRUE(sub->CallAsynchronously([] { throw 42; }, 0));
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("."), 0));
  EXPECT_NO_THROW(parent->RunAll());
  EXPECT_EQ(log.text, "..");
  EXPECT_EQ(wrapperCalls, 4);
  sub->WaitForQueuedWork();  // every item was marked done
}

TEST(SubExecutor, ItemsWaitWhileTheParentRefusesAndRunWhenACallGetsThrough) {
  auto parent = boost::make_shared<ManualExecutor>(1);
  auto sub = CreateSubExecutor(parent, 1);
  Log log;
  parent->refuse = true;
  EXPECT_TRUE(sub->CallAsynchronously(log.Item("a"), 0));
  EXPECT_FALSE(sub->CallAsynchronously(log.Item("x"), 10));
  parent->refuse = false;
  ASSERT_TRUE(sub->CallAsynchronously(log.Item("b"), 0));
  parent->RunAll();
  EXPECT_EQ(log.text, "ab");
}

// On a width of 2, a waiter must wait for both items, whichever finishes
// first, and only then.
TEST(SubExecutor, WaitForQueuedWorkWaitsForEveryEarlierItem) {
  for (int lastToFinish : {0, 1}) {
    auto parent = boost::make_shared<ManualExecutor>(2);
    auto sub = CreateSubExecutor(parent, 2);
    Gate release[2];
    std::atomic<bool> done[2] = {false, false};
    for (int i : {0, 1})
      ASSERT_TRUE(sub->CallAsynchronously(
          [&, i] {
            release[i].PassThrough(-1);
            done[i] = true;
          },
          0));
    std::thread runners[2];
    for (auto& runner : runners) runner = std::thread([&] { parent->Run(); });
    std::thread releaser([&] {
      // The pauses give a waiter that wrongly leaves early the time to be
      // seen leaving.
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      release[1 - lastToFinish].Open();
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      release[lastToFinish].Open();
    });
    sub->WaitForQueuedWork();
    EXPECT_TRUE(done[0] && done[1]) << "last to finish: " << lastToFinish;
    releaser.join();
    for (auto& runner : runners) runner.join();
    sub->WaitForQueuedWork();  // all done: returns at once
  }
}

}  // namespace
