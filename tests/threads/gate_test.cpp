// Gates: the open and closed states, waiting, and reuse of gate records.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/threads/Gate.h"

namespace {

using namespace tvxcore::threads;

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

}  // namespace
