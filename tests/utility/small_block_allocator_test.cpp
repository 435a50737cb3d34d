#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tvxcore/utility/SmallBlockAllocator.h"

namespace {

using tvxcore::utility::SmallBlockAllocator;

// The block sizes that requests up to 8192 bytes are rounded to.
std::vector<std::size_t> TableBlockSizes() {
  std::vector<std::size_t> sizes;
  auto run = [&](std::size_t from, std::size_t to, std::size_t step) {
    for (std::size_t s = from; s <= to; s += step) sizes.push_back(s);
  };
  run(16, 256, 16);
  run(288, 512, 32);
  run(640, 1024, 128);
  run(1152, 4096, 128);
  run(4352, 8192, 256);
  return sizes;
}

struct Block {
  unsigned char* p;
  std::size_t size;
  unsigned char fill;
};

void Fill(const Block& b) { std::memset(b.p, b.fill, b.size); }
bool Intact(const Block& b) {
  for (std::size_t i = 0; i < b.size; ++i)
    if (b.p[i] != b.fill) return false;
  return true;
}

TEST(SmallBlockAllocator, ActualSizesFollowTheClassTable) {
  const auto classes = TableBlockSizes();
  ASSERT_EQ(classes.size(), 68u);  // 70 classes less 4160 and 66624, which the table skips
  for (std::size_t s = 0; s <= 8192; ++s) {
    const std::size_t expected =
        *std::lower_bound(classes.begin(), classes.end(), std::max<std::size_t>(s, 1));
    ASSERT_EQ(SmallBlockAllocator::GetActualAllocationSize(s), expected) << "request " << s;
  }
  struct Case {
    std::size_t request, actual;
  } const cases[] = {{0, 16}, {4160, 4352}, {66624, 66624}, {8193, 8193}, {932800, 932800}};
  for (const auto& c : cases)
    EXPECT_EQ(SmallBlockAllocator::GetActualAllocationSize(c.request), c.actual) << c.request;
}

TEST(SmallBlockAllocator, BlocksAreAlignedDistinctAndKeepTheirContents) {
  const std::size_t sizes[] = {0, 1, 15, 16, 17, 100, 128, 129, 256, 500, 513, 700, 1000, 1024,
                               1025, 3000, 4096, 4097, 4160, 5000, 8192, 8193, 20000, 66624, 932800,
                               // from pages on huge-page boundaries
                               std::size_t{2} << 20, (std::size_t{2} << 20) + 1,
                               (std::size_t{5} << 20) + 7};
  std::vector<Block> blocks;
  unsigned char fill = 1;
  for (int round = 0; round < 3; ++round) {
    for (std::size_t size : sizes) {
      auto* p = static_cast<unsigned char*>(SmallBlockAllocator::Allocate(size));
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u) << size;
      blocks.push_back({p, size, fill++});
      Fill(blocks.back());
    }
  }
  for (const auto& b : blocks)
    EXPECT_TRUE(Intact(b)) << "block of " << b.size << " was overwritten";
  for (const auto& b : blocks) SmallBlockAllocator::Dispose(b.p, b.size);
}

TEST(SmallBlockAllocator, DisposeOfNullAndSizesWithinOneClassAreHarmless) {
  for (std::size_t size : {std::size_t{0}, std::size_t{16}, std::size_t{4160}, std::size_t{9000},
                           std::size_t{66624}, std::size_t{932800}})
    SmallBlockAllocator::Dispose(nullptr, size);
  // A size that differs from the allocated one but falls in the same class
  // reaches the same manager.
  void* a = SmallBlockAllocator::Allocate(20);
  SmallBlockAllocator::Dispose(a, 30);
  void* b = SmallBlockAllocator::Allocate(32);
  void* c = SmallBlockAllocator::Allocate(17);
  EXPECT_NE(b, c);
  SmallBlockAllocator::Dispose(b, 32);
  SmallBlockAllocator::Dispose(c, 17);
}

struct Huge {
  unsigned char bytes[std::size_t{1} << 50];
};
struct HugeAllocated : SmallBlockAllocator::Allocated<HugeAllocated>, Huge {};

