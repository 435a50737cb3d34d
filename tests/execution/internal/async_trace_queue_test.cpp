// The asynchronous trace handler's line buffer and drain, with executors the
// test controls: no line lost, each thread's lines in order, one drain at a
// time, and writers held back while both rings are full.
#include "execution/internal/AsyncTraceQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <string>
#include <thread>
#include <vector>

#include "execution/ExecutorTestSupport.h"
#include "execution/ManualExecutor.h"
#include "tvxcore/threads/Gate.h"

namespace {

namespace dbg = tvxcore::debug;
using dbg::internal::AsyncTraceQueue;
using tvxtest::Eventually;
using tvxtest::ManualExecutor;

// Records lines, notes when two threads are inside at once, and holds the
// first line while its gate is closed.
class RecordingHandler : public dbg::TraceHandler {
 public:
  void WriteTrace(const std::string& inLine) override {
    if (inside_.fetch_add(1) != 0) overlapped = true;
    entered.fetch_add(1);
    if (lines_.empty()) firstLine.PassThrough(-1);
    lines_.push_back(inLine);
    inside_.fetch_sub(1);
  }
  // Read only when no drain runs any more.
  const std::vector<std::string>& Lines() const { return lines_; }

  tvxcore::threads::Gate firstLine{true};  // closed: the first line waits
  std::atomic<int> entered{0};
  std::atomic<bool> overlapped{false};

 private:
  std::atomic<int> inside_{0};
  std::vector<std::string> lines_;
};

std::string Line(int thread, int index) {
  return std::to_string(thread) + " " + std::to_string(index) + "\n";
}

TEST(AsyncTraceQueue, LinesFromManyThreadsArriveAllAndInTheirThreadsOrder) {
  constexpr int kThreads = 8, kLines = 3000;
  // 0: no executor, the writers drain; 1: one drain at a time, as the
  // handler's own serial executor runs them; 3: a pool that would run two
  // drains at once if the queue let it.
  for (const int poolThreads : {0, 1, 3}) {
    SCOPED_TRACE(poolThreads);
    RecordingHandler recorder;
    boost::shared_ptr<tvxcore::threads::AsyncThreadedExecutor> pool;
    if (poolThreads > 0)
      pool = tvxcore::threads::CreateAsyncThreadedExecutor(
          "Drains", poolThreads, tvxcore::threads::ThreadPriority_Normal, {}, {});
    const auto queue = boost::make_shared<AsyncTraceQueue>(&recorder, pool);
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
      writers.emplace_back([&, t] {
        for (int i = 0; i < kLines; ++i) queue->Write(Line(t, i));
      });
    for (std::thread& writer : writers) writer.join();
    queue->Close();
    if (pool) {
      pool->Terminate();
      pool->WaitForQueuedWork();
    }
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
  recorder.firstLine.Close();
  const auto executor = boost::make_shared<ManualExecutor>(1);
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
  EXPECT_EQ(executor->Due(), 1u);
  // The drain swaps the rings and holds on the first line in the handler.
  std::thread drain([&] { executor->Run(); });
  ASSERT_TRUE(Eventually([&] { return recorder.entered.load() == 1; }));
  // The other ring fills without waiting; the line after it waits.
  writeLines(kRing, 2 * kRing).join();
  std::thread blocked = writeLines(2 * kRing, 2 * kRing + 1);
  ASSERT_TRUE(Eventually([&] { return queue->WaitingWriters() == 1; }));
  EXPECT_EQ(written.load(), 2 * kRing);
  EXPECT_EQ(recorder.entered.load(), 1);

  recorder.firstLine.Open();
  blocked.join();
  drain.join();
  // Close hands on a line whose drain has not run; that drain does nothing.
  writeLines(2 * kRing + 1, 2 * kRing + 2).join();
  queue->Close();
  ASSERT_EQ(recorder.Lines().size(), std::size_t{2 * kRing + 2});
  executor->RunAll();
  ASSERT_EQ(recorder.Lines().size(), std::size_t{2 * kRing + 2});
  for (int i = 0; i < 2 * kRing + 2; ++i) EXPECT_EQ(recorder.Lines()[i], Line(0, i));
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
  const auto executor = boost::make_shared<ManualExecutor>(1);
  const auto queue = boost::make_shared<AsyncTraceQueue>(&echo, executor);
  echo.queue = queue.get();
  queue->Write("first\n");
  queue->Write("second\n");
  ASSERT_TRUE(executor->Run());
  EXPECT_EQ(executor->Due(), 0u);
  ASSERT_EQ(echo.lines.size(), 42u);
  EXPECT_EQ(echo.lines.front(), "first\n");
  EXPECT_EQ(echo.lines[1], "echo\n");
  EXPECT_EQ(echo.lines.back(), "second\n");
}

}  // namespace
