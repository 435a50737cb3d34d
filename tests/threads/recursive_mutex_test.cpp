// Recursive holds by one thread, exclusion of every other.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "tvxcore/threads/RecursiveMutex.h"

namespace {

using namespace tvxcore::threads;

bool TryLockOnOtherThread(const RecursiveMutex& mutex) {
  bool taken = false;
  std::thread([&] {
    if ((taken = mutex.TryLock("other"))) mutex.Unlock();
  }).join();
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

}  // namespace
