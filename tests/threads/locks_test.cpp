#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/ReadWriteLock.h"
#include "tvxcore/threads/RecursiveMutex.h"
#include "tvxcore/threads/SyncPoint.h"
#include "tvxcore/threads/Thread.h"

namespace {

using namespace tvxcore::threads;

template <typename F>
void OnOtherThread(F body) {
  std::thread(body).join();
}

bool TryLockOnOtherThread(const RecursiveMutex& mutex) {
  bool taken = false;
  OnOtherThread([&] {
    if ((taken = mutex.TryLock("other"))) mutex.Unlock();
  });
  return taken;
}

TEST(RecursiveMutex, TryLockRecursesAndEachLockNeedsItsUnlock) {
  const RecursiveMutex mutex;  // const objects lock
  EXPECT_TRUE(TryLockOnOtherThread(mutex));
  mutex.Lock("outer");
  EXPECT_TRUE(mutex.TryLock(nullptr));
  mutex.Lock(nullptr);
  for (int held = 3; held > 0; --held) {
    EXPECT_FALSE(TryLockOnOtherThread(mutex)) << held << " holds left";
    mutex.Unlock();
  }
  EXPECT_TRUE(TryLockOnOtherThread(mutex));
}

TEST(RecursiveMutex, ExcludesOtherThreadsAcrossRecycledRecords) {
  long counter = 0;
  for (int round = 0; round < 4; ++round) {
    auto mutex = std::make_unique<RecursiveMutex>();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 5000; ++i) {
          RecursiveMutexLock outer(*mutex);
          RecursiveMutexLock inner(*mutex, "nested");
          ++counter;
        }
      });
    for (auto& t : threads) t.join();
  }
  EXPECT_EQ(counter, 4 * 4 * 5000);
}

TEST(Gate, TransitionsFollowTheStateTable) {
  const struct {
    bool initiallyOpen;
    std::string operations;  // o = Open, c = Close
    bool passes;
  } cases[] = {
      {false, "", false},  {true, "", true},     {false, "o", true},     {true, "c", false},
      {true, "o", true},   {false, "c", false},  {false, "oc", false},   {false, "oo", true},
      {true, "cc", false}, {true, "coc", false}, {false, "ococo", true},
  };
  for (const auto& c : cases) {
    Gate gate(c.initiallyOpen);
    for (char op : c.operations) op == 'o' ? gate.Open() : gate.Close();
    for (int wait : {0, 1})
      EXPECT_EQ(gate.PassThrough(wait), c.passes) << c.initiallyOpen << " then " << c.operations;
  }
}

TEST(Gate, ReusedRecordsComeOutInTheRequestedPosition) {
  for (bool leftOpen : {true, false})
    for (bool wanted : {false, true}) {
      std::vector<std::unique_ptr<Gate>> gates;
      for (int i = 0; i < 8; ++i) gates.push_back(std::make_unique<Gate>(leftOpen));
      gates.clear();
      for (int i = 0; i < 8; ++i) gates.push_back(std::make_unique<Gate>(wanted));
      for (const auto& gate : gates)
        EXPECT_EQ(gate->PassThrough(0), wanted) << "left " << leftOpen << ", wanted " << wanted;
    }
}

TEST(Gate, WaitersPassOnlyAfterOpenAndNegativeTimesWaitForEver) {
  for (int wait : {-1, -5, 60000}) {
    Gate gate;
    std::atomic<bool> opened{false};
    std::atomic<int> passedEarly{0}, passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
      waiters.emplace_back([&] {
        if (gate.PassThrough(wait)) ++(opened ? passed : passedEarly);
      });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    opened = true;
    gate.Open();
    for (auto& t : waiters) t.join();
    EXPECT_EQ(passed.load(), 3) << wait;
    EXPECT_EQ(passedEarly.load(), 0) << wait;
  }
  Gate closed;
  EXPECT_FALSE(closed.PassThrough(15));
}

TEST(Gate, ConcurrentOpenAndCloseLeaveAConsistentGate) {
  Gate gate;
  std::atomic<int> passes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        (i + t) % 2 ? gate.Open() : gate.Close();
        if (gate.PassThrough(0)) ++passes;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_GT(passes.load(), 0);
  gate.Close();
  EXPECT_FALSE(gate.PassThrough(0));
  gate.Open();
  EXPECT_TRUE(gate.PassThrough(0));
}

