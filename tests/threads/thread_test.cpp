// Named threads and the identities of threads and processes.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/Unprivileged.h"
#include "tvxcore/threads/Thread.h"

namespace {

using namespace tvxcore::threads;

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

TEST(CreateNamedThread, GivesTheSystemTheFirst15BytesOfTheName) {
  struct Row {
    std::string name, shown;
  };
  const Row rows[] = {
      {"", ""},
      {"exactly15bytes!", "exactly15bytes!"},
      {"SharedTimerThread", "SharedTimerThre"},
      // A cut never splits a character: "\xC3\xA9" (e acute) would straddle byte 15.
      {"abcdefghijklmn\xC3\xA9z", "abcdefghijklmn"},
  };
  for (const Row& row : rows) {
    std::string shown = "unset";
    CreateNamedThread(row.name,
                      [&] {
                        char name[16] = {};
                        if (pthread_getname_np(pthread_self(), name, sizeof name) == 0)
                          shown = name;
                      },
                      ThreadPriority_Normal, {}, {})
        .join();
    EXPECT_EQ(shown, row.shown) << row.name;
  }
}

// Which thread is the registered main one: tests/execution/event_loop_test.cpp.
TEST(ThreadIdentity, IdsAreTheSystems) {
  const auto mainId = GetCurrentThreadID();
  EXPECT_EQ(mainId, GetCurrentProcessID()) << "the first thread has the process's id";
  std::uint32_t otherId = 0, otherProcess = 0;
  std::thread([&] {
    otherId = GetCurrentThreadID();
    otherProcess = GetCurrentProcessID();
  }).join();
  EXPECT_NE(otherId, mainId);
  EXPECT_NE(otherId, 0u);
  EXPECT_EQ(otherProcess, mainId);

  // A forked child's only thread has the child's id, not its parent's cached one.
  EXPECT_EQ(
      tvxtest::RunInChild([] { return GetCurrentThreadID() == GetCurrentProcessID() ? 0 : 1; }), 0)
      << "the child saw its parent's id";
}

}  // namespace
