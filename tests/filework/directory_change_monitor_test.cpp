// The change monitor through its public interface: what is seen, how bursts
// are collapsed, folders that vanish or are replaced, counting and callbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "filework/DirectoryChangeMonitorTestSupport.h"

namespace {

namespace fs = std::filesystem;

void Put(const fs::path& file, const std::string& text = "x") { std::ofstream(file) << text; }
using tvxtest::DirectoryChangeMonitorTest;
using tvxtest::monitor::GetLastError;
using tvxtest::monitor::MonitorDirectory;
using tvxtest::monitor::StopMonitoringDirectory;

// Every kind of change directly inside a watched folder is delivered with the
// watched path (folders inside it change as files do); a change one level
// further down is not.
TEST_F(DirectoryChangeMonitorTest, ChangesInsideAWatchedFolderAreDelivered) {
  struct Case {
    const char* what;
    std::function<void(const fs::path&dir)> prepare, change;
    bool seen;
  };
  const auto nothing = [](const fs::path&) {};
  const Case cases[] = {
      {"create a file", nothing, [](const fs::path& d) { Put(d.string() + "/new"); }, true},
      {"delete a file", [](const fs::path& d) { Put(d.string() + "/old"); },
       [](const fs::path& d) { fs::remove(d.string() + "/old"); }, true},
      {"rewrite a file", [](const fs::path& d) { Put(d.string() + "/f"); },
       [](const fs::path& d) { Put(d.string() + "/f", "changed"); }, true},
      {"rename in", [](const fs::path& d) { Put(d.string() + "-outside"); },
       [](const fs::path& d) { fs::rename(d.string() + "-outside", d.string() + "/in"); }, true},
      {"rename out", [](const fs::path& d) { Put(d.string() + "/out"); },
       [](const fs::path& d) { fs::rename(d.string() + "/out", d.string() + "-moved"); }, true},
      {"create a file in a subfolder",
       [](const fs::path& d) { fs::create_directory(d.string() + "/sub"); },
       [](const fs::path& d) { Put(d.string() + "/sub/deep"); }, false},
  };
  int index = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string dir = "w" + std::to_string(index++);
    MakeDir(dir);
    c.prepare(Native(dir));
    ASSERT_TRUE(Watch(dir)) << GetLastError();
    c.change(Native(dir));
    if (c.seen) {
      EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native(dir)) > 0; }));
    } else {
      Pump(100);
      EXPECT_EQ(Deliveries(Native(dir)), 0);
    }
    StopMonitoringDirectory(Path(dir));
  }
}

TEST_F(DirectoryChangeMonitorTest, ABurstIsCollapsedIntoFewDeliveries) {
  ASSERT_TRUE(Watch("burst"));
  for (int i = 0; i < 1000; ++i) Write("burst/f" + std::to_string(i));
  ASSERT_TRUE(PumpUntil([&] { return Deliveries(Native("burst")) > 0; }));
  Pump(200);
  EXPECT_LT(Deliveries(Native("burst")), 50);
}

// A watched folder that goes away is delivered once and leaves no watch
// behind; one replaced by a new folder of the same name is watched again.
TEST_F(DirectoryChangeMonitorTest, VanishedOrReplacedFoldersAreDeliveredOnce) {
  struct Case {
    const char* what;
    std::function<void(const fs::path& dir)> change;
    bool replaced;
  };
  const Case cases[] = {
      {"removed", [](const fs::path& d) { fs::remove(d); }, false},
      {"moved away", [](const fs::path& d) { fs::rename(d, d.string() + "-moved"); }, false},
      {"removed and made again",
       [](const fs::path& d) {
         fs::remove(d);
         fs::create_directory(d);
       },
       true},
  };
  int index = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string dir = "v" + std::to_string(index++);
    ASSERT_TRUE(Watch(dir)) << GetLastError();
    c.change(Native(dir));
    ASSERT_TRUE(PumpUntil([&] { return Deliveries(Native(dir)) > 0; }));
    Pump(100);
    EXPECT_EQ(Deliveries(Native(dir)), 1);
    // A change where the old folder went must not be told as the watched
    // path; one in a new folder under that path must.
    if (OnDisk(dir + "-moved")) Write(dir + "-moved/later");
    if (c.replaced) {
      Write(dir + "/later");
      EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native(dir)) == 2; }));
    } else {
      Pump(100);
      EXPECT_EQ(Deliveries(Native(dir)), 1);
    }
    StopMonitoringDirectory(Path(dir));
  }
}

