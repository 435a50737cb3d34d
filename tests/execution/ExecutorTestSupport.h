// Helpers of the executor and trace handler tests. The waits are bounded: a
// test that waits for work never hangs the suite; it fails after kPatience.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/debug/TraceHandler.h"

namespace tvxtest {

inline constexpr std::chrono::seconds kPatience{10};

// A count that items raise and tests wait on.
class Counter {
 public:
  void Add(int amount = 1) {
    std::lock_guard<std::mutex> lock(mutex_);
    value_ += amount;
    changed_.notify_all();
  }
  int Value() {
    std::lock_guard<std::mutex> lock(mutex_);
    return value_;
  }
  // True once the count reached `target`; false after kPatience.
  bool WaitFor(int target) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return value_ >= target; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int value_ = 0;
};

// Runs `body` on a thread of its own and reports whether it returned within
// kPatience. A body that hangs is left behind detached, and the test fails.
inline bool FinishesInTime(std::function<void()> body) {
  auto done = std::make_shared<Counter>();
  std::thread([body = std::move(body), done] {
    body();
    done->Add();
  }).detach();
  return done->WaitFor(1);
}

// Polls `condition` until it holds (true) or kPatience has passed (false).
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// Sets one switch of the debug database.
inline void SetDebugSetting(const std::string& key, const std::string& value) {
  tvxcore::debug::DebugDatabase::Instance().SetEntry(
      tvxcore::UTF8String(key.begin(), key.end()), tvxcore::UTF8String(value.begin(), value.end()));
}

// Keeps the lines it is given.
class TraceRecorder : public tvxcore::debug::TraceHandler {
 public:
  void WriteTrace(const std::string& inLine) override { lines.push_back(inLine); }
  std::vector<std::string> lines;
};

}  // namespace tvxtest
