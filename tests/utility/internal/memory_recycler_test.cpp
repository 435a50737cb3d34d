#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/TestSeams.h"
#include "support/PurgeRecorder.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/utility/MemoryRecycler.h"

namespace {

using tvxcore::utility::MemoryRecycler;
using tvxcore::utility::RecycledMemory;
namespace seams = tvxcore::platform::seams;

constexpr std::size_t kMiB = 1048576;

// An empty pool with the default limit, before and after each test.
class MemoryRecyclerTest : public ::testing::Test {
 protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }
  static void Clear() {
    MemoryRecycler::SetPoolLimit(0);
    MemoryRecycler::PurgeBytes(0);
  }
};

TEST_F(MemoryRecyclerTest, SizesRoundUpAndOnlyLargeBuffersArePooled) {
  struct Row {
    std::size_t size;
    std::size_t actual;
  };
  const Row rows[] = {
      {1, 1},          {8191, 8191}, {8192, 8192},        {8193, 12288},
      {1048575, kMiB}, {kMiB, kMiB}, {kMiB + 1, 1064960},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    std::size_t actual = 0;
    char* buffer = static_cast<char*>(MemoryRecycler::Allocate(row.size, actual));
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(actual, row.actual);
    buffer[0] = 'a';
    buffer[actual - 1] = 'z';
    MemoryRecycler::Recycle(buffer, actual);
    const bool pooled = row.size >= 8192;
    EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), pooled ? actual : 0u);
    if (!pooled) continue;
    std::size_t again = 0;
    EXPECT_EQ(MemoryRecycler::Allocate(row.size, again), buffer);  // an exact match
    EXPECT_EQ(again, actual);
    EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 0u);
    MemoryRecycler::Recycle(buffer, actual);
    MemoryRecycler::PurgeBytes(0);
  }
}

TEST_F(MemoryRecyclerTest, PoolKeepsToItsLimitOldestFirst) {
  std::size_t actual = 0;
  void* older = MemoryRecycler::Allocate(4 * kMiB, actual);
  void* newer = MemoryRecycler::Allocate(4 * kMiB, actual);
  MemoryRecycler::SetPoolLimit(6 * kMiB);
  MemoryRecycler::Recycle(older, actual);
  MemoryRecycler::Recycle(newer, actual);
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 4 * kMiB);
  EXPECT_EQ(MemoryRecycler::Allocate(4 * kMiB, actual), newer);
  MemoryRecycler::Recycle(newer, actual);

  // A buffer above the limit on its own doesn't stay.
  void* huge = MemoryRecycler::Allocate(8 * kMiB, actual);
  MemoryRecycler::Recycle(huge, actual);
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 0u);

  MemoryRecycler::SetPoolLimit(0);
  EXPECT_EQ(MemoryRecycler::GetPoolLimit(), 52428800u);

  // Only exact sizes match; purges free whole buffers, oldest first.
  const std::size_t sizes[] = {65536, 16384, 65536, 32768};
  std::vector<void*> buffers;
  for (std::size_t size : sizes) buffers.push_back(MemoryRecycler::Allocate(size, actual));
  for (std::size_t i = 0; i < buffers.size(); ++i) MemoryRecycler::Recycle(buffers[i], sizes[i]);
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 180224u);
  std::size_t unmatched = 0;
  void* fresh = MemoryRecycler::Allocate(61440, unmatched);
  for (void* b : buffers) EXPECT_NE(fresh, b);
  MemoryRecycler::Recycle(fresh, unmatched);  // now the newest entry
  EXPECT_EQ(MemoryRecycler::PurgeBytes(1), 65536u);
  EXPECT_EQ(MemoryRecycler::PurgeBytes(16385), 16384u + 65536u);
  MemoryRecycler::SetPoolLimit(61440);  // leaves the newest
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 61440u);
  EXPECT_EQ(MemoryRecycler::Allocate(61440, unmatched), fresh);
  MemoryRecycler::Recycle(fresh, unmatched);
  EXPECT_EQ(MemoryRecycler::PurgeBytes(0), 61440u);
  EXPECT_EQ(MemoryRecycler::PurgeBytes(0), 0u);
}

TEST_F(MemoryRecyclerTest, RunningOutClimbsTheLadderToTheHost) {
  enum class Host { kNone, kPurges, kRefuses };
  struct Row {
    const char* what;
    int failures;
    Host host;
    bool succeeds;
    bool poolPurged;
    std::size_t hostAsked;
  };
  const Row rows[] = {
      {"no failure", 0, Host::kRefuses, true, false, 0},
      {"pool purge suffices", 1, Host::kRefuses, true, true, 0},
      {"host purge helps", 2, Host::kPurges, true, true, 1},
      {"host refuses", 2, Host::kRefuses, false, true, 1},
      {"host purged in vain", 3, Host::kPurges, false, true, 1},
      {"no host", 2, Host::kNone, false, true, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::optional<tvxtest::PurgeRecorder> host;
    if (row.host != Host::kNone) host.emplace(row.host == Host::kPurges);
    std::size_t actual = 0;
    void* other = MemoryRecycler::Allocate(131072, actual);
    MemoryRecycler::Recycle(other, actual);

    seams::FailNextCalls(seams::Fault::kPages, ENOMEM, row.failures);
    void* buffer = nullptr;
    std::string error;
    try {
      buffer = MemoryRecycler::Allocate(65536, actual);
    } catch (const std::bad_alloc& e) {
      error = e.what();
    }
    seams::FailNextCalls(seams::Fault::kPages, 0, 0);

    EXPECT_EQ(buffer != nullptr, row.succeeds);
    EXPECT_EQ(error, row.succeeds ? "" : "bad allocation");
    EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), row.poolPurged ? 0u : 131072u);
    if (host) {
      EXPECT_EQ(host->purges.size(), row.hostAsked);
      for (unsigned long long asked : host->purges) EXPECT_EQ(asked, 65536u);
    }
    MemoryRecycler::Recycle(buffer, actual);
    MemoryRecycler::PurgeBytes(0);
  }
}

TEST_F(MemoryRecyclerTest, RecycledMemoryGivesItsBufferBack) {
  char* first;
  {
    RecycledMemory memory;
    memory.Allocate(100000);
    EXPECT_EQ(memory.Size(), 100000u);
    first = memory.Buffer();
    std::memset(first, 7, 100000);
    memory.Allocate(100);  // the first buffer goes back
    EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 102400u);
    EXPECT_EQ(memory.Size(), 100u);
    memory.Free();
    EXPECT_EQ(memory.Buffer(), nullptr);
    EXPECT_EQ(memory.Size(), 0u);
    memory.Allocate(99000);  // same rounded size: the pooled buffer
    EXPECT_EQ(memory.Buffer(), first);
    EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 0u);
  }
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 102400u);

  boost::shared_ptr<char> owner(new char[50000], [](char* p) { delete[] p; });
  auto* memory = new RecycledMemory;
  memory->Share(owner, 50000);
  EXPECT_EQ(memory->Buffer(), owner.get());
  EXPECT_EQ(owner.use_count(), 2);
  delete memory;
  EXPECT_EQ(owner.use_count(), 1);
  EXPECT_EQ(MemoryRecycler::GetCurrentPoolSize(), 102400u);
}

}  // namespace
