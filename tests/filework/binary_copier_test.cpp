#include "tvxcore/utility/BinaryCopier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <future>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/threads/SharedExecutors.h"

namespace {

using tvxcore::utility::BinaryCopier;
using tvxcore::utility::IBinarySink;
using tvxcore::utility::IBinarySource;
using tvxcore::utility::RecycledMemory;
using Block = boost::shared_ptr<RecycledMemory>;

// The shared executors live for the whole run and are shut down in order
// at its end (terminated, then joined), rather than torn down whenever the
// last copy of a test lets go of them.
class SharedExecutorsEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    executors_ = {tvxcore::threads::CreateIOBoundExecutor(),
                  tvxcore::threads::CreateCPUBoundExecutor()};
  }
  void TearDown() override {
    for (const auto& executor : executors_) {
      executor->Terminate();
      if (auto threaded =
              boost::dynamic_pointer_cast<tvxcore::threads::AsyncThreadedExecutor>(executor))
        threaded->WaitForQueuedWork();
    }
    executors_.clear();
  }

 private:
  std::vector<boost::shared_ptr<tvxcore::threads::AsyncExecutor>> executors_;
};

const ::testing::Environment* const kSharedExecutors =
    ::testing::AddGlobalTestEnvironment(new SharedExecutorsEnvironment);

// How a scripted end answers one request.
enum class How { Posted, Inline, Twice, Hold };

// What both ends and the copier's functions did, in order.
struct Log {
  std::mutex mutex;
  std::vector<std::string> events;
  void Add(std::string event) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(std::move(event));
  }
  std::vector<std::string> Get() {
    std::lock_guard<std::mutex> lock(mutex);
    return events;
  }
};

// Answers `done` as `how` says; a posted answer comes from a thread of the
// I/O executor, a held one from the test when it calls `held`.
template <typename Done>
void Answer(How how, Done const& done, boost::function<void()>& held,
            boost::function<void(Done const&)> const& call) {
  switch (how) {
    case How::Posted:
      tvxcore::threads::CreateIOBoundExecutor()->CallAsynchronously([done, call] { call(done); },
                                                                    0);
      break;
    case How::Inline:
      call(done);
      break;
    case How::Twice:
      call(done);
      call(done);
      break;
    case How::Hold:
      held = [done, call] { call(done); };
      break;
  }
}

struct ReadStep {
  int length;  // -1: the end of the data
  How how = How::Posted;
  bool fail = false;
};

struct WriteStep {
  How how = How::Posted;
  bool fail = false;
};

// Both ends of a copy, answering as scripted. The source sends letters.
class ScriptedEnds : public IBinarySource, public IBinarySink {
 public:
  ScriptedEnds(std::vector<ReadStep> reads, boost::optional<unsigned long long> size,
               std::vector<WriteStep> writes)
      : readSteps_(std::move(reads)), size_(size), writeSteps_(std::move(writes)) {}

  void Read(ReadDone const& done) override {
    const std::size_t index = reads++;
    const ReadStep step = index < readSteps_.size() ? readSteps_[index] : ReadStep{-1};
    Block block;
    if (step.length >= 0) {
      block = boost::make_shared<RecycledMemory>();
      if (step.length > 0) block->Allocate(step.length);
      for (int i = 0; i < step.length; ++i)
        block->Buffer()[i] = static_cast<char>('a' + (sent_++ % 26));
    }
    const SourceState state = step.fail ? kSourceFailure : kSourceSuccess;
    Answer<ReadDone>(step.how, done, heldRead,
                     [state, block](ReadDone const& answer) { answer(state, block); });
  }
  boost::optional<unsigned long long> GetSize() override { return size_; }
  void Finished(tvxcore::utility::FinishedSourceState state) override {
    log.Add("source " + std::to_string(state));
  }

  void Write(Block const& block, WriteDone const& done) override {
    const std::size_t index = writes++;
    const WriteStep step = index < writeSteps_.size() ? writeSteps_[index] : WriteStep{};
    unsigned long long bytes = 0;
    if (!block) {
      log.Add("end");
    } else if (!step.fail) {
      data.append(block->Buffer(), block->Size());
      bytes = block->Size();
    }
    const SinkState state = step.fail ? kSinkFailure : kSinkSuccess;
    Answer<WriteDone>(step.how, done, heldWrite,
                      [state, bytes](WriteDone const& answer) { answer(state, bytes); });
  }
  void Finished(tvxcore::utility::FinishedSinkState state) override {
    log.Add("sink " + std::to_string(state));
  }

