// SmallBlockAllocator, with its per-thread caches and without them, beside the
// process's malloc/free. Run the binary as it is for glibc, or with LD_PRELOAD
// set to mimalloc or jemalloc to compare those
// (bench/utility/run_allocator_benchmarks.sh does all three).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "tvxcore/utility/SmallBlockAllocator.h"

namespace {

using tvxcore::utility::SmallBlockAllocator;

// Each case switches caching as its heap asks before it starts: a thread
// that finds caching off drops its cache, and the threads of a two-thread
// case are new in every run.
template <bool kCaching>
struct SmallHeap {
  static void Prepare() {
    SmallBlockAllocator::SetThreadCaching(kCaching);
    SmallBlockAllocator::FlushThreadCache();
  }
  static void* Allocate(std::size_t size) { return SmallBlockAllocator::Allocate(size); }
  static void Free(void* p, std::size_t size) { SmallBlockAllocator::Dispose(p, size); }
};
struct Small : SmallHeap<true> {};
struct SmallUncached : SmallHeap<false> {};

struct Malloc {
  static void Prepare() {}
  static void* Allocate(std::size_t size) { return std::malloc(size); }
  static void Free(void* p, std::size_t) { std::free(p); }
};

// The floor of the managers' fast path: exactly the locked instructions that an
// allocation and a release take there, on the same two cache lines, and nothing
// else. One class of 4096-byte blocks over a fixed pool; no size lookup, no
// chunk search, no growth. Each way: a compare-and-swap that enters the shared
// lock (after reading its word), a tagged-pointer compare-and-swap on the free
// stack, an add to the chunk's used count, an add to the class's free count and
// a subtract that leaves the lock. What SmallBlockAllocator costs beyond this
// is its own logic; what this costs beyond malloc is the price of keeping all
// state global and per class.
class AtomicsFloor {
 public:
  static void Prepare() {}
  static void* Allocate(std::size_t) { return Get().Pop(); }
  static void Free(void* block, std::size_t) { Get().Push(block); }

 private:
  static constexpr std::uint64_t kAddressMask = 0x0000FFFFFFFFFFF0ull;
  static constexpr std::size_t kBlockSize = 4096;
  static constexpr std::size_t kBlocks = 4096;

  // The next tag, in the bits the address leaves free (high 16, low 4).
  static std::uint64_t Tag(std::uint64_t word) {
    const std::uint64_t tag = ((word >> 48) << 4 | (word & 0xF)) + 1;
    return (tag >> 4) << 48 | (tag & 0xF);
  }

  class Pool {
   public:
    Pool() {
      auto* memory = static_cast<unsigned char*>(std::aligned_alloc(64, kBlockSize * kBlocks));
      for (std::size_t i = 0; i < kBlocks; ++i) Push(memory + i * kBlockSize);
    }

    void* Pop() {
      EnterShared();
      std::uint64_t word = chunk_.top.load(std::memory_order_acquire);
      void* block = nullptr;
      for (;;) {
        const std::uint64_t top = word & kAddressMask;
        if (top == 0) break;
        const std::uint64_t next = *reinterpret_cast<std::uint64_t*>(top);
        if (chunk_.top.compare_exchange_weak(word, next | Tag(word), std::memory_order_acquire)) {
          block = reinterpret_cast<void*>(top);
          break;
        }
      }
      if (block != nullptr) {
        chunk_.used.fetch_add(1, std::memory_order_relaxed);
        manager_.freeCount.fetch_sub(1, std::memory_order_relaxed);
      }
      manager_.lock.fetch_sub(1, std::memory_order_release);
      if (block == nullptr) std::abort();  // the pool is sized for every case here
      return block;
    }

    void Push(void* block) {
      EnterShared();
      manager_.freeCount.fetch_add(1, std::memory_order_relaxed);
      const auto node = reinterpret_cast<std::uint64_t>(block);
      std::uint64_t word = chunk_.top.load(std::memory_order_relaxed);
      do {
        *static_cast<std::uint64_t*>(block) = word & kAddressMask;
      } while (
          !chunk_.top.compare_exchange_weak(word, node | Tag(word), std::memory_order_release));
      chunk_.used.fetch_sub(1, std::memory_order_relaxed);
      manager_.lock.fetch_sub(1, std::memory_order_release);
    }

   private:
    void EnterShared() {
      for (;;) {
        std::uint64_t seen = manager_.lock.load(std::memory_order_relaxed);
        if (manager_.lock.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire)) return;
      }
    }

    struct alignas(64) {
      std::atomic<std::uint64_t> lock{0};
      std::atomic<std::int64_t> freeCount{0};
    } manager_;
    struct alignas(64) {
      std::atomic<std::uint64_t> top{0};
      std::atomic<std::uint64_t> used{0};
    } chunk_;
  };

  static Pool& Get() {
    static Pool* pool = new Pool;
    return *pool;
  }
};

// One allocation and its release per iteration, on one thread.
template <typename Heap>
void Pairs(benchmark::State& state) {
  Heap::Prepare();
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
  Heap::Prepare();
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
  Heap::Prepare();
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

// A thread that finds the ring full or empty spins a little, then gives its
// core away: on a machine with more runnable threads than cores, spinning
// alone would let a waiting thread burn the time slice that the other one
// needs, and the case would measure the scheduler instead of the heap.
void Wait(unsigned spins) {
  if (spins < 256)
    __builtin_ia32_pause();
  else
    std::this_thread::yield();
}

// Thread 0 allocates and hands each block to thread 1, which releases it.
template <typename Heap>
void ProducerToConsumer(benchmark::State& state) {
  Heap::Prepare();
  const auto size = static_cast<std::size_t>(state.range(0));
  if (state.thread_index() == 0) {
    for (auto _ : state) {
      void* p = Heap::Allocate(size);
      *static_cast<char*>(p) = 1;
      for (unsigned spins = 0; !g_ring.Push(p); ++spins) Wait(spins);
    }
  } else {
    for (auto _ : state) {
      void* p;
      for (unsigned spins = 0; (p = g_ring.Pop()) == nullptr; ++spins) Wait(spins);
      Heap::Free(p, size);
    }
  }
  state.SetItemsProcessed(state.iterations());
}

#define TVX_ALL(function, ...)                             \
  BENCHMARK_TEMPLATE(function, Small) __VA_ARGS__;         \
  BENCHMARK_TEMPLATE(function, SmallUncached) __VA_ARGS__; \
  BENCHMARK_TEMPLATE(function, AtomicsFloor) __VA_ARGS__;  \
  BENCHMARK_TEMPLATE(function, Malloc) __VA_ARGS__

TVX_ALL(Pairs, ->Arg(16)->Arg(64)->Arg(256)->Arg(1024)->Arg(4096));
TVX_ALL(RandomOrderBatches, ->Arg(64)->Arg(0));
TVX_ALL(OwnBlocksPerThread, ->Arg(64)->Threads(2)->UseRealTime());
TVX_ALL(ProducerToConsumer, ->Arg(64)->Threads(2)->UseRealTime());

}  // namespace

BENCHMARK_MAIN();
