// A large buffer taken, filled one byte a page and given back, as a reader
// of big files or images does per item: the recycler's warm pool against
// malloc/free and mmap/munmap, 1 to 16 MiB.
#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <cstdlib>

#include "tvxcore/utility/MemoryRecycler.h"

namespace {

using tvxcore::utility::MemoryRecycler;

constexpr std::size_t kPage = 4096;

void TouchPages(char* buffer, std::size_t size) {
  for (std::size_t i = 0; i < size; i += kPage) buffer[i] = static_cast<char>(i);
  benchmark::ClobberMemory();
}

void BM_Buffer_MemoryRecycler(benchmark::State& state) {
  const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
  std::size_t actual = 0;
  MemoryRecycler::Recycle(MemoryRecycler::Allocate(size, actual), actual);  // warm
  for (auto _ : state) {
    char* buffer = static_cast<char*>(MemoryRecycler::Allocate(size, actual));
    TouchPages(buffer, size);
    MemoryRecycler::Recycle(buffer, actual);
  }
  MemoryRecycler::PurgeBytes(0);
}

void BM_Buffer_MallocFree(benchmark::State& state) {
  const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
  for (auto _ : state) {
    char* buffer = static_cast<char*>(std::malloc(size));
    TouchPages(buffer, size);
    std::free(buffer);
  }
}

void BM_Buffer_MmapMunmap(benchmark::State& state) {
  const std::size_t size = static_cast<std::size_t>(state.range(0)) << 20;
  for (auto _ : state) {
    void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
      state.SkipWithError("mmap failed");
      break;
    }
    TouchPages(static_cast<char*>(p), size);
    ::munmap(p, size);
  }
}

BENCHMARK(BM_Buffer_MemoryRecycler)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_Buffer_MallocFree)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_Buffer_MmapMunmap)->Arg(1)->Arg(4)->Arg(16);

}  // namespace

BENCHMARK_MAIN();
