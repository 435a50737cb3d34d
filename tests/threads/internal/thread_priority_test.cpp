#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

#include "platform/Thread.h"
#include "threads/internal/LockFreeStack.h"
#include "threads/internal/ThreadPriorityMap.h"

namespace {

using namespace tvxcore::threads;

TEST(ThreadPriority, ScaleMapsToRelativePrioritiesAndNiceValues) {
  struct Case {
    int value, relative, nice;
  } const cases[] = {{0, -15, 19}, {1, -2, 10}, {2, -1, 5}, {3, 0, 0}, {4, 1, -5}, {5, 2, -10}};
  for (const auto& c : cases) {
    const int relative = internal::RelativePriorityOf(static_cast<ThreadPriority>(c.value));
    EXPECT_EQ(relative, c.relative) << c.value;
    EXPECT_EQ(internal::NiceValueOf(relative), c.nice) << c.value;
  }
}

int NiceInsideThread(ThreadPriority priority) {
  int nice = -100;
  CreateNamedThread("probe", [&] { nice = tvxcore::platform::GetCurrentThreadNice(); }, priority,
                    {}, {})
      .join();
  return nice;
}

TEST(ThreadPriority, ThreadsRunAtTheirOwnNiceValue) {
  const int parent = tvxcore::platform::GetCurrentThreadNice();
  EXPECT_EQ(NiceInsideThread(ThreadPriority_Idle), 19);
  EXPECT_GE(NiceInsideThread(ThreadPriority_Lowest), 10);
  // Out-of-scale values count as normal, whatever the system lets normal be.
  const int normal = NiceInsideThread(ThreadPriority_Normal);
  for (const int value : {6, -1, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(NiceInsideThread(static_cast<ThreadPriority>(value)), normal) << value;
  }
  EXPECT_EQ(tvxcore::platform::GetCurrentThreadNice(), parent) << "only the created thread changed";
}

struct alignas(16) Node {
  void* link;
  int owner;
  int sequence;
};

// Every form of the stack, and the one the process chose.
template <typename Stack>
class LockFreeStackTest : public ::testing::Test {};
using StackForms = ::testing::Types<internal::BasicLockFreeStack<internal::PackedStackLayout>,
                                    internal::BasicLockFreeStack<internal::WideStackLayout>,
                                    internal::LockFreeStack>;
TYPED_TEST_SUITE(LockFreeStackTest, StackForms);

TYPED_TEST(LockFreeStackTest, ConcurrentPushAndPopLoseAndDuplicateNothing) {
  constexpr int kNodes = 512, kThreads = 4, kIterations = 20000;
  std::vector<Node> nodes(kNodes);
  TypeParam stack;
  EXPECT_TRUE(stack.IsEmpty());
  stack.BuildUnshared(nodes.data(), kNodes, sizeof(Node));
  EXPECT_FALSE(stack.IsEmpty());
  std::atomic<int> clashes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < kIterations; ++i) {
        auto* node = static_cast<Node*>(stack.Pop());
        if (node == nullptr) continue;
        node->owner = t;
        node->sequence = i;
        std::this_thread::yield();
        if (node->owner != t || node->sequence != i) ++clashes;
        stack.Push(node);
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(clashes.load(), 0);
  std::vector<void*> drained;  // every node comes back exactly once
  while (void* p = stack.Pop()) drained.push_back(p);
  EXPECT_TRUE(stack.IsEmpty());
  ASSERT_EQ(drained.size(), static_cast<std::size_t>(kNodes));
  std::sort(drained.begin(), drained.end());
  EXPECT_EQ(std::adjacent_find(drained.begin(), drained.end()), drained.end());
  EXPECT_EQ(drained.front(), static_cast<void*>(nodes.data()));
  for (int i = 0; i < 3; ++i) stack.Push(&nodes[i]);
  for (int i = 2; i >= 0; --i) EXPECT_EQ(stack.Pop(), &nodes[i]) << "last in, first out";
  EXPECT_EQ(stack.Pop(), nullptr);
}

// The packed form holds only 16-byte aligned addresses below 2^48; anything
// else ends the process before the stack could be corrupted.
TEST(LockFreeStackDeathTest, PackedFormRefusesAnAddressItCannotHold) {
  internal::BasicLockFreeStack<internal::PackedStackLayout> stack;
  alignas(16) static unsigned char storage[64];
  EXPECT_DEATH(stack.Push(storage + 8), "not 16-byte aligned below 2\\^48");
  EXPECT_DEATH(stack.Push(reinterpret_cast<void*>(std::uintptr_t{1} << 48)),
               "not 16-byte aligned below 2\\^48");
  EXPECT_TRUE(stack.IsEmpty());
}

}  // namespace
