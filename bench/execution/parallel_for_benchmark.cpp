// Parallel loops: tvxcore's AsyncExecuteTaskOnAllThreads on the shared CPU
// executor against oneTBB's parallel_for, for short loops of 1 us and 10 us
// bodies and a long loop of 1 us bodies.
//
// The loop's design is one shared FIFO (the worker pool's queue) that carries
// one runner per worker, and one pair of atomic increments per iteration. The
// "Floor" rows measure that design with nothing else: the same runners queued
// on the same pool, the same two counters, and the caller spinning until the
// count is reached instead of sleeping on a gate. tvxcore's rows should come
// close to the floor; where the floor itself is above TBB, the design and not
// the code sets the figure.
#include <benchmark/benchmark.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <thread>

#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/utility/HostInfo.h"

namespace {

using namespace tvxcore::threads;
using Clock = std::chrono::steady_clock;

// Busy work for `ns` nanoseconds, like a short computation.
void Body(long ns) {
  Clock::time_point const end = Clock::now() + std::chrono::nanoseconds(ns);
  while (Clock::now() < end) {
  }
}

// Held for the whole run, as an application holds it.
boost::shared_ptr<AsyncExecutor>& Executor() {
  static boost::shared_ptr<AsyncExecutor> executor = CreateCPUBoundExecutor();
  return executor;
}

void Args(benchmark::internal::Benchmark* b) {
  for (long iterations : {2, 8, 64})
    for (long ns : {1000, 10000}) b->Args({iterations, ns});
  b->Args({10000, 1000});
  b->ArgNames({"iterations", "body_ns"})->UseRealTime()->Unit(benchmark::kMicrosecond);
}

void BM_Tvxcore(benchmark::State& state) {
  int const iterations = static_cast<int>(state.range(0));
  long const ns = state.range(1);
  auto const& executor = Executor();
  for (auto _ : state) {
    auto task = AsyncExecuteTaskOnAllThreads([ns](int) { Body(ns); }, iterations, executor);
    if (task) task->ExecuteAndWait();
  }
  state.SetItemsProcessed(state.iterations() * iterations);
}
BENCHMARK(BM_Tvxcore)->Apply(Args);

void BM_TBB(benchmark::State& state) {
  int const iterations = static_cast<int>(state.range(0));
  long const ns = state.range(1);
  for (auto _ : state) tbb::parallel_for(0, iterations, [ns](int) { Body(ns); });
  state.SetItemsProcessed(state.iterations() * iterations);
}
BENCHMARK(BM_TBB)->Apply(Args);

// The design's floor: one runner a worker through the pool's FIFO, two
// atomics an iteration, and a caller that spins rather than sleeps.
struct FloorLoop {
  std::atomic<int> next{0};
  char padNext[64 - sizeof(std::atomic<int>)];
  std::atomic<int> finished{0};
  char padFinished[64 - sizeof(std::atomic<int>)];
  int count = 0;
  long ns = 0;
  void Run() {
    for (int i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
      Body(ns);
      finished.fetch_add(1);
    }
  }
};

void BM_Floor(benchmark::State& state) {
  int const iterations = static_cast<int>(state.range(0));
  long const ns = state.range(1);
  auto const& executor = Executor();
  int const runners = std::min(executor->GetThreadCount(), iterations);
  for (auto _ : state) {
    auto loop = boost::make_shared<FloorLoop>();
    loop->count = iterations;
    loop->ns = ns;
    for (int i = 1; i < runners; ++i) executor->CallAsynchronously([loop] { loop->Run(); }, 0);
    loop->Run();
    while (loop->finished.load() < iterations) {
    }
  }
  state.SetItemsProcessed(state.iterations() * iterations);
}
BENCHMARK(BM_Floor)->Apply(Args);

}  // namespace

int main(int argc, char** argv) {
  // TBB gets as many threads as the CPU executor, which has one a processor.
  tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                              tvxcore::utility::CPUCount());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("processors", std::to_string(tvxcore::utility::CPUCount()));
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  Executor().reset();
  return 0;
}
