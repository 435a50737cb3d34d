// SmallBlockAllocator beside the process's malloc/free. Run the binary as it
// is for glibc, or with LD_PRELOAD set to mimalloc or jemalloc to compare
// those (bench/utility/run_allocator_benchmarks.sh does all three).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <numeric>
#include <random>
#include <vector>

#include "tvxcore/utility/SmallBlockAllocator.h"

namespace {

using tvxcore::utility::SmallBlockAllocator;

struct Small {
  static void* Allocate(std::size_t size) { return SmallBlockAllocator::Allocate(size); }
  static void Free(void* p, std::size_t size) { SmallBlockAllocator::Dispose(p, size); }
};

struct Malloc {
  static void* Allocate(std::size_t size) { return std::malloc(size); }
  static void Free(void* p, std::size_t) { std::free(p); }
};

// One allocation and its release per iteration, on one thread.
template <typename Heap>
void Pairs(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    void* p = Heap::Allocate(size);
    benchmark::DoNotOptimize(p);
    Heap::Free(p, size);
  }
  state.SetItemsProcessed(state.iterations());
}

// 1000 blocks allocated, then released in a shuffled order (fixed seed).
// Size 0 stands for a mix of sizes from 8 to 1024 bytes.
template <typename Heap>
void RandomOrderBatches(benchmark::State& state) {
  constexpr std::size_t kBatch = 1000;
  std::mt19937 random(42);
  std::vector<std::size_t> sizes(kBatch, static_cast<std::size_t>(state.range(0)));
  if (state.range(0) == 0)
    for (auto& s : sizes) s = 8 + random() % 1017;
  std::vector<std::size_t> order(kBatch);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), random);
  std::vector<void*> blocks(kBatch);
  for (auto _ : state) {
    for (std::size_t i = 0; i < kBatch; ++i) {
      blocks[i] = Heap::Allocate(sizes[i]);
      *static_cast<char*>(blocks[i]) = 1;
    }
    for (std::size_t i : order) Heap::Free(blocks[i], sizes[i]);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

// Each thread allocates and releases its own blocks, a few at a time.
template <typename Heap>
void OwnBlocksPerThread(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  void* held[8];
  for (auto _ : state) {
    for (auto& p : held) {
      p = Heap::Allocate(size);
      benchmark::DoNotOptimize(p);
    }
    for (auto& p : held) Heap::Free(p, size);
  }
  state.SetItemsProcessed(state.iterations() * 8);
}

// A single-producer single-consumer ring of pointers, so the hand-over itself
// costs little beside the allocator.
class Ring {
 public:
  bool Push(void* p) {
    const auto tail = tail_.load(std::memory_order_relaxed);
    if (tail - head_.load(std::memory_order_acquire) == kCapacity) return false;
    slots_[tail % kCapacity] = p;
    tail_.store(tail + 1, std::memory_order_release);
    return true;
  }
  void* Pop() {
    const auto head = head_.load(std::memory_order_relaxed);
    if (head == tail_.load(std::memory_order_acquire)) return nullptr;
    void* p = slots_[head % kCapacity];
    head_.store(head + 1, std::memory_order_release);
    return p;
  }

 private:
  static constexpr std::size_t kCapacity = 1024;
  alignas(64) std::atomic<std::size_t> head_{0};
  alignas(64) std::atomic<std::size_t> tail_{0};
  alignas(64) void* slots_[kCapacity];
};

Ring g_ring;

// Thread 0 allocates and hands each block to thread 1, which releases it.
template <typename Heap>
void ProducerToConsumer(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  if (state.thread_index() == 0) {
    for (auto _ : state) {
      void* p = Heap::Allocate(size);
      *static_cast<char*>(p) = 1;
      while (!g_ring.Push(p)) __builtin_ia32_pause();
    }
  } else {
    for (auto _ : state) {
      void* p;
      while ((p = g_ring.Pop()) == nullptr) __builtin_ia32_pause();
      Heap::Free(p, size);
    }
  }
  state.SetItemsProcessed(state.iterations());
}

#define TVX_BOTH(function, ...)                    \
  BENCHMARK_TEMPLATE(function, Small) __VA_ARGS__; \
  BENCHMARK_TEMPLATE(function, Malloc) __VA_ARGS__

TVX_BOTH(Pairs, ->Arg(16)->Arg(64)->Arg(256)->Arg(1024)->Arg(4096));
TVX_BOTH(RandomOrderBatches, ->Arg(64)->Arg(0));
TVX_BOTH(OwnBlocksPerThread, ->Arg(64)->Threads(2)->UseRealTime());
TVX_BOTH(ProducerToConsumer, ->Arg(64)->Threads(2)->UseRealTime());

}  // namespace

BENCHMARK_MAIN();