  Log log;
  std::atomic<std::size_t> reads{0}, writes{0};
  std::string data;  // what the sink kept
  boost::function<void()> heldRead, heldWrite;

 private:
  std::vector<ReadStep> readSteps_;
  boost::optional<unsigned long long> size_;
  std::vector<WriteStep> writeSteps_;
  std::size_t sent_ = 0;
};

std::string Letters(std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text.push_back(static_cast<char>('a' + i % 26));
  return text;
}

// A copy between two scripted ends, with its finished function and progress
// reports recorded in their log.
struct Copy {
  Copy(std::vector<ReadStep> reads, boost::optional<unsigned long long> size,
       std::vector<WriteStep> writes = {})
      : ends(boost::make_shared<ScriptedEnds>(std::move(reads), size, std::move(writes))),
        copier(BinaryCopier::CreateBinaryCopier(
            ends, ends,
            [this](BinaryCopier::State state) {
              ends->log.Add("finished " + std::to_string(state));
              finished.set_value(state);
            },
            [this](unsigned long long written, boost::optional<unsigned long long> const& total) {
              ends->log.Add("progress " + std::to_string(written) + "/" +
                            (total ? std::to_string(*total) : std::string("?")));
            })) {}

  // The end state; fails the test rather than hang.
  BinaryCopier::State Wait() {
    auto future = finished.get_future();
    if (future.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
      ADD_FAILURE() << "the copy never finished";
      return BinaryCopier::State_NotStarted;
    }
    return future.get();
  }

  // Waits for everything the copier has queued so far.
  static void Settle() {
    auto executor = boost::dynamic_pointer_cast<tvxcore::threads::AsyncThreadedExecutor>(
        tvxcore::threads::CreateCPUBoundExecutor());
    for (int i = 0; i < 3; ++i) executor->WaitForQueuedWork();
  }

  std::promise<BinaryCopier::State> finished;
  boost::shared_ptr<ScriptedEnds> ends;
  boost::shared_ptr<BinaryCopier> copier;
};

