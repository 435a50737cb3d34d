// The asynchronous trace handler's line buffer and drain, with executors the
// test controls: no line lost, each thread's lines in order, one drain at a
// time, and writers held back while both rings are full.
#include "execution/internal/AsyncTraceQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

namespace {

namespace dbg = tvxcore::debug;
using dbg::internal::AsyncTraceQueue;
using tvxcore::threads::AsyncExecutor;

// Waits up to ten seconds for `condition`; false if it never held.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// Runs items on `threads` threads of its own, in no promised order between
// them.
class PoolExecutor : public AsyncExecutor {
 public:
  explicit PoolExecutor(int threads) {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
  }
  ~PoolExecutor() override {
    Terminate();
    for (std::thread& thread : threads_) thread.join();
  }
  bool CallAsynchronously(boost::function<void()> const& function, unsigned int) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (terminated_ || !function) return false;
    items_.push_back(function);
    ready_.notify_one();
    return true;
  }
  int GetThreadCount() override { return static_cast<int>(threads_.size()); }
  void Terminate() override {
    std::lock_guard<std::mutex> lock(mutex_);
    terminated_ = true;
    ready_.notify_all();
  }
  bool IsTerminated() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return terminated_;
  }

 private:
  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      ready_.wait(lock, [this] { return terminated_ || !items_.empty(); });
      if (items_.empty()) return;
      boost::function<void()> item = std::move(items_.front());
      items_.pop_front();
      lock.unlock();
      item();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<boost::function<void()>> items_;
  bool terminated_ = false;
  std::vector<std::thread> threads_;
};

// Keeps what is posted until the test runs it.
class ManualExecutor : public AsyncExecutor {
 public:
  bool CallAsynchronously(boost::function<void()> const& function, unsigned int) override {
    std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back(function);
    return true;
  }
  int GetThreadCount() override { return 1; }
  void Terminate() override {}
  bool IsTerminated() override { return false; }

  std::size_t Queued() {
    std::lock_guard<std::mutex> lock(mutex_);
    return items_.size();
  }
  // Runs the oldest item; false when there is none.
  bool RunOne() {
    boost::function<void()> item;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (items_.empty()) return false;
      item = std::move(items_.front());
      items_.pop_front();
    }
    item();
    return true;
  }

 private:
  std::mutex mutex_;
  std::deque<boost::function<void()>> items_;
};

// Records lines, notes when two threads are inside at once, and can hold
// the first line until the test opens it.
class RecordingHandler : public dbg::TraceHandler {
 public:
  void WriteTrace(const std::string& inLine) override {
    if (inside_.fetch_add(1) != 0) overlapped = true;
    entered.fetch_add(1);
    if (holdFirst && lines_.empty()) {
      std::unique_lock<std::mutex> lock(gateMutex_);
      gate_.wait(lock, [this] { return open_; });
    }
    lines_.push_back(inLine);
    inside_.fetch_sub(1);
  }
  void Open() {
    std::lock_guard<std::mutex> lock(gateMutex_);
    open_ = true;
    gate_.notify_all();
  }
  // Read only when no drain runs any more.
  const std::vector<std::string>& Lines() const { return lines_; }

  bool holdFirst = false;
  std::atomic<int> entered{0};
  std::atomic<bool> overlapped{false};

 private:
  std::atomic<int> inside_{0};
  std::vector<std::string> lines_;
  std::mutex gateMutex_;
  std::condition_variable gate_;
  bool open_ = false;
};

std::string Line(int thread, int index) {
  return std::to_string(thread) + " " + std::to_string(index) + "\n";
}

TEST(AsyncTraceQueue, LinesFromManyThreadsArriveAllAndInTheirThreadsOrder) {
  constexpr int kThreads = 8, kLines = 3000;
  // 0: no executor (drains run on writers), else a pool of that many
  // threads, which may run two drains at once if the queue let it.
  for (const int poolThreads : {0, 1, 3}) {
    SCOPED_TRACE(poolThreads);
    RecordingHandler recorder;
    boost::shared_ptr<PoolExecutor> pool;
    if (poolThreads > 0) pool = boost::make_shared<PoolExecutor>(poolThreads);
    const auto queue = boost::make_shared<AsyncTraceQueue>(&recorder, pool);
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
      writers.emplace_back([&, t] {
        for (int i = 0; i < kLines; ++i) queue->Write(Line(t, i));
      });
    for (std::thread& writer : writers) writer.join();
    queue->Close();
    EXPECT_FALSE(recorder.overlapped);
    ASSERT_EQ(recorder.Lines().size(), std::size_t{kThreads} * kLines);
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : recorder.Lines()) {
      const int t = std::stoi(line);
      ASSERT_EQ(line, Line(t, next[t])) << "thread " << t << " out of order";
      ++next[t];
    }
  }
}

