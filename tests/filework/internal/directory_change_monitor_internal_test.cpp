// The change monitor's system limits and volume changes, through the seams
// of the platform layer (failing calls, a mount table fed by the test).
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cerrno>
#include <string>
#include <vector>

#include "filework/DirectoryChangeMonitorTestSupport.h"
#include "filework/internal/DirectoryChangeMonitorPrivate.h"
#include "platform/TestSeams.h"

namespace {

using tvxcore::filesupport::DirectoryChangeMonitorPrivate;
using tvxcore::filesupport::internal::SetMountTableReaderForTesting;
using tvxcore::platform::seams::FailNext;
using tvxcore::platform::seams::Fault;
using tvxtest::DirectoryChangeMonitorTest;
namespace monitor = tvxtest::monitor;

// A watch refused for the user's watch limit, or a monitor refused for the
// instance limit, fails clearly and leaves nothing behind.
TEST_F(DirectoryChangeMonitorTest, SystemLimitsAreReported) {
  struct Case {
    Fault fault;
    int err;
    const char* setting;
  };
  const Case cases[] = {
      {Fault::kDirectoryWatcher, EMFILE, "max_user_instances"},
      {Fault::kDirectoryWatch, ENOSPC, "max_user_watches"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.setting);
    MakeDir(c.setting);
    FailNext(c.fault, c.err);
    EXPECT_FALSE(monitor::MonitorDirectory(Path(c.setting), callback_));
    EXPECT_NE(monitor::GetLastError().find(c.setting), std::string::npos)
        << monitor::GetLastError();
    EXPECT_NE(monitor::GetLastError().find(Native(c.setting)), std::string::npos);
    // Nothing was kept: the folder is not watched until asked again.
    Write(std::string(c.setting) + "/before");
    Pump(50);
    EXPECT_EQ(Deliveries(Native(c.setting)), 0);
    ASSERT_TRUE(monitor::MonitorDirectory(Path(c.setting), callback_)) << monitor::GetLastError();
    EXPECT_TRUE(monitor::GetLastError().empty());
    Write(std::string(c.setting) + "/after");
    EXPECT_TRUE(PumpUntil([&] { return Deliveries(Native(c.setting)) == 1; }));
  }
}

std::string Table(const std::vector<std::string>& points) {
  std::string text;
  int id = 20;
  for (const std::string& point : points)
    text +=
        std::to_string(id++) + " 1 8:1 / " + point + " rw,relatime shared:1 - ext4 /dev/sda1 rw\n";
  return text;
}

class VolumeChangeTest : public DirectoryChangeMonitorTest {
 protected:
  void SetUp() override {
    DirectoryChangeMonitorTest::SetUp();
    SetMountTableReaderForTesting([table = table_](std::string& text) {
      text = *table;
      return true;
    });
  }
  void TearDown() override {
    SetMountTableReaderForTesting(nullptr);
    DirectoryChangeMonitorTest::TearDown();
  }
  // The table changes, and the loop runs what that queued.
  void Feed(const std::string& table) {
    *table_ = table;
    DirectoryChangeMonitorPrivate::Get()->MountTableChanged();
    Pump(0);
  }

  std::shared_ptr<std::string> table_ = std::make_shared<std::string>();
  std::shared_ptr<int> calls_ = std::make_shared<int>(0);
  boost::shared_ptr<monitor::VolumeChangedCallback> volumeCallback_ =
      boost::make_shared<monitor::VolumeChangedCallback>([calls = calls_] { ++*calls; });
};

// Tables fed one after another (the first one is the table at the start):
// how many volume deliveries follow, and what the last one told.
TEST_F(VolumeChangeTest, MountPointDifferencesAreDelivered) {
  const std::string root = "/", media = "/media/x", mnt = "/mnt/y";
  struct Case {
    const char* what;
    std::vector<std::string> tables;
    int deliveries;
    std::vector<std::string> added, removed;
  };
  const std::string base = Table({root, mnt});
  std::string readOnly = base;
  readOnly.replace(readOnly.find("rw,"), 3, "ro,");
  const Case cases[] = {
      {"only options change", {base, readOnly}, 0, {}, {}},
      {"an escaped name",
       {base, Table({root, mnt, "/media/my\\040disk"})},
       1,
       {"/media/my disk"},
       {}},
      {"lines it cannot read", {base, base + "garbage\n\n"}, 0, {}, {}},
      // Within 500 ms of a delivery, changes wait for its end and are told together.
      {"three changes at once",
       {base, Table({root, mnt, media}), Table({root, mnt, media, "/b"}), Table({root, "/b"})},
       2,
       {"/b"},
       {media, mnt}},
      {"a change undone in time",
       {base, Table({root}), Table({root, "/b"}), Table({root})},
       1,
       {},
       {mnt}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    *calls_ = 0;
    *table_ = c.tables[0];
    monitor::MonitorVolumeChanges(volumeCallback_);
    for (std::size_t i = 1; i < c.tables.size(); ++i) Feed(c.tables[i]);
    if (c.deliveries > 0) {
      EXPECT_TRUE(PumpUntil([&] { return *calls_ == c.deliveries; }));
    }
    Pump(600);
    EXPECT_EQ(*calls_, c.deliveries);
    if (c.deliveries > 0) {
      const monitor::VolumeChanges last = monitor::GetLastVolumeChanges();
      std::vector<std::string> added, removed;
      for (const auto& point : last.added) added.push_back(tvxtest::N(point));
      for (const auto& point : last.removed) removed.push_back(tvxtest::N(point));
      EXPECT_EQ(added, c.added);
      EXPECT_EQ(removed, c.removed);
    }
    monitor::StopMonitoringVolumeChanges();
  }
}

// The same callback twice is called once but counts twice; a stop at 0 does
// nothing, and a removed callback hears nothing.
TEST_F(VolumeChangeTest, CallbacksAndCountsFollowTheirCalls) {
  *table_ = Table({"/"});
  monitor::MonitorVolumeChanges(volumeCallback_);
  monitor::MonitorVolumeChanges(volumeCallback_);
  monitor::StopMonitoringVolumeChanges();
  Feed(Table({"/", "/a"}));
  EXPECT_TRUE(PumpUntil([&] { return *calls_ == 1; }));
  monitor::StopMonitoringVolumeChanges();
  monitor::StopMonitoringVolumeChanges();  // at 0: nothing
  Feed(Table({"/"}));
  Pump(600);
  EXPECT_EQ(*calls_, 1);

  monitor::MonitorVolumeChanges(volumeCallback_);
  monitor::RemoveVolumeChangedCallback(volumeCallback_);
  Feed(Table({"/", "/c"}));
  Pump(600);
  EXPECT_EQ(*calls_, 1);
}

}  // namespace
