// Meeting points: rounds of waiting threads and copies of one meeting point.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tvxcore/threads/SyncPoint.h"

namespace {

using namespace tvxcore::threads;

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

}  // namespace
