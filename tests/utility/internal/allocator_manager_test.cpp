#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "config/ErrorTestSupport.h"
#include "debug/internal/ContractCheck.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "utility/internal/SizeClasses.h"
#include "utility/internal/ThreadCache.h"

namespace {

using tvxcore::utility::SmallBlockAllocator;
namespace internal = tvxcore::utility::internal;

std::vector<void*> AllocateMany(std::size_t size, std::size_t count) {
  std::vector<void*> blocks;
  for (std::size_t i = 0; i < count; ++i) blocks.push_back(SmallBlockAllocator::Allocate(size));
  return blocks;
}

void DisposeShuffled(std::vector<void*> blocks, std::size_t size, unsigned seed) {
  std::shuffle(blocks.begin(), blocks.end(), std::mt19937(seed));
  for (void* p : blocks) SmallBlockAllocator::Dispose(p, size);
}

// With caching on, the census of a manager counts the blocks that caches hold
// as used: FlushThreadCache() gives back this thread's and the transfer
// cache's, after which the classes behave as the managers alone.
TEST(AllocatorManager, EmptiedClassesGiveBackChunksExceptTheKeptOne) {
  SmallBlockAllocator::Allocate(16);  // builds the managers (the block is left on purpose)
  auto& keepsNone = internal::ManagerForBlockSize<144>();
  auto& keepsOne = internal::ManagerForBlockSize<128>();
  // Class 144 holds 28 blocks in a 4160-byte chunk and 462 in a 66624-byte one.
  // Chunks are 4160 bytes until the class holds 66624 bytes (17 chunks, 476
  // blocks), so 1000 blocks need two 66624-byte chunks more.
  for (int round = 0; round < 3; ++round) {
    SmallBlockAllocator::FlushThreadCache();
    ASSERT_EQ(keepsNone.TakeCensus().usedBlocks, 0u) << "another test left class 144 blocks live";
    auto blocks144 = AllocateMany(144, 1000);
    auto blocks128 = AllocateMany(120, 1000);
    SmallBlockAllocator::FlushThreadCache();  // the rest of the last batches
    const auto full144 = keepsNone.TakeCensus();
    EXPECT_EQ(full144.chunks, 19u);
    EXPECT_EQ(full144.heldBytes, 17 * 4160u + 2 * 66624u);
    EXPECT_EQ(full144.usedBlocks, 1000u);
    EXPECT_GE(keepsOne.TakeCensus().chunks, 2u);

    DisposeShuffled(blocks144, 144, 11 + round);
    DisposeShuffled(blocks128, 128, 23 + round);
    if (SmallBlockAllocator::IsThreadCaching()) {
      EXPECT_GT(keepsNone.TakeCensus().usedBlocks, 0u) << "the thread caches blocks of 144";
    }
    SmallBlockAllocator::FlushThreadCache();
    const auto empty144 = keepsNone.TakeCensus();
    EXPECT_EQ(empty144.chunks, 0u);
    EXPECT_EQ(empty144.heldBytes, 0u);
    EXPECT_EQ(empty144.freeBlocks, 0);
    const auto empty128 = keepsOne.TakeCensus();
    EXPECT_EQ(empty128.chunks, 1u);
    EXPECT_EQ(empty128.usedBlocks, 0u);
    EXPECT_EQ(empty128.freeBlocks, static_cast<std::int64_t>(empty128.heldBytes - 64) / 128);
  }
}

TEST(AllocatorManager, NewChunksServeFromTheEndAndTheEmptiestChunkRefillsFirst) {
  auto& manager = internal::ManagerForBlockSize<256>();
  ASSERT_EQ(manager.TakeCensus().chunks, 0u) << "another test left class 256 blocks live";
  // First chunk: 4160 bytes, 16 blocks, handed out from the last one downward.
  std::vector<void*> first;
  for (int i = 0; i < 16; ++i) first.push_back(manager.Allocate(256));
  for (int i = 1; i < 16; ++i)
    EXPECT_EQ(static_cast<char*>(first[i - 1]) - static_cast<char*>(first[i]), 256) << i;
  // Second chunk: again 4160 bytes, as the class holds less than 66624.
  std::vector<void*> second;
  for (int i = 0; i < 16; ++i) second.push_back(manager.Allocate(256));
  EXPECT_EQ(manager.TakeCensus().chunks, 2u);
  EXPECT_EQ(manager.TakeCensus().freeBlocks, 0);

  // Free three from the first chunk and five from the (current) second one.
  for (int i = 0; i < 3; ++i) manager.Deallocate(first[i], 256);
  for (int i = 0; i < 5; ++i) manager.Deallocate(second[i], 256);
  std::vector<void*> again;
  for (int i = 0; i < 5; ++i) again.push_back(manager.Allocate(256));
  EXPECT_TRUE(std::is_permutation(again.begin(), again.end(), second.begin(), second.begin() + 5));
  // The current chunk is dry: the sort makes the emptier first chunk current.
  void* refill = manager.Allocate(256);
  EXPECT_EQ(refill, first[2]);
  EXPECT_EQ(manager.TakeCensus().chunks, 2u);

  for (int i = 3; i < 16; ++i) manager.Deallocate(first[i], 256);
  manager.Deallocate(refill, 256);
  for (int i = 5; i < 16; ++i) manager.Deallocate(second[i], 256);
  for (void* p : again) manager.Deallocate(p, 256);
  EXPECT_EQ(manager.TakeCensus().chunks, 0u);
}

TEST(AllocatorManager, BlocksMadeBeforeTheAllocatorWasReadyAreReleasedLater) {
  SmallBlockAllocator::Allocate(16);
  const std::size_t sizes[] = {0, 100, 4160, 8191, 8192, 20000, 66624, 932800};
  const auto before4160 = internal::ManagerForBlockSize<4160>().TakeCensus();
  const auto before112 = internal::ManagerForBlockSize<112>().TakeCensus();

  // While the tables are being built, every request goes around the managers.
  ASSERT_EQ(internal::ExchangeInitialisationStateForTesting(1), 2);
  std::vector<void*> early;
  for (std::size_t size : sizes) {
    early.push_back(SmallBlockAllocator::Allocate(size));
    std::memset(early.back(), 0x5a, size);
    EXPECT_EQ(SmallBlockAllocator::GetActualAllocationSize(size), size);
  }
  void* gone = SmallBlockAllocator::Allocate(40);
  SmallBlockAllocator::Dispose(gone, 40);  // freed while still not ready
  ASSERT_EQ(internal::ExchangeInitialisationStateForTesting(2), 1);

  // The managers answer that they don't own these; the system takes them back.
  EXPECT_FALSE(internal::ManagerForBlockSize<112>().Deallocate(early[1], 100));
  for (std::size_t i = 0; i < early.size(); ++i) SmallBlockAllocator::Dispose(early[i], sizes[i]);
  EXPECT_EQ(internal::ManagerForBlockSize<4160>().TakeCensus().usedBlocks, before4160.usedBlocks);
  EXPECT_EQ(internal::ManagerForBlockSize<112>().TakeCensus().chunks, before112.chunks);
  EXPECT_EQ(SmallBlockAllocator::GetActualAllocationSize(100), 112u);
  // No cache took the early blocks in: the class hands out its own.
  void* after = SmallBlockAllocator::Allocate(100);
  EXPECT_TRUE(std::find(early.begin(), early.end(), after) == early.end());
  SmallBlockAllocator::Dispose(after, 100);
}

struct Violation {
  std::string expression, file;
  long line;
};
std::vector<Violation> g_violations;
void RecordViolation(const char* expression, const char* file, long line) {
  g_violations.push_back({expression, file, line});
}

TEST(AllocatorManager, OversizedRequestReportsTheContractAndLeavesTheManagerIntact) {
  auto& manager = internal::ManagerForBlockSize<32>();
  // A host whose error manager returns: the allocator must carry on intact.
  tvxtest::RecordingErrorManager errors;
  tvxcore::config::ErrorManager::Set(&errors);
  g_violations.clear();
  auto previous = tvxcore::debug::internal::SetContractObserverForTesting(&RecordViolation);
  void* p = manager.Allocate(33);
  const bool owned = manager.Deallocate(p, 5000);
  tvxcore::debug::internal::SetContractObserverForTesting(previous);
  tvxcore::config::ErrorManager::Set(nullptr);

  const auto reports = errors.Reports();
  ASSERT_EQ(reports.size(), 2u);
  ASSERT_EQ(g_violations.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(reports[i].level, tvxcore::config::kErrorLevel_Fatal);
    EXPECT_EQ(reports[i].module, 105u);
    EXPECT_EQ(reports[i].number, 25);
    EXPECT_EQ(g_violations[i].expression, "inSize <= kBlockSize");
    EXPECT_EQ(g_violations[i].file, R"(..\..\utility\src\SmallBlockAllocator)");
    EXPECT_EQ(g_violations[i].line, 530);
  }
  EXPECT_NE(p, nullptr);
  EXPECT_TRUE(owned);
  EXPECT_EQ(manager.TakeCensus().usedBlocks, 0u);
  // The class and its neighbours still hand out distinct, intact blocks.
  for (std::size_t size : {24, 32, 48}) {
    auto blocks = AllocateMany(size, 500);
    for (std::size_t i = 0; i < blocks.size(); ++i) std::memset(blocks[i], int(i), size);
    for (std::size_t i = 0; i < blocks.size(); ++i)
      ASSERT_EQ(static_cast<unsigned char*>(blocks[i])[size - 1], static_cast<unsigned char>(i));
    std::sort(blocks.begin(), blocks.end());
    EXPECT_EQ(std::adjacent_find(blocks.begin(), blocks.end()), blocks.end());
    DisposeShuffled(blocks, size, 5);
  }
  SmallBlockAllocator::FlushThreadCache();
  EXPECT_EQ(manager.TakeCensus().usedBlocks, 0u);
  // A block of another class is refused and nothing is counted.
  void* other = SmallBlockAllocator::Allocate(64);
  const auto before = manager.TakeCensus();
  EXPECT_FALSE(manager.Deallocate(other, 32));
  const auto after = manager.TakeCensus();
  EXPECT_EQ(after.freeBlocks, before.freeBlocks);
  EXPECT_EQ(after.chunks, before.chunks);
  EXPECT_EQ(after.usedBlocks, 0u);
  SmallBlockAllocator::Dispose(other, 64);
}

bool CachingWanted() {
  const char* value = std::getenv("TVX_SMALLBLOCK_THREAD_CACHE");
  return value == nullptr || std::strcmp(value, "0") != 0;
}

TEST(AllocatorManager, CachingFollowsTheEnvironmentAndSwitchesAtRunTime) {
  const bool wasOn = SmallBlockAllocator::IsThreadCaching();
  EXPECT_EQ(wasOn, CachingWanted());
  auto& manager = internal::ManagerForBlockSize<160>();
  SmallBlockAllocator::FlushThreadCache();
  ASSERT_EQ(manager.TakeCensus().chunks, 0u) << "another test left class 160 blocks live";
  for (bool on : {false, true}) {
    SmallBlockAllocator::SetThreadCaching(on);
    EXPECT_EQ(SmallBlockAllocator::IsThreadCaching(), on);
    std::thread([&] {
      void* p = SmallBlockAllocator::Allocate(150);
      // Off, the manager hands out one block and takes it back at once; on,
      // the thread takes a batch and keeps it until it ends.
      const std::uint64_t batch = on ? internal::BatchBlocks(160) : 1;
      EXPECT_EQ(manager.TakeCensus().usedBlocks, batch) << on;
      SmallBlockAllocator::Dispose(p, 150);
      EXPECT_EQ(manager.TakeCensus().usedBlocks, on ? batch : 0u) << on;
    }).join();
    EXPECT_EQ(manager.TakeCensus().chunks, 0u) << on;
  }
  SmallBlockAllocator::SetThreadCaching(wasOn);
}

// A thread that only frees hands full batches on, up to a whole list's worth
// at once; a thread that only allocates takes them whole, without the
// manager, and gets each block once.
template <std::size_t kBlockSize>
void PassBatchesBetweenThreads(std::size_t batches) {
  auto& manager = internal::ManagerForBlockSize<kBlockSize>();
  SmallBlockAllocator::FlushThreadCache();
  ASSERT_EQ(manager.TakeCensus().usedBlocks, 0u) << "another test left blocks of the class live";
  const bool caching = SmallBlockAllocator::IsThreadCaching();
  const std::size_t batch = internal::BatchBlocks(kBlockSize);
  const std::size_t size = kBlockSize - 8;
  // Whole batches: this thread's list is empty again afterwards.
  const auto blocks = AllocateMany(size, batches * batch);
  std::thread([&] {
    for (void* p : blocks) SmallBlockAllocator::Dispose(p, size);
  }).join();
  // The freeing thread kept one batch, which went back when it ended.
  const std::size_t passed = caching ? (batches - 1) * batch : 0;
  EXPECT_EQ(internal::TransferCachedBlocks(kBlockSize), passed) << kBlockSize;
  EXPECT_EQ(manager.TakeCensus().usedBlocks, passed) << kBlockSize;
  auto again = AllocateMany(size, (batches - 1) * batch);
  EXPECT_EQ(internal::TransferCachedBlocks(kBlockSize), 0u) << kBlockSize;
  EXPECT_EQ(manager.TakeCensus().usedBlocks, again.size()) << kBlockSize;
  if (caching) {
    std::vector<void*> sortedBlocks(blocks);
    std::sort(sortedBlocks.begin(), sortedBlocks.end());
    for (void* p : again)
      EXPECT_TRUE(std::binary_search(sortedBlocks.begin(), sortedBlocks.end(), p)) << kBlockSize;
  }
  std::sort(again.begin(), again.end());
  EXPECT_TRUE(std::adjacent_find(again.begin(), again.end()) == again.end()) << kBlockSize;
  for (void* p : again) SmallBlockAllocator::Dispose(p, size);
  SmallBlockAllocator::FlushThreadCache();
  EXPECT_EQ(manager.TakeCensus().usedBlocks, 0u) << kBlockSize;
}

TEST(AllocatorManager, FullBatchesPassBetweenThreadsWhole) {
  PassBatchesBetweenThreads<208>(4);
  // A full list of the class, 18 batches of 32.
  PassBatchesBetweenThreads<112>(internal::MaxListBlocks(112) / internal::BatchBlocks(112));
}

// However a thread allocates and frees, its lists stay within their bounds,
// and every class, the last one too, is still cached.
TEST(AllocatorManager, AThreadCachesEveryClassWithinItsBounds) {
  const bool caching = SmallBlockAllocator::IsThreadCaching();
  std::thread([caching] {
    for (int round = 0; round < 2; ++round) {
      for (std::size_t size : internal::kCachedBlockSizes) {
        DisposeShuffled(AllocateMany(size, internal::MaxListBlocks(size) + 5), size, round);
        EXPECT_LE(internal::ThreadCachedBytes(), internal::kThreadCacheBytes) << size;
        EXPECT_LE(internal::ThreadCachedBlocks(size), internal::MaxListBlocks(size)) << size;
        if (caching) {
          EXPECT_GT(internal::ThreadCachedBlocks(size), 0u) << size;
        }
      }
    }
  }).join();
}

// Debug builds catch a block given back twice before it reaches a cache, on
// the thread that freed it and on any other.
TEST(AllocatorManager, ABlockGivenBackTwiceIsReportedAndNotHandedOutTwice) {
  if (!internal::kAllocatorChecks || !SmallBlockAllocator::IsThreadCaching())
    GTEST_SKIP() << "checked in builds without NDEBUG, with caching on";
  tvxtest::RecordingErrorManager errors;
  tvxcore::config::ErrorManager::Set(&errors);
  g_violations.clear();
  auto previous = tvxcore::debug::internal::SetContractObserverForTesting(&RecordViolation);
  void* p = SmallBlockAllocator::Allocate(64);
  SmallBlockAllocator::Dispose(p, 64);
  SmallBlockAllocator::Dispose(p, 64);
  std::thread([p] { SmallBlockAllocator::Dispose(p, 64); }).join();
  tvxcore::debug::internal::SetContractObserverForTesting(previous);
  tvxcore::config::ErrorManager::Set(nullptr);

  ASSERT_EQ(g_violations.size(), 2u);
  for (const auto& v : g_violations) EXPECT_EQ(v.expression, "!IsMarkedFree(block)");
  EXPECT_EQ(errors.Reports().size(), 2u);
  void* a = SmallBlockAllocator::Allocate(64);
  void* b = SmallBlockAllocator::Allocate(64);
  EXPECT_NE(a, b);
  SmallBlockAllocator::Dispose(a, 64);
  SmallBlockAllocator::Dispose(b, 64);
}

}  // namespace