TEST(BinaryCopier, EndsAsTheScriptSays) {
  constexpr auto kDone = BinaryCopier::State_Finished;
  constexpr auto kSourceError = BinaryCopier::State_SourceError;
  constexpr auto kSinkError = BinaryCopier::State_SinkError;
  constexpr How kNow = How::Inline, k2x = How::Twice;
  struct Row {
    const char* name;
    std::vector<ReadStep> script;
    boost::optional<unsigned long long> size;
    std::vector<WriteStep> writes;
    BinaryCopier::State expected;
    std::size_t written;  // bytes the sink kept
    std::size_t reads;    // read requests the source saw
  };
  const std::vector<Row> rows = {
      {"empty source", {{-1, kNow}}, 0ull, {}, kDone, 0, 1},
      {"three blocks", {{100}, {200}, {50}, {-1}}, 350ull, {}, kDone, 350, 4},
      {"unknown size", {{100}, {200}, {-1}}, boost::none, {}, kDone, 300, 3},
      {"empty block skipped", {{10}, {0}, {10}, {-1}}, 20ull, {}, kDone, 20, 4},
      {"sync", {{10, kNow}, {10, kNow}, {-1, kNow}}, 20ull, {{kNow}, {kNow}, {kNow}}, kDone, 20, 3},
      {"twice", {{10, k2x}, {10, k2x}, {-1, k2x}}, 20ull, {{k2x}, {k2x}, {k2x}}, kDone, 20, 3},
      {"short of its size", {{50}, {40}, {-1}}, 100ull, {}, kSourceError, 90, 3},
      {"beyond its size", {{60}, {50}, {10}, {-1}}, 100ull, {}, kSourceError, 60, 2},
      {"source fails", {{10}, {10, How::Posted, true}, {-1}}, 30ull, {}, kSourceError, 10, 2},
      {"sink fails", {{10}, {10}, {-1}}, 20ull, {{How::Posted, true}}, kSinkError, 0, 2},
      {"sink fails at the end", {{10}, {-1}}, 10ull, {{}, {How::Posted, true}}, kSinkError, 10, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Copy copy(row.script, row.size, row.writes);
    copy.copier->Start();
    EXPECT_EQ(copy.Wait(), row.expected);
    EXPECT_EQ(copy.copier->GetState(), row.expected);
    EXPECT_EQ(copy.ends->data, Letters(row.written));
    EXPECT_EQ(copy.ends->reads.load(), row.reads);

    // Progress counts confirmed bytes and grows; the two ends' Finished and
    // the finished function come last, in that order.
    const std::vector<std::string> events = copy.ends->log.Get();
    const int end = BinaryCopier::IsError(row.expected) ? 1 : 0;
    std::vector<std::string> tail = {"source " + std::to_string(end), "sink " + std::to_string(end),
                                     "finished " + std::to_string(row.expected)};
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(std::vector<std::string>(events.end() - 3, events.end()), tail);
    const std::string total = row.size ? std::to_string(*row.size) : "?";
    unsigned long long last = 0;
    for (std::size_t i = 0; i + 3 < events.size(); ++i) {
      if (events[i] == "end") continue;
      unsigned long long written = 0;
      char slash = 0;
      std::string rest;
      ASSERT_EQ(events[i].rfind("progress ", 0), 0u) << events[i];
      std::istringstream(events[i].substr(9)) >> written >> slash >> rest;
      EXPECT_GT(written, last);
      EXPECT_EQ(rest, total);
      last = written;
    }
    EXPECT_EQ(last, row.written);
  }
}

TEST(BinaryCopier, PauseDuringAReadKeepsTheBlockUntilResume) {
  Copy copy({{30, How::Hold}, {-1}}, 30ull);
  copy.copier->Start();
  Copy::Settle();
  ASSERT_EQ(copy.ends->reads.load(), 1u);
  copy.copier->Pause();
  copy.ends->heldRead();
  copy.ends->heldRead.clear();  // the answer holds the copy alive
  Copy::Settle();
  EXPECT_EQ(copy.copier->GetState(), BinaryCopier::State_Paused);
  EXPECT_EQ(copy.ends->writes.load(), 0u);
  EXPECT_EQ(copy.ends->reads.load(), 1u);
  copy.copier->Resume();
  EXPECT_EQ(copy.Wait(), BinaryCopier::State_Finished);
  EXPECT_EQ(copy.ends->data, Letters(30));
}

TEST(BinaryCopier, CancelWithBothRequestsOutstandingEndsAtOnce) {
  Copy copy({{10}, {10, How::Hold, true}, {-1}}, 20ull, {{How::Hold}});
  copy.copier->Start();
  for (int i = 0; i < 1000 && (copy.ends->reads < 2 || copy.ends->writes < 1); ++i) {
    Copy::Settle();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_EQ(copy.ends->reads.load(), 2u);
  ASSERT_EQ(copy.ends->writes.load(), 1u);
  copy.copier->Cancel();
  EXPECT_EQ(copy.Wait(), BinaryCopier::State_Cancelled);

  // The late answers change nothing and start nothing.
  copy.ends->heldRead();
  copy.ends->heldWrite();
  copy.ends->heldRead.clear();
  copy.ends->heldWrite.clear();
  Copy::Settle();
  EXPECT_EQ(copy.copier->GetState(), BinaryCopier::State_Cancelled);
  EXPECT_EQ(copy.ends->reads.load(), 2u);
  EXPECT_EQ(copy.ends->writes.load(), 1u);
  EXPECT_EQ(copy.ends->log.Get(), (std::vector<std::string>{"source 2", "sink 2", "finished 6"}));
}

TEST(BinaryCopier, ControlsOutsideTheirStatesDoNothing) {
  Copy copy({{-1}}, 0ull);
  copy.copier->Cancel();
  copy.copier->Pause();
  copy.copier->Resume();
  EXPECT_EQ(copy.copier->GetState(), BinaryCopier::State_NotStarted);
  copy.copier->Start();
  copy.copier->Resume();
  EXPECT_EQ(copy.Wait(), BinaryCopier::State_Finished);
  copy.copier->Cancel();
  copy.copier->Pause();
  EXPECT_EQ(copy.copier->GetState(), BinaryCopier::State_Finished);
  Copy::Settle();
  EXPECT_EQ(copy.ends->reads.load(), 1u);
  EXPECT_EQ(copy.ends->writes.load(), 1u);
}

}  // namespace
