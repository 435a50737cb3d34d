// The 70 size classes of SmallBlockAllocator and the one manager of each.
#pragma once

#include <array>
#include <cstddef>

#include "base/NoDestructor.h"
#include "utility/internal/AllocatorManager.h"

namespace tvxcore::utility::internal {

struct SizeClass {
  std::size_t blockSize;
  std::size_t firstChunkSize;
  std::size_t secondChunkSize;
  int keepLastChunk;
};

inline constexpr std::size_t kSizeClassCount = 70;

constexpr std::array<SizeClass, kSizeClassCount> MakeSizeClasses() {
  std::array<SizeClass, kSizeClassCount> classes{};
  std::size_t n = 0;
  auto run = [&](std::size_t from, std::size_t to, std::size_t step, std::size_t first,
                 std::size_t second, int keep) {
    for (std::size_t size = from; size <= to; size += step)
      classes[n++] = {size, first, second, keep};
  };
  constexpr std::size_t k4160 = 4160, k66624 = 66624, kTop = kLargestChunkSize;
  run(16, 128, 16, k4160, k66624, 1);
  run(144, 256, 16, k4160, k66624, 0);
  run(288, 512, 32, k4160, k66624, 0);
  run(640, 896, 128, k4160, k66624, 0);
  run(1024, 1024, 1, k4160, k66624, 1);
  run(1152, 4096, 128, k66624, kTop, 0);
  run(4160, 4160, 1, k66624, kTop, 1);
  run(4352, 8192, 256, k66624, kTop, 0);
  run(66624, 66624, 1, kTop, kTop, 1);
  return classes;
}

inline constexpr std::array<SizeClass, kSizeClassCount> kSizeClasses = MakeSizeClasses();

constexpr std::size_t IndexOfBlockSize(std::size_t blockSize) {
  for (std::size_t i = 0; i < kSizeClassCount; ++i)
    if (kSizeClasses[i].blockSize == blockSize) return i;
  return kSizeClassCount;
}

template <std::size_t kIndex>
using ManagerTypeAt =
    AllocatorManager<kSizeClasses[kIndex].blockSize, kSizeClasses[kIndex].firstChunkSize,
                     kSizeClasses[kIndex].secondChunkSize, kSizeClasses[kIndex].keepLastChunk>;

// The manager of one class: a function-level static, built on first use and
// never destroyed.
template <std::size_t kIndex>
ManagerTypeAt<kIndex>& ManagerAt() {
  static base::NoDestructor<ManagerTypeAt<kIndex>> manager;
  return manager.get();
}

template <std::size_t kBlockSize>
auto& ManagerForBlockSize() {
  constexpr std::size_t index = IndexOfBlockSize(kBlockSize);
  static_assert(index < kSizeClassCount, "no size class has this block size");
  return ManagerAt<index>();
}

// The state of the allocator's one-time set-up: 0 not built, 1 being built,
// 2 ready. Returns the previous state. Lets tests drive the paths taken while
// the allocator is not ready; production code never calls it.
int ExchangeInitialisationStateForTesting(int state);

}  // namespace tvxcore::utility::internal
