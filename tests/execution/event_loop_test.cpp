// Event-loop adaptors, the executor with its own loop thread, and the
// registered main thread, through the public interface.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <stdexcept>
#include <string>
#include <thread>

#include "config/ErrorTestSupport.h"
#include "execution/ExecutorTestSupport.h"
#include "tvxcore/threads/EventLoop.h"

namespace {

using namespace tvxcore::threads;

// Runs the calling thread's loop and reports whether it ended by itself; it
// is ended from another thread after kPatience, so a fault fails the test
// instead of hanging it.
bool LoopEndsInTime(const boost::shared_ptr<AsyncEventLoopAdaptor>& adaptor) {
  tvxtest::Counter finished;
  bool expired = false;
  std::thread watcher([&] {
    expired = !finished.WaitFor(1);
    if (expired) adaptor->Terminate();
  });
  RunPlatformEventLoop();
  finished.Add();
  watcher.join();
  return !expired;
}

// Order, failures dropped by the loop, termination, empty functions and the
// executor's thread: the executor contract suite, over the executor that
// runs an adaptor on a thread of its own.
TEST(EventLoopAdaptor, RunQueuedFunctionsHandsFailuresToItsCaller) {
  auto adaptor = AdaptCurrentEventLoopAsExecutor(false);
  EXPECT_EQ(adaptor->GetThreadCount(), 1);
  std::string log;
  ASSERT_TRUE(adaptor->CallAsynchronously([] { throw std::logic_error("reaches the caller"); }, 0));
  ASSERT_TRUE(adaptor->CallAsynchronously([&] { log += 'b'; }, 0));
  EXPECT_THROW(adaptor->RunQueuedFunctions(), std::logic_error);
  adaptor->Terminate();
  adaptor->RunQueuedFunctions();  // still runs what was queued before the end
  EXPECT_EQ(log, "b");
  RunPlatformEventLoop();  // to the quit of the termination
}

TEST(EventLoopAdaptor, NestedLoopsServeTheQueueOnlyWhenReentrant) {
  struct Case {
    bool reentrant;
    const char* expected;  // '(' and ')' frame the first call; B the others
  } const cases[] = {{false, "()BB"}, {true, "(BB)"}};
  for (const auto& c : cases) {
    auto adaptor = AdaptCurrentEventLoopAsExecutor(c.reentrant);
    std::string log;
    ASSERT_TRUE(adaptor->CallAsynchronously(
        [&] {
          log += '(';
          adaptor->RunQueuedFunctions();  // a reentrant one runs B here
          ASSERT_TRUE(adaptor->CallAsynchronously([&] { log += 'B'; }, 0));
          QuitPlatformEventLoop();
          RunPlatformEventLoop();  // a nested loop
          log += ')';
        },
        0));
    ASSERT_TRUE(adaptor->CallAsynchronously([&] { log += 'B'; }, 0));
    QuitPlatformEventLoop();
    EXPECT_TRUE(LoopEndsInTime(adaptor));
    adaptor->RunQueuedFunctions();
    EXPECT_EQ(log, c.expected) << "reentrant " << c.reentrant;
    adaptor->Terminate();
    RunPlatformEventLoop();
  }
}

TEST(EventLoopAdaptor, DelayedCallsArriveThroughTheLoopInsideARunningCall) {
  auto adaptor = AdaptCurrentEventLoopAsExecutor(false);
  std::thread::id ranOn;
  bool heldBack = true;
  ASSERT_TRUE(adaptor->CallAsynchronously(
      [&] {
        // Not held back by the call in progress, unlike an undelayed one.
        ASSERT_TRUE(adaptor->CallAsynchronously(
            [&] {
              heldBack = false;
              ranOn = std::this_thread::get_id();
              QuitPlatformEventLoop();
            },
            5));
        RunPlatformEventLoop();
        QuitPlatformEventLoop();
      },
      0));
  EXPECT_TRUE(LoopEndsInTime(adaptor));
  EXPECT_FALSE(heldBack);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(EventLoop, WatchedDescriptorsAreServedByTheLoop) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  std::string got;
  auto watch = WatchReadableOnCurrentThread(fds[0], [&] {
    char c = 0;
    if (::read(fds[0], &c, 1) == 1) got += c;
    if (c == '.') QuitPlatformEventLoop();
  });
  ASSERT_TRUE(watch);
  EXPECT_FALSE(WatchReadableOnCurrentThread(fds[0], [] {})) << "watched already";
  auto adaptor = AdaptCurrentEventLoopAsExecutor(false);
  std::thread writer([&] { ASSERT_EQ(::write(fds[1], "fd.", 3), 3); });
  EXPECT_TRUE(LoopEndsInTime(adaptor));
  writer.join();
  EXPECT_EQ(got, "fd.");
  watch.reset();
  EXPECT_TRUE(WatchReadableOnCurrentThread(fds[0], [] {})) << "free again once released";
  ::close(fds[0]);
  ::close(fds[1]);
}

// Order, termination and release from an item: the executor contract suite.
TEST(EventLoopExecutor, ThreadCallbacksFrameTheLoopAndItsEnd) {
  std::atomic<int> started{0}, exited{0};
  auto executor = CreateAsyncEventLoopExecutor(
      "Loop", ThreadPriority_Normal, [&] { ++started; }, [&] { ++exited; });
  ASSERT_TRUE(executor);
  EXPECT_EQ(started.load(), 1) << "the loop is ready when the executor is";
  executor->Terminate();
  EXPECT_TRUE(tvxtest::FinishesInTime([&] { executor->WaitForThreadEnd(); }));
  EXPECT_EQ(exited.load(), 1);
}

// Which thread is the main one, and what a call to it does, before, during
// and after a registration.
TEST(MainThread, RegistrationLivesWithTheReturnedAdaptor) {
  tvxtest::RecordingErrorManager errors;
  errors.throwWhenNotDeferred = true;
  tvxcore::config::ErrorManager::Set(&errors);
  bool ran = false;
  const auto callAndCheck = [&](bool registered) {
    EXPECT_EQ(CurrentThreadIsMainThread(), registered);
    EXPECT_EQ(GetRegisteredMainThread() != nullptr, registered);
    bool otherIsMain = true;
    std::thread([&] {
      otherIsMain = CurrentThreadIsMainThread();
      AsyncCallFromMainThread([&] { ran = true; });
    }).join();
    EXPECT_FALSE(otherIsMain);
  };
  callAndCheck(false);

  auto main = RegisterCurrentThreadAsMainThread();
  ASSERT_TRUE(main);
  EXPECT_EQ(RegisterCurrentThreadAsMainThread(), main) << "the same adaptor again";
  callAndCheck(true);
  bool refused = false;
  std::thread([&] {
    try {
      RegisterCurrentThreadAsMainThread();
    } catch (const tvxtest::RecordedFailure& failure) {
      refused =
          failure.key.rfind("$$$/tvxcore/utility/Error/Contract/InputContractViolation=", 0) == 0;
    }
  }).join();
  EXPECT_TRUE(refused) << "a second thread violates the contract";
  ASSERT_TRUE(main->CallAsynchronously([&] { main->Terminate(); }, 0));
  EXPECT_TRUE(LoopEndsInTime(main));
  EXPECT_TRUE(ran) << "the call from another thread reached the main thread";

  ran = false;
  main.reset();
  callAndCheck(false);
  std::thread([&] {
    auto other = RegisterCurrentThreadAsMainThread();
    EXPECT_TRUE(CurrentThreadIsMainThread()) << "another thread may register now";
  }).join();
  EXPECT_FALSE(ran);
  EXPECT_EQ(errors.Reports().size(), 1u);
  tvxcore::config::ErrorManager::Set(nullptr);
}

}  // namespace
