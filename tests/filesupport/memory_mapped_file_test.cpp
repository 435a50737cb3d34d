#include "tvxcore/MemoryMappedFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "support/PurgeRecorder.h"
#include "support/Unprivileged.h"
#include "tvxcore/config/Errors.h"

namespace {

using tvxcore::MemoryMappedFile;
constexpr unsigned long kCreate = tvxcore::kMappedFileCreate;
constexpr unsigned long kMap = tvxcore::kMappedFileMapAtOnce;
constexpr unsigned long kWrite = tvxcore::kMappedFileWrite;
constexpr unsigned long kWriteOrFail = tvxcore::kMappedFileWriteOrFail;

// A name no other run or test uses.
std::string UniqueName() {
  static std::atomic<int> counter{0};
  return "tvxcore-mmf-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
}

long ThrownCode(const std::function<void()>& call) {
  try {
    call();
  } catch (long code) {
    return code;
  }
  return 0;
}

TEST(MemoryMappedFile, TwoObjectsOfOneNameShareWrites) {
  const std::string name = UniqueName();
  MemoryMappedFile first, second;
  ASSERT_TRUE(first.Open(name, 4096, kCreate | kMap | kWrite));
  ASSERT_TRUE(second.Open(name, 4096, kCreate | kMap | kWrite));  // finds it: opens
  char* a = static_cast<char*>(first.GetAddress());
  char* b = static_cast<char*>(second.GetAddress());
  EXPECT_NE(a, b);
  b[4095] = 'z';
  EXPECT_EQ(a[4095], 'z');

  std::string stored;
  second.GetName(stored);
  EXPECT_EQ(stored, name);
  EXPECT_EQ(second.Size(), 4096u);

  // The creator's name goes with it; the other keeps the block.
  first.Reset();
  MemoryMappedFile late;
  EXPECT_FALSE(late.Open(name, 4096, kMap | kWrite));
  EXPECT_EQ(b[4095], 'z');
}

TEST(MemoryMappedFile, AnotherProcessSeesWrites) {
  const std::string name = UniqueName();
  MemoryMappedFile parent;
  parent.Init(name, 65536, kCreate | kMap | kWrite);
  char* shared = static_cast<char*>(parent.GetAddress());
  std::strcpy(shared, "parent wrote this");
  const int status = tvxtest::RunInChild([&] {
    MemoryMappedFile child;
    if (!child.Open(name, 65536, kCreate | kMap | kWrite)) return 1;
    char* view = static_cast<char*>(child.GetAddress());
    if (view == shared) return 2;  // a fork shares the parent's map: must be a new view
    if (std::strcmp(view, "parent wrote this") != 0) return 3;
    std::strcpy(view + 32768, "child answered");
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(shared + 32768, "child answered");
}

TEST(MemoryMappedFile, OpenFlagsDecideCreationAndAccess) {
  struct Row {
    const char* what;
    bool exists;
    unsigned long flags;
    bool opens;
    bool created;
    bool writable;
  };
  const Row rows[] = {
      {"create anew", false, kCreate | kMap | kWrite, true, true, true},
      {"create, found", true, kCreate | kMap | kWrite, true, false, true},
      {"open existing for writing", true, kMap | kWriteOrFail, true, false, true},
      {"open existing for reading", true, kMap, true, false, false},
      {"reading, nobody created it", false, kMap, false, false, false},
      {"open without mapping", true, kWrite, true, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string name = UniqueName();
    MemoryMappedFile creator;
    if (row.exists) {
      ASSERT_TRUE(creator.Open(name, 8192, kCreate | kMap | kWrite));
    }
    MemoryMappedFile file;
    ASSERT_EQ(file.Open(name, 8192, row.flags), row.opens);
    EXPECT_EQ(file.MappedMemoryIsWritable(), row.writable);
    // Removing the name is what only a creator does.
    file.Reset();
    MemoryMappedFile probe;
    EXPECT_EQ(probe.Open(name, 8192, kMap), row.exists || (row.opens && !row.created));
  }
}

TEST(MemoryMappedFile, ViewIsMappedOnDemand) {
  const std::string name = UniqueName();
  MemoryMappedFile creator;
  ASSERT_TRUE(creator.Open(name, 4096, kCreate | kWrite));
  EXPECT_FALSE(creator.MappedMemoryIsWritable());  // no view yet
  char* view = static_cast<char*>(creator.GetAddress());
  EXPECT_TRUE(creator.MappedMemoryIsWritable());
  view[0] = 'x';
  creator.CloseFileHandleIfPossible();  // unmaps only
  EXPECT_FALSE(creator.MappedMemoryIsWritable());
  EXPECT_EQ(static_cast<char*>(creator.GetAddress())[0], 'x');
}

TEST(MemoryMappedFile, FailuresAreTheMappedFileError) {
  tvxtest::PurgeRecorder manager;
  struct Row {
    const char* what;
    std::string name;
    unsigned long long size;
  };
  const std::string tooLong(300, 'n');
  const Row rows[] = {
      {"empty name", "", 4096},       {"slash", "a/b", 4096},
      {"backslash", "a\\b", 4096},    {"only a prefix", "Local\\", 4096},
      {"too long", tooLong, 4096},    {"dot dot", "..", 4096},
      {"size zero", UniqueName(), 0}, {"size beyond 32 bits only", UniqueName(), 1ull << 32},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    MemoryMappedFile file;
    manager.purges.clear();
    EXPECT_FALSE(file.Open(row.name, row.size, kCreate | kWrite));
    EXPECT_TRUE(manager.purges.empty());
    EXPECT_EQ(ThrownCode([&] { file.Init(row.name, row.size, kCreate | kMap | kWrite); }), 9002);
    EXPECT_EQ(manager.purges, std::vector<unsigned long long>{row.size});  // then once more
    EXPECT_EQ(ThrownCode([&] { file.GetAddress(); }), 9002);
  }
}

TEST(MemoryMappedFile, SecondOpenDropsTheFirstAndPrefixesShareANamespace) {
  const std::string first = UniqueName(), second = UniqueName();
  MemoryMappedFile file;
  ASSERT_TRUE(file.Open(first, 4096, kCreate | kMap | kWrite));
  ASSERT_TRUE(file.Open("Local\\" + second, 4096, kCreate | kMap | kWrite));
  MemoryMappedFile probe;
  EXPECT_FALSE(probe.Open(first, 4096, kMap));
  ASSERT_TRUE(probe.Open("Global\\" + second, 4096, kMap));
  static_cast<char*>(file.GetAddress())[1] = 'q';
  EXPECT_EQ(static_cast<char*>(probe.GetAddress())[1], 'q');

  // A copy reads the fields and lets go of nothing.
  {
    MemoryMappedFile copy(file);
    EXPECT_EQ(copy.GetAddress(), file.GetAddress());
  }
  EXPECT_EQ(static_cast<char*>(file.GetAddress())[1], 'q');
}

}  // namespace