TEST(AsyncTraceQueue, WritersWaitWhileBothRingsAreFull) {
  constexpr int kRing = static_cast<int>(AsyncTraceQueue::kRingLines);
  RecordingHandler recorder;
  recorder.holdFirst = true;
  const auto executor = boost::make_shared<ManualExecutor>();
  const auto queue = boost::make_shared<AsyncTraceQueue>(&recorder, executor);
  std::atomic<int> written{0};
  auto writeLines = [&](int from, int to) {
    return std::thread([&, from, to] {
      for (int i = from; i < to; ++i) {
        queue->Write(Line(0, i));
        written.fetch_add(1);
      }
    });
  };

  // One ring's worth goes in at once, with one drain queued for all.
  writeLines(0, kRing).join();
  EXPECT_EQ(executor->Queued(), 1u);
  // The drain swaps the rings and holds on the first line in the handler.
  std::thread drain([&] { executor->RunOne(); });
  ASSERT_TRUE(Eventually([&] { return recorder.entered.load() == 1; }));
  // The other ring fills without waiting; the line after it waits.
  writeLines(kRing, 2 * kRing).join();
  std::thread blocked = writeLines(2 * kRing, 2 * kRing + 1);
  ASSERT_TRUE(Eventually([&] { return queue->WaitingWriters() == 1; }));
  EXPECT_EQ(written.load(), 2 * kRing);
  EXPECT_EQ(recorder.entered.load(), 1);

  recorder.Open();
  blocked.join();
  drain.join();
  while (executor->RunOne()) {
  }
  queue->Close();
  ASSERT_EQ(recorder.Lines().size(), std::size_t{2 * kRing + 1});
  for (int i = 0; i <= 2 * kRing; ++i) EXPECT_EQ(recorder.Lines()[i], Line(0, i));
  EXPECT_FALSE(recorder.overlapped);
}

// A handler behind the queue that traces again, on the draining thread,
// with its own ring full, is not made to wait for itself.
TEST(AsyncTraceQueue, LineTracedFromTheDrainGoesOnAtOnce) {
  class Echo : public dbg::TraceHandler {
   public:
    void WriteTrace(const std::string& inLine) override {
      lines.push_back(inLine);
      if (inLine == "first\n")
        for (int i = 0; i < 40; ++i) queue->Write("echo\n");
    }
    AsyncTraceQueue* queue = nullptr;
    std::vector<std::string> lines;
  } echo;
  const auto executor = boost::make_shared<ManualExecutor>();
  const auto queue = boost::make_shared<AsyncTraceQueue>(&echo, executor);
  echo.queue = queue.get();
  queue->Write("first\n");
  queue->Write("second\n");
  ASSERT_TRUE(executor->RunOne());
  EXPECT_EQ(executor->Queued(), 0u);
  ASSERT_EQ(echo.lines.size(), 42u);
  EXPECT_EQ(echo.lines.front(), "first\n");
  EXPECT_EQ(echo.lines[1], "echo\n");
  EXPECT_EQ(echo.lines.back(), "second\n");
}

TEST(AsyncTraceQueue, CloseHandsOnWhatWaitsAndLaterDrainsDoNothing) {
  RecordingHandler recorder;
  const auto executor = boost::make_shared<ManualExecutor>();
  const auto queue = boost::make_shared<AsyncTraceQueue>(&recorder, executor);
  for (int i = 0; i < 40; ++i) {
    std::thread writer([&, i] { queue->Write(Line(1, i)); });
    if (i == AsyncTraceQueue::kRingLines) {
      // The ring is full: this writer waits until a drain swaps.
      ASSERT_TRUE(Eventually([&] { return queue->WaitingWriters() == 1; }));
      executor->RunOne();
    }
    writer.join();
  }
  queue->Close();
  ASSERT_EQ(recorder.Lines().size(), 40u);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(recorder.Lines()[i], Line(1, i));
  while (executor->RunOne()) {
  }
  EXPECT_EQ(recorder.Lines().size(), 40u);
}

}  // namespace
