// Shared and exclusive holds, and writers ahead of new readers.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tvxcore/threads/ReadWriteLock.h"

namespace {

using namespace tvxcore::threads;

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

}  // namespace
