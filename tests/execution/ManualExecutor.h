// A parent executor for tests that runs nothing by itself: it keeps what it
// is given, and the test decides which call runs when.
#pragma once

#include <boost/function.hpp>
#include <deque>
#include <mutex>

#include "tvxcore/threads/AsyncExecutor.h"

namespace tvxtest {

class ManualExecutor final : public tvxcore::threads::AsyncExecutor {
 public:
  explicit ManualExecutor(int threads) : threads_(threads) {}
  bool CallAsynchronously(boost::function<void()> const& function, unsigned int delay) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (refuse) return false;
    (delay == 0 ? due_ : delayed_).push_back(function);
    return true;
  }
  int GetThreadCount() override { return threads_; }
  void Terminate() override { refuse = true; }
  bool IsTerminated() override { return refuse; }

  size_t Due() {
    std::lock_guard<std::mutex> lock(mutex_);
    return due_.size();
  }
  // Runs the oldest undelayed call / the oldest delayed one; false if none.
  bool Run() { return Pop(due_); }
  bool Fire() { return Pop(delayed_); }
  void Run(size_t count) {
    for (size_t i = 0; i < count && Run(); ++i) {
    }
  }
  void RunAll() {
    while (Run()) {
    }
  }

  bool refuse = false;  // set by the test thread only

 private:
  bool Pop(std::deque<boost::function<void()>>& from) {
    boost::function<void()> function;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (from.empty()) return false;
      function.swap(from.front());
      from.pop_front();
    }
    function();
    return true;
  }
  int const threads_;
  std::mutex mutex_;
  std::deque<boost::function<void()>> due_, delayed_;
};

}  // namespace tvxtest