TEST(SmallBlockAllocator, ExhaustionThrowsBadAllocWithItsText) {
  try {
    SmallBlockAllocator::Allocate(std::size_t{1} << 50);
    FAIL() << "a petabyte was granted";
  } catch (const std::bad_alloc& e) {
    EXPECT_STREQ(e.what(), "bad allocation");
  }
  EXPECT_EQ(new (std::nothrow) HugeAllocated, nullptr);
}

struct Point : SmallBlockAllocator::Allocated<Point> {
  Point(int inX, int inY) : x(inX), y(inY) {}
  int x, y;
  std::string label = "point";
};

TEST(SmallBlockAllocator, ContainersAndAllocatedClassesUseTheHeap) {
  SmallBlockAllocator::vector<int> numbers;
  for (int i = 0; i < 5000; ++i) numbers.push_back(i * 3);
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(numbers[i], i * 3);
  SmallBlockAllocator::map<int, SmallBlockAllocator::vector<int>> byKey;
  for (int i = 0; i < 300; ++i) byKey[i % 17].push_back(i);
  int total = 0;
  for (const auto& [key, values] : byKey) total += static_cast<int>(values.size());
  EXPECT_EQ(total, 300);
  EXPECT_TRUE(SmallBlockAllocator::STLAllocator<int>() ==
              SmallBlockAllocator::STLAllocator<double>());
  EXPECT_FALSE(SmallBlockAllocator::STLAllocator<int>() !=
               SmallBlockAllocator::STLAllocator<char>());

  for (Point* point : {new Point(3, -3), new (std::nothrow) Point(4, -4)}) {
    ASSERT_NE(point, nullptr);
    EXPECT_EQ(point->x + point->y, 0);
    EXPECT_EQ(point->label, "point");
    delete point;
  }
  alignas(Point) unsigned char place[sizeof(Point)];
  Point* placed = new (static_cast<void*>(place)) Point(4, 5);
  EXPECT_EQ(static_cast<void*>(placed), static_cast<void*>(place));
  placed->~Point();

  SmallBlockAllocator::Metrics::Snapshot snapshot;
  EXPECT_FALSE(SmallBlockAllocator::Metrics::GetSnapshot(snapshot));
}

TEST(SmallBlockAllocator, BlocksOfEverySizeFreedOnAnotherThreadComeBackUsable) {
  std::vector<Block> blocks;
  std::thread producer([&] {
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
      const std::size_t size = 1 + random() % 2000;
      blocks.push_back({static_cast<unsigned char*>(SmallBlockAllocator::Allocate(size)), size,
                        static_cast<unsigned char>(i)});
      Fill(blocks.back());
    }
  });
  producer.join();
  std::thread consumer([&] {
    for (const auto& b : blocks) {
      EXPECT_TRUE(Intact(b));
      SmallBlockAllocator::Dispose(b.p, b.size);
    }
  });
  consumer.join();
  // The returned blocks serve new requests on this thread.
  for (auto& b : blocks) {
    b.p = static_cast<unsigned char*>(SmallBlockAllocator::Allocate(b.size));
    Fill(b);
  }
  for (const auto& b : blocks) EXPECT_TRUE(Intact(b));
  for (const auto& b : blocks) SmallBlockAllocator::Dispose(b.p, b.size);
}

TEST(SmallBlockAllocator, ThreadsHammeringOneClassNeverShareABlock) {
  constexpr int kThreads = 4;
  constexpr int kIterations = 20000;
  constexpr std::size_t kSize = 48;
  std::atomic<int> damaged{0};
  auto work = [&](int id) {
    std::vector<Block> held;
    std::mt19937 random(id);
    for (int i = 0; i < kIterations; ++i) {
      if (held.size() < 64 && (held.empty() || random() % 3 != 0)) {
        held.push_back({static_cast<unsigned char*>(SmallBlockAllocator::Allocate(kSize)), kSize,
                        static_cast<unsigned char>(id * 50 + i % 50)});
        Fill(held.back());
      } else {
        const std::size_t at = random() % held.size();
        if (!Intact(held[at])) ++damaged;
        SmallBlockAllocator::Dispose(held[at].p, kSize);
        held[at] = held.back();
        held.pop_back();
      }
    }
    for (const auto& b : held) {
      if (!Intact(b)) ++damaged;
      SmallBlockAllocator::Dispose(b.p, kSize);
    }
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(work, id);
  for (auto& t : threads) t.join();
  EXPECT_EQ(damaged.load(), 0);
}

}  // namespace
