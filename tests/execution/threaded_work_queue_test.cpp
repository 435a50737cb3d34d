// The worker pool of CreateAsyncThreadedExecutor: its threads, their names,
// and the load it carries.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "execution/ExecutorTestSupport.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/utility/HostInfo.h"

namespace {

using namespace tvxcore::threads;
using tvxtest::Counter;
using tvxtest::FinishesInTime;

std::vector<std::string> NumberedNames(const std::string& name, int count) {
  std::vector<std::string> names;
  for (int i = 1; i <= count; ++i)
    names.push_back(name + (i < 10 ? " 0" : " ") + std::to_string(i));
  return names;
}

TEST(ThreadedWorkQueue, StartsItsThreadsUnderTheirNames) {
  const int cpus = static_cast<int>(tvxcore::utility::CPUCount());
  struct Row {
    const char* name;
    int threadCount;
    std::vector<std::string> names;
  };
  const Row rows[] = {
      {"Solo", 1, {"Solo"}},
      {"Idle", 0, {}},
      {"Core", -1, NumberedNames("Core", cpus)},
      {"Twice", -2, NumberedNames("Twice", 2 * cpus)},
      {"Many", 12, NumberedNames("Many", 12)},
  };
  for (const Row& row : rows) {
    std::mutex mutex;
    std::vector<std::string> seen;
    Counter exited;
    auto executor = CreateAsyncThreadedExecutor(
        row.name, row.threadCount, ThreadPriority_BelowNormal,
        [&] {
          char name[16] = {};
          pthread_getname_np(pthread_self(), name, sizeof name);
          std::lock_guard<std::mutex> lock(mutex);
          seen.emplace_back(name);
        },
        [&] { exited.Add(); });
    ASSERT_TRUE(executor);
    Counter ran;
    ASSERT_TRUE(executor->CallAsynchronously([&] { ran.Add(); }, 0)) << "taken without threads too";
    const int expected = static_cast<int>(row.names.size());
    EXPECT_EQ(executor->GetThreadCount(), expected) << row.name;
    EXPECT_TRUE(FinishesInTime([&] { executor->WaitForQueuedWork(); })) << row.name;
    EXPECT_EQ(ran.Value(), expected > 0 ? 1 : 0) << "nothing runs work without threads";
    executor->Terminate();
    EXPECT_TRUE(FinishesInTime([&] { executor->WaitForQueuedWork(); })) << row.name;
    EXPECT_EQ(exited.Value(), expected) << "every worker ran its exit function";
    EXPECT_EQ(executor->GetThreadCount(), expected) << "unchanged after termination";
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, row.names) << row.name;
  }
}

}  // namespace
