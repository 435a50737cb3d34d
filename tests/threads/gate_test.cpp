// Gates: the open and closed states, waiting, and reuse of gate records.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/threads/Gate.h"

namespace {

using namespace tvxcore::threads;

// One gate at a time: each row's gate reuses the record that the row before
// left, so the first three rows also show a recycled record coming out in
// the position asked for, whichever its last owner left it in.
TEST(Gate, TransitionsFollowTheStateTable) {
  const struct {
    bool initiallyOpen;
    std::string operations;  // o = Open, c = Close
    bool passes;
  } cases[] = {
      {true, "c", false}, {true, "", true},    {false, "", false},   {false, "o", true},
      {true, "o", true},  {false, "c", false}, {true, "coc", false}, {false, "ococo", true},
  };
  for (const auto& c : cases) {
    Gate gate(c.initiallyOpen);
    for (char op : c.operations) op == 'o' ? gate.Open() : gate.Close();
    for (int wait : {0, 1})
      EXPECT_EQ(gate.PassThrough(wait), c.passes) << c.initiallyOpen << " then " << c.operations;
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

}  // namespace
