// The per-thread event loop: lanes and order, channels and the loop's end,
// descriptors, time-outs and failing messages.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/EventLoop.h"

namespace {

using tvxcore::platform::EventLoop;
using Lane = EventLoop::Lane;
using RunResult = EventLoop::RunResult;

// Runs `action` on delivery and counts its own destruction.
class Probe final : public EventLoop::Message {
 public:
  Probe(std::function<void()> action, int* destroyed = nullptr)
      : action_(std::move(action)), destroyed_(destroyed) {}
  ~Probe() override {
    if (destroyed_ != nullptr) ++*destroyed_;
  }
  void Deliver() override { action_(); }

 private:
  std::function<void()> action_;
  int* destroyed_;
};

std::unique_ptr<EventLoop::Message> Note(std::string& log, char c) {
  return std::make_unique<Probe>([&log, c] { log += c; });
}

TEST(PlatformEventLoop, NotifyLaneGoesFirstAndQuitKeepsItsPlace) {
  auto loop = EventLoop::ForCurrentThread();
  EXPECT_EQ(loop, EventLoop::ForCurrentThread()) << "one loop a thread";
  const auto channel = loop->OpenChannel();
  std::string log;
  ASSERT_TRUE(loop->Post(channel, Note(log, 'a'), Lane::kPosted));
  ASSERT_TRUE(loop->Post(channel, Note(log, 'N'), Lane::kNotify));
  ASSERT_TRUE(loop->Post(channel, Note(log, 'b'), Lane::kPosted));
  ASSERT_TRUE(loop->Post(channel, Note(log, 'O'), Lane::kNotify));
  ASSERT_TRUE(loop->PostQuit());
  ASSERT_TRUE(loop->Post(channel, Note(log, 'c'), Lane::kPosted));
  EXPECT_EQ(loop->Run(-1), RunResult::kQuit);
  EXPECT_EQ(log, "NOab") << "the quit ends the run before 'c'";
  EXPECT_EQ(loop->Run(0), RunResult::kTimedOut);
  EXPECT_EQ(log, "NOabc") << "what stood behind the quit runs in the next run";
  loop->CloseChannel(channel);
}

TEST(PlatformEventLoop, ClosedChannelsAndEndedThreadsDestroyWhatTheyHold) {
  int destroyed = 0;
  std::shared_ptr<EventLoop> orphan;
  std::uint64_t orphanChannel = 0;
  std::thread([&] {
    orphan = EventLoop::ForCurrentThread();
    orphanChannel = orphan->OpenChannel();
    ASSERT_TRUE(
        orphan->Post(orphanChannel, std::make_unique<Probe>([] {}, &destroyed), Lane::kPosted));
  }).join();
  EXPECT_EQ(destroyed, 1) << "the thread's end destroyed its queued message";
  EXPECT_FALSE(
      orphan->Post(orphanChannel, std::make_unique<Probe>([] {}, &destroyed), Lane::kNotify));
  EXPECT_FALSE(orphan->PostQuit());
  EXPECT_EQ(destroyed, 2) << "a refused message is destroyed";

  auto loop = EventLoop::ForCurrentThread();
  const auto kept = loop->OpenChannel(), closed = loop->OpenChannel();
  std::string log;
  ASSERT_TRUE(
      loop->Post(closed, std::make_unique<Probe>([&] { log += 'x'; }, &destroyed), Lane::kNotify));
  ASSERT_TRUE(loop->Post(kept, Note(log, 'k'), Lane::kPosted));
  loop->CloseChannel(closed);
  EXPECT_EQ(destroyed, 3);
  EXPECT_FALSE(loop->Post(closed, Note(log, 'y'), Lane::kPosted));
  loop->Run(0);
  EXPECT_EQ(log, "k");
  loop->CloseChannel(kept);
}

// Serving watched descriptors: tests/execution/event_loop_test.cpp.
TEST(PlatformEventLoop, UnwatchedDescriptorsAreNotServed) {
  auto loop = EventLoop::ForCurrentThread();
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  int calls = 0;
  const auto watch = loop->WatchReadable(fds[0], [&] { ++calls; });
  ASSERT_NE(watch, 0u);
  loop->Unwatch(watch);
  loop->Unwatch(watch);  // unknown by now: ignored
  ASSERT_EQ(::write(fds[1], "z", 1), 1);
  EXPECT_EQ(loop->Run(20), RunResult::kTimedOut);
  EXPECT_EQ(calls, 0);
  ::close(fds[0]);
  ::close(fds[1]);
}

// Waking from other threads and nested runs: the event-loop adaptors' tests
// in tests/execution.
TEST(PlatformEventLoop, AThrowingMessageLeavesTheLoopUsable) {
  auto loop = EventLoop::ForCurrentThread();
  const auto channel = loop->OpenChannel();
  std::string log;
  ASSERT_TRUE(loop->Post(
      channel, std::make_unique<Probe>([] { throw std::runtime_error("from a message"); }),
      Lane::kPosted));
  ASSERT_TRUE(loop->Post(channel, Note(log, 'n'), Lane::kPosted));
  EXPECT_THROW(loop->Run(10000), std::runtime_error);
  EXPECT_EQ(log, "");
  EXPECT_EQ(loop->Run(0), RunResult::kTimedOut);
  EXPECT_EQ(log, "n");
  loop->CloseChannel(channel);
}

}  // namespace
