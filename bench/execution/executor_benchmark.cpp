// Undelayed work on a pool of one thread a processor: items posted and run a
// second, from 1 and 2 posting threads, and the time from a post to the start
// of its item. The library's worker pool beside boost::asio::thread_pool and
// oneTBB's task_group, and beside the floor of its design: the completion
// queue alone, with the same threads posting and taking bare pointers.
#include <benchmark/benchmark.h>

#include <oneapi/tbb/task_group.h>
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <memory>
#include <thread>
#include <vector>

#include "platform/CompletionQueue.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/utility/HostInfo.h"

namespace {

constexpr int kBatch = 20000;

int Workers() { return static_cast<int>(tvxcore::utility::CPUCount()); }

void WaitForCount(const std::atomic<long>& counter, long target) {
  while (counter.load(std::memory_order_acquire) < target) std::this_thread::yield();
}

// Runs `post(count)` on `posters` threads (the caller is one of them), each
// posting its share of kBatch.
template <typename Post>
void PostFrom(int posters, Post& post) {
  std::vector<std::thread> helpers;
  for (int p = 1; p < posters; ++p) helpers.emplace_back([&] { post(kBatch / posters); });
  post(kBatch - (posters - 1) * (kBatch / posters));
  for (auto& helper : helpers) helper.join();
}

void Finish(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.counters["posters"] = static_cast<double>(state.range(0));
}

void Throughput_tvxcore(benchmark::State& state) {
  auto executor = tvxcore::threads::CreateAsyncThreadedExecutor(
      "Bench", Workers(), tvxcore::threads::ThreadPriority_Normal, {}, {});
  std::atomic<long> ran{0};
  long target = 0;
  auto post = [&](int count) {
    for (int i = 0; i < count; ++i)
      executor->CallAsynchronously([&ran] { ran.fetch_add(1, std::memory_order_release); }, 0);
  };
  for (auto _ : state) {
    PostFrom(static_cast<int>(state.range(0)), post);
    WaitForCount(ran, target += kBatch);
  }
  executor->Terminate();
  executor->WaitForQueuedWork();
  Finish(state);
}

void Throughput_asio(benchmark::State& state) {
  boost::asio::thread_pool pool(static_cast<std::size_t>(Workers()));
  std::atomic<long> ran{0};
  long target = 0;
  auto post = [&](int count) {
    for (int i = 0; i < count; ++i)
      boost::asio::post(pool, [&ran] { ran.fetch_add(1, std::memory_order_release); });
  };
  for (auto _ : state) {
    PostFrom(static_cast<int>(state.range(0)), post);
    WaitForCount(ran, target += kBatch);
  }
  pool.join();
  Finish(state);
}

void Throughput_tbb(benchmark::State& state) {
  std::atomic<long> ran{0};
  long target = 0;
  // One task group a posting thread; each waits for its own.
  auto post = [&](int count) {
    tbb::task_group group;
    for (int i = 0; i < count; ++i)
      group.run([&ran] { ran.fetch_add(1, std::memory_order_release); });
    group.wait();
  };
  for (auto _ : state) {
    PostFrom(static_cast<int>(state.range(0)), post);
    WaitForCount(ran, target += kBatch);
  }
  Finish(state);
}

// The floor: the same threads on the completion queue with no item, no
// allocation and no call.
void Throughput_completion_queue_floor(benchmark::State& state) {
  tvxcore::platform::CompletionQueue queue;
  std::atomic<long> ran{0};
  std::vector<std::thread> takers;
  for (int w = 0; w < Workers(); ++w)
    takers.emplace_back([&] {
      void* packet = nullptr;
      while (queue.Take(packet, -1) && packet != nullptr)
        ran.fetch_add(1, std::memory_order_release);
    });
  long target = 0;
  auto post = [&](int count) {
    for (int i = 0; i < count; ++i) queue.Post(&ran);
  };
  for (auto _ : state) {
    PostFrom(static_cast<int>(state.range(0)), post);
    WaitForCount(ran, target += kBatch);
  }
  for (auto& taker : takers) {
    (void)taker;
    queue.Post(nullptr);
  }
  for (auto& taker : takers) taker.join();
  Finish(state);
}

// Post one item, wait until it has run, and again: the round trip through a
// sleeping or spinning worker.
template <typename Post>
void MeasureLatency(benchmark::State& state, Post post) {
  std::atomic<long> ran{0};
  long target = 0;
  for (auto _ : state) {
    post(ran);
    WaitForCount(ran, ++target);
  }
}

void Latency_tvxcore(benchmark::State& state) {
  auto executor = tvxcore::threads::CreateAsyncThreadedExecutor(
      "Bench", Workers(), tvxcore::threads::ThreadPriority_Normal, {}, {});
  MeasureLatency(state, [&](std::atomic<long>& ran) {
    executor->CallAsynchronously([&ran] { ran.fetch_add(1, std::memory_order_release); }, 0);
  });
  executor->Terminate();
  executor->WaitForQueuedWork();
}

void Latency_asio(benchmark::State& state) {
  boost::asio::thread_pool pool(static_cast<std::size_t>(Workers()));
  MeasureLatency(state, [&](std::atomic<long>& ran) {
    boost::asio::post(pool, [&ran] { ran.fetch_add(1, std::memory_order_release); });
  });
  pool.join();
}

void Latency_tbb(benchmark::State& state) {
  tbb::task_group group;
  MeasureLatency(state, [&](std::atomic<long>& ran) {
    group.run([&ran] { ran.fetch_add(1, std::memory_order_release); });
  });
  group.wait();
}

void Latency_completion_queue_floor(benchmark::State& state) {
  tvxcore::platform::CompletionQueue queue;
  std::vector<std::thread> takers;
  for (int w = 0; w < Workers(); ++w)
    takers.emplace_back([&] {
      void* packet = nullptr;
      while (queue.Take(packet, -1) && packet != nullptr)
        static_cast<std::atomic<long>*>(packet)->fetch_add(1, std::memory_order_release);
    });
  MeasureLatency(state, [&](std::atomic<long>& ran) { queue.Post(&ran); });
  for (std::size_t i = 0; i < takers.size(); ++i) queue.Post(nullptr);
  for (auto& taker : takers) taker.join();
}

}  // namespace

BENCHMARK(Throughput_tvxcore)->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(Throughput_asio)->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(Throughput_tbb)->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(Throughput_completion_queue_floor)->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(Latency_tvxcore)->UseRealTime();
BENCHMARK(Latency_asio)->UseRealTime();
BENCHMARK(Latency_tbb)->UseRealTime();
BENCHMARK(Latency_completion_queue_floor)->UseRealTime();

BENCHMARK_MAIN();