// Watches are counted per path, a callback added twice is called once, and
// a removed callback or a stopped path hears nothing more.
TEST_F(DirectoryChangeMonitorTest, CountsPathsAndKeepsEachCallbackOnce) {
  ASSERT_TRUE(Watch("d"));
  ASSERT_TRUE(Watch("d"));
  Write("d/one");
  ASSERT_TRUE(PumpUntil([&] { return Deliveries(Native("d")) > 0; }));
  Pump(100);
  EXPECT_EQ(Deliveries(Native("d")), 1);

  StopMonitoringDirectory(Path("d"));
  Write("d/two");
  EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native("d")) == 2; }));

  StopMonitoringDirectory(Path("d"));
  StopMonitoringDirectory(Path("d"));  // not watched: nothing happens
  Write("d/three");
  Pump(150);
  EXPECT_EQ(Deliveries(Native("d")), 2);

  ASSERT_TRUE(Watch("e"));
  tvxtest::monitor::RemoveDirectoryChangedCallback(callback_);
  Write("e/one");
  Pump(150);
  EXPECT_EQ(Deliveries(Native("e")), 0);
}

// Another thread may watch and stop while the main thread's loop delivers.
TEST_F(DirectoryChangeMonitorTest, AnotherThreadMayWatchAndStop) {
  ASSERT_TRUE(Watch("steady"));
  MakeDir("busy");
  std::atomic<bool> done{false};
  std::thread other([&] {
    for (int i = 0; i < 200; ++i) {
      EXPECT_TRUE(MonitorDirectory(Path("busy"), callback_)) << GetLastError();
      Put(Native("busy/f" + std::to_string(i % 10)));
      Put(Native("steady/f" + std::to_string(i % 10)));
      StopMonitoringDirectory(Path("busy"));
    }
    done = true;
  });
  EXPECT_TRUE(PumpUntil([&] { return done.load(); }));
  other.join();
  EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native("steady")) > 0; }));
  // "busy" is no longer watched: what is written now is not told.
  Pump(50);
  const int busy = Deliveries(Native("busy"));
  Put(Native("busy/late"));
  Pump(100);
  EXPECT_EQ(Deliveries(Native("busy")), busy);
}

TEST_F(DirectoryChangeMonitorTest, FolderThatCannotBeWatchedIsAClearFailure) {
  Write("file");
  struct Case {
    std::string path;
    const char* reason;
  };
  const Case cases[] = {
      {Native("missing"), "no such folder"},
      {Native("file"), "not a folder"},
  };
  for (const Case& c : cases) {
    EXPECT_FALSE(MonitorDirectory(tvxtest::U(c.path), callback_));
    EXPECT_NE(GetLastError().find(c.path), std::string::npos) << GetLastError();
    EXPECT_NE(GetLastError().find(c.reason), std::string::npos) << GetLastError();
  }
  tvxtest::monitor::Terminate();
  EXPECT_TRUE(tvxtest::monitor::IsTerminated());
  MakeDir("late");
  EXPECT_FALSE(MonitorDirectory(Path("late"), callback_));
  EXPECT_NE(GetLastError().find(Native("late") + "': the change monitor is not initialized"),
            std::string::npos)
      << GetLastError();
  tvxtest::monitor::Initialize();
}

// Ten thousand folders, or as many as the user's watch limit allows, with a
// clear failure at the limit. (Most of its time is the kernel's: removing
// folders that were watched costs it about 2 ms each.)
TEST_F(DirectoryChangeMonitorTest, WatchesTenThousandFolders) {
  int watched = 0;
  for (; watched < 10000; ++watched) {
    if (!Watch("m" + std::to_string(watched))) {
      EXPECT_NE(GetLastError().find("max_user_watches"), std::string::npos) << GetLastError();
      break;
    }
  }
  ASSERT_GT(watched, 0);
  const std::string last = "m" + std::to_string(watched - 1);
  Write(last + "/f");
  EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native(last)) == 1; }));
}

}  // namespace
