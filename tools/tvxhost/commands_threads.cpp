// tvxhost threads: the executors measured live on this machine, beside the
// same work done with std::thread by hand.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Args.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/utility/HostInfo.h"

namespace tvxhost {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a program without the library would write: workers taking functions
// from one queue behind a mutex and a condition variable.
class HandWrittenPool {
 public:
  explicit HandWrittenPool(int threads) {
    for (int i = 0; i < threads; ++i) workers_.emplace_back([this] { Work(); });
  }
  ~HandWrittenPool() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ending_ = true;
    }
    ready_.notify_all();
    for (auto& worker : workers_) worker.join();
  }
  void Post(std::function<void()> item) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      items_.push_back(std::move(item));
    }
    ready_.notify_one();
  }

 private:
  void Work() {
    for (;;) {
      std::function<void()> item;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return ending_ || !items_.empty(); });
        if (items_.empty()) return;
        item = std::move(items_.front());
        items_.pop_front();
      }
      item();
    }
  }
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> items_;
  bool ending_ = false;
  std::vector<std::thread> workers_;
};

// Posts `count` increments of one counter through `post` (which queues one
// increment of the counter it is given) and waits, with a progress line,
// until all have run. Items a second.
template <typename Post>
double MeasurePosts(const std::string& label, int count, Post post) {
  std::atomic<int> ran{0};
  const Clock::time_point start = Clock::now();
  {
    Progress progress(label);
    for (int i = 0; i < count; ++i) {
      post(ran);
      if (i % 65536 == 0) progress.Update(0.5 * i / count);
    }
    while (ran.load() < count) {
      progress.Update(0.5 + 0.5 * ran.load() / count);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return count / SecondsSince(start);
}

// A body that keeps a processor busy for about `micros` microseconds.
void Spin(int micros) {
  const Clock::time_point end = Clock::now() + std::chrono::microseconds(micros);
  while (Clock::now() < end) {
  }
}

// Runs `loops` parallel loops of `iterations` bodies through `run`; the
// average time of one loop in microseconds.
double MeasureLoops(int loops, const std::function<void()>& run) {
  const Clock::time_point start = Clock::now();
  for (int i = 0; i < loops; ++i) run();
  return SecondsSince(start) * 1e6 / loops;
}

// The same loop by hand: a std::thread a processor started for the loop,
// taking iterations from one counter, the caller joining them.
void HandWrittenLoop(int iterations, int micros, int threads) {
  std::atomic<int> next{0};
  auto runner = [&] {
    while (next.fetch_add(1) < iterations) Spin(micros);
  };
  std::vector<std::thread> workers;
  for (int i = 1; i < threads; ++i) workers.emplace_back(runner);
  runner();
  for (auto& worker : workers) worker.join();
}

int Bench(const Args& raw) {
  const ArgList args(raw, {}, {"[<posts>]"});
  const int posts =
      args.Count() > 0 ? ParseInteger<int>(args[0], "<posts>", 1000, 100000000) : 1000000;
  const int processors = static_cast<int>(std::max<std::uint32_t>(1, tvxcore::utility::CPUCount()));
  std::cout << processors << " processors; " << posts << " posts of an increment each\n";

  auto pool = tvxcore::threads::CreateAsyncThreadedExecutor(
      "bench", processors, tvxcore::threads::ThreadPriority_Normal, {}, {});
  if (!pool) throw Failure("threads bench: the worker pool could not be made");
  const double ours = MeasurePosts("worker pool", posts, [&](std::atomic<int>& ran) {
    pool->CallAsynchronously([&ran] { ran.fetch_add(1, std::memory_order_relaxed); }, 0);
  });
  pool->Terminate();
  pool->WaitForQueuedWork();
  double byHand = 0;
  {
    HandWrittenPool hand(processors);
    byHand = MeasurePosts("std::thread pool", posts, [&](std::atomic<int>& ran) {
      hand.Post([&ran] { ran.fetch_add(1, std::memory_order_relaxed); });
    });
  }
  std::cout << std::fixed << std::setprecision(2) << "  posts: CreateAsyncThreadedExecutor "
            << ours / 1e6 << " M/s, std::thread + mutex queue " << byHand / 1e6 << " M/s\n";

  const auto cpu = tvxcore::threads::CreateCPUBoundExecutor();
  std::cout << "  parallel loops on the CPU executor (" << cpu->GetThreadCount()
            << " threads) and on std::threads started for each loop, microseconds a loop:\n";
  const struct {
    int iterations, micros, loops;
  } shapes[] = {{2, 1, 2000}, {8, 10, 1000}, {64, 10, 200}, {10000, 1, 5}};
  for (const auto& shape : shapes) {
    const double library = MeasureLoops(shape.loops, [&] {
      tvxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](int) { Spin(shape.micros); },
                                                           shape.iterations);
    });
    const double hand = MeasureLoops(
        shape.loops, [&] { HandWrittenLoop(shape.iterations, shape.micros, processors); });
    std::cout << std::setprecision(1) << "    " << std::setw(5) << shape.iterations << " x "
              << std::setw(2) << shape.micros << " us: " << std::setw(9) << library << " against "
              << std::setw(9) << hand << '\n';
  }
  return kExitSuccess;
}

const Registrar kThreadsCommands(CommandGroup{
    "threads",
    "the executors measured on this machine beside std::thread",
    {
        {"bench", "[<posts 1000-100000000>]",
         "posts a second through a worker pool and parallel loops, beside the same work on "
         "std::thread (1000000 posts by default)",
         Bench},
    },
    {"Both contenders run the same bodies one after the other; the figures are this "
     "machine's, under whatever else it is running."},
    {
        {"threads bench 100000", "the executors' figures beside std::thread"},
    }});

}  // namespace
}  // namespace tvxhost
