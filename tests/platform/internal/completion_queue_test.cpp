// The blocking queue of pointers that worker pools sleep on. Many producers
// and takers at once, past the ring and back: the executors' contract suite,
// whose worker pools post and take through it.
#include "platform/CompletionQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "execution/ExecutorTestSupport.h"

namespace {

using tvxcore::platform::CompletionQueue;

void* Packet(std::uintptr_t value) { return reinterpret_cast<void*>(value); }
std::uintptr_t Value(void* packet) { return reinterpret_cast<std::uintptr_t>(packet); }

TEST(CompletionQueue, HandsOutPacketsFirstInFirstOutAndTimesOutEmpty) {
  // Counts below, at and well past the ring, so that packets also pass
  // through the overflow and back into the ring.
  const std::size_t counts[] = {1, 100, CompletionQueue::kRingCapacity,
                                CompletionQueue::kRingCapacity * 3 + 17};
  CompletionQueue queue;
  for (std::size_t count : counts) {
    for (int round = 0; round < 2; ++round) {
      for (std::size_t i = 1; i <= count; ++i) ASSERT_TRUE(queue.Post(Packet(i)));
      for (std::size_t i = 1; i <= count; ++i) {
        void* packet = nullptr;
        ASSERT_TRUE(queue.Take(packet, 0)) << count << " at " << i;
        ASSERT_EQ(Value(packet), i) << count;
      }
    }
  }
  for (int timeout : {0, 1, 20}) {
    void* packet = Packet(7);
    EXPECT_FALSE(queue.Take(packet, timeout)) << "drained, " << timeout;
    EXPECT_EQ(packet, nullptr);
  }
  ASSERT_TRUE(queue.Post(nullptr));
  ASSERT_TRUE(queue.Post(Packet(5)));
  void* packet = Packet(7);
  EXPECT_TRUE(queue.Take(packet, -1)) << "a wake-up is a packet";
  EXPECT_EQ(packet, nullptr);
  EXPECT_TRUE(queue.Take(packet, -1));
  EXPECT_EQ(Value(packet), 5u);
}

TEST(CompletionQueue, APostWakesExactlyOneSleeper) {
  CompletionQueue queue;
  constexpr int kSleepers = 3;
  std::atomic<int> woken{0};
  std::vector<std::thread> sleepers;
  for (int i = 0; i < kSleepers; ++i)
    sleepers.emplace_back([&] {
      void* packet = nullptr;
      if (queue.Take(packet, 10000)) ++woken;
    });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));  // let them fall asleep
  for (int posted = 1; posted <= kSleepers; ++posted) {
    ASSERT_TRUE(queue.Post(nullptr));
    ASSERT_TRUE(tvxtest::Eventually([&] { return woken.load() >= posted; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(woken.load(), posted) << "one post, one taker";
  }
  for (auto& sleeper : sleepers) sleeper.join();
}

}  // namespace