TEST(SyncPoint, CountOneAlwaysCompletesAndZeroIsRefused) {
  SyncPoint alone(1);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(alone.Wait());
  try {
    SyncPoint none(0);
    FAIL() << "a count of zero was accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "count cannot be zero.");
  }
}

TEST(SyncPoint, CopiesCountTowardOneRoundAndOneThreadCompletesIt) {
  constexpr int kThreads = 3, kRounds = 50;
  auto original = std::make_unique<SyncPoint>(kThreads);
  SyncPoint assigned(7);
  assigned = *original;
  const SyncPoint copies[kThreads] = {*original, *original, assigned};
  std::atomic<int> completions{0}, arrived{0}, behind{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, mine = copies[t]]() mutable {
      for (int round = 0; round < kRounds; ++round) {
        ++arrived;
        if (mine.Wait()) ++completions;
        if (arrived.load() < (round + 1) * kThreads) ++behind;  // left before all arrived
      }
    });
  original.reset();  // the waiters keep the meeting point alive
  for (auto& t : threads) t.join();
  EXPECT_EQ(completions.load(), kRounds);
  EXPECT_EQ(behind.load(), 0);
}

TEST(ReadWriteLock, AnnouncedWriterStopsNewReaders) {
  ReadWriteLock lock;
  ASSERT_TRUE(lock.TryLockShared());
  std::atomic<bool> writerIn{false};
  std::thread writer([&] {
    lock.LockExclusive();
    writerIn = true;
    lock.UnlockExclusive();
  });
  bool refused = false;  // wait (bounded) until the writer has announced itself
  for (int i = 0; i < 20000 && !refused; ++i, std::this_thread::yield()) {
    refused = !lock.TryLockShared();
    if (!refused) lock.UnlockShared();
  }
  EXPECT_TRUE(refused);
  EXPECT_FALSE(writerIn.load()) << "the writer entered while a reader held the lock";
  lock.UnlockShared();
  writer.join();
  EXPECT_TRUE(writerIn.load());
  EXPECT_TRUE(lock.TryLockShared());
  lock.UnlockShared();
}

TEST(ReadWriteLock, WritersAreAloneAndReadersSeeWholeUpdates) {
  ReadWriteLock lock;
  long first = 0, second = 0;
  std::atomic<int> torn{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 3000; ++i) {
        if (t < 2) {
          lock.LockExclusive();
          ++first, ++second;
          lock.UnlockExclusive();
        } else if (t == 2 ? (lock.LockShared(), true) : lock.TryLockShared()) {
          if (first != second) ++torn;
          lock.UnlockShared();
        }
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(first, 6000);
}

TEST(CreateNamedThread, RunsStartBodyAndExitInOrder) {
  std::vector<std::string> steps;
  auto step = [&](std::string name) { return [&steps, name] { steps.push_back(name); }; };
  CreateNamedThread("worker", step("body"), ThreadPriority_BelowNormal, step("start"), step("exit"))
      .join();
  EXPECT_EQ(steps, (std::vector<std::string>{"start", "body", "exit"}));
  steps.clear();
  CreateNamedThread("empty", {}, ThreadPriority_Normal, step("start"), step("exit")).join();
  EXPECT_TRUE(steps.empty()) << "no body, no start or exit";
  CreateNamedThread("bare", step("body"), static_cast<ThreadPriority>(7), {}, {}).join();
  EXPECT_EQ(steps, std::vector<std::string>{"body"});
}

TEST(ThreadIdentity, IdsAreTheSystemsAndNoThreadIsMainYet) {
  const auto mainId = GetCurrentThreadID();
  EXPECT_EQ(mainId, GetCurrentProcessID()) << "the first thread has the process's id";
  EXPECT_FALSE(CurrentThreadIsMainThread());
  std::uint32_t otherId = 0, otherProcess = 0;
  bool otherIsMain = true;
  OnOtherThread([&] {
    otherId = GetCurrentThreadID();
    otherProcess = GetCurrentProcessID();
    otherIsMain = CurrentThreadIsMainThread();
  });
  EXPECT_NE(otherId, mainId);
  EXPECT_NE(otherId, 0u);
  EXPECT_EQ(otherProcess, mainId);
  EXPECT_FALSE(otherIsMain);

  // A forked child's only thread has the child's id, not its parent's cached one.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(GetCurrentThreadID() == GetCurrentProcessID() ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child saw its parent's id";
}

}  // namespace
