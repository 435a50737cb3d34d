// The trace manager through its public interface: defaults, volumes, the
// file in the preferences folder, restarts, damaged and unwritable files,
// tracing sites and threads.
#include "tvxcore/debug/Trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/DiagnosticsFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/threads/Thread.h"

namespace {

namespace dbg = tvxcore::debug;
using tvxcore::UTF8String;

constexpr char kFile[] = "Trace Database.txt";
constexpr char kOld[] = "Trace Database.txt.old";

using namespace std::string_literals;

std::vector<std::string> Categories() {
  std::list<UTF8String> names;
  dbg::GetTraceCategories(names);
  std::vector<std::string> out;
  for (const UTF8String& name : names) out.push_back(tvxtest::S8(name));
  return out;
}

class RecordingHandler : public dbg::TraceHandler {
 public:
  void WriteTrace(const std::string& inLine) override { lines.push_back(inLine); }
  std::vector<std::string> lines;
};

class Trace : public tvxtest::DiagnosticsTest {
 protected:
  void TearDown() override {
    if (!child_) {
      dbg::SetDisableFileWrites(false);
      dbg::SetMasterTraceVolume(10);
      dbg::ShutdownTraceManager();
      dbg::RemoveMasterTraceHandler();
    }
    DiagnosticsTest::TearDown();
  }

  // In this process: the identity set and the settings read from this
  // test's folder at the next question.
  void Start() {
    SetIdentity();
    dbg::ShutdownTraceManager();
  }
};

TEST_F(Trace, DefaultsApplyAndNoFileIsTouchedBeforeTheClientName) {
  InFreshProcess([&] {
    EXPECT_TRUE(dbg::TraceEnabled("Any", 5, true));
    EXPECT_EQ(dbg::GetMasterTraceVolume(), 10);
    const int count = dbg::TraceChangeCount();
    dbg::SetTraceVolume("Any", 9);
    EXPECT_NE(dbg::TraceChangeCount(), count);
    EXPECT_EQ(dbg::GetTraceVolume("Any"), 5) << "a change before the client name is not kept";
    EXPECT_TRUE(Categories().empty());
    EXPECT_FALSE(std::filesystem::exists(root_ / "config"));

    // The master loaded before the client name keeps its default; the
    // categories come from the file from now on.
    WritePref(kFile, "Master\t1\t2\nAny\t1\t7\n");
    SetIdentity();
    EXPECT_EQ(dbg::GetMasterTraceVolume(), 10);
    EXPECT_EQ(dbg::GetTraceVolume("Any"), 7);
    EXPECT_TRUE(dbg::TraceEnabled("Any", 7, false));
  });
}

TEST_F(Trace, ALinePassesAtOrBelowBothVolumes) {
  Start();
  struct Row {
    long master, category, line;
    bool passes;
  };
  const Row rows[] = {
      {10, 5, 5, true},  {10, 5, 6, false},   {3, 5, 4, false},
      {3, 5, 3, true},   {10, 0, 0, true},    {10, -1, 0, false},
      {-1, 5, 0, false}, {10, 20, 11, false}, {20, 20, 11, true},
  };
  for (const Row& row : rows) {
    dbg::SetMasterTraceVolume(row.master);
    dbg::SetTraceVolume("Cat", row.category);
    EXPECT_EQ(dbg::TraceEnabled("Cat", row.line, true), row.passes)
        << "master " << row.master << ", category " << row.category << ", line " << row.line;
  }
}

TEST_F(Trace, CategoriesAreRecordedWhenAskedWithCreate) {
  Start();
  EXPECT_TRUE(dbg::TraceEnabled("Quiet", 5, false));
  EXPECT_TRUE(Categories().empty());
  EXPECT_FALSE(PrefExists(kFile)) << "reading never writes";

  EXPECT_TRUE(dbg::TraceEnabled("Loud", 0, true));
  EXPECT_EQ(dbg::GetTraceVolume("Asked"), 5);
  EXPECT_EQ(Categories(), (std::vector<std::string>{"Asked", "Loud"}));
  EXPECT_EQ(ReadPref(kFile), "Asked\t1\t5\nLoud\t1\t5\n");
}

TEST_F(Trace, EveryChangeRaisesTheCountAndRewritesTheFileUnlessWritesAreOff) {
  Start();
  const auto site = [] { return TVX_TRACE_ENABLED("Site", 3); };
  EXPECT_TRUE(site());
  int count = dbg::TraceChangeCount();
  dbg::SetTraceVolume("Site", 2);
  EXPECT_NE(dbg::TraceChangeCount(), count);
  EXPECT_EQ(ReadPref(kFile), "Site\t1\t2\n");
  EXPECT_FALSE(site()) << "a site asks again after a change";

  dbg::SetDisableFileWrites(true);
  count = dbg::TraceChangeCount();
  dbg::SetTraceVolume("Site", 8);
  dbg::SetMasterTraceVolume(2);
  EXPECT_NE(dbg::TraceChangeCount(), count);
  EXPECT_EQ(ReadPref(kFile), "Site\t1\t2\n");
  EXPECT_FALSE(site()) << "the master volume reaches sites too";
  dbg::SetMasterTraceVolume(10);
  EXPECT_TRUE(site());

  dbg::SetDisableFileWrites(false);
  dbg::ShutdownTraceManager();
  EXPECT_EQ(ReadPref(kFile), "Master\t1\t10\nSite\t1\t8\n");
  EXPECT_EQ(dbg::GetTraceVolume("Site"), 8) << "read anew after the shutdown";
}

// Each file is read in a restarted manager; the volume shows what was read,
// and the save at shutdown shows the enabled bit as it was understood.
TEST_F(Trace, FileLinesReadAsTheyAreWrittenAndDamageIsKeptAside) {
  struct Row {
    std::string text;
    std::string savedAs;  // after reading "abc" and saving
    bool damaged;
  };
  const Row rows[] = {
      {"abc\t2\t5\n", "abc\t0\t5\n", false},  // only 1 is true
      {"abc\t1\t7\r\n", "abc\t1\t7\n", false},
      {"abc\t 01\t-3", "abc\t1\t-3\n", false},
      {"abc\t1\t5\n\nabc\t1\t8\n", "abc\t1\t8\n", true},
      {"abc\t1\tloud\n", "abc\t1\t0\n", true},
      {"abc\t1\n", "abc\t1\t0\n", true},
      {"abc\t1\t99999999999\n", "abc\t1\t0\n", true},
      {"abc\t1\t5\textra\n", "abc\t1\t5\n", true},
      {"no tab here\nabc\t1\t4\n", "abc\t1\t4\n", true},
      {"ab\0zz\t1\t4\nabc\t1\t4\n"s, "ab\t1\t4\nabc\t1\t4\n", true},
  };
  Start();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    std::filesystem::remove(PrefDir() / kOld);
    WritePref(kFile, row.text);
    dbg::ShutdownTraceManager();
    dbg::GetTraceVolume("abc");
    dbg::ShutdownTraceManager();
    EXPECT_EQ(ReadPref(kFile), row.savedAs);
    EXPECT_EQ(PrefExists(kOld), row.damaged);
    if (row.damaged) {
      EXPECT_EQ(ReadPref(kOld), row.text) << "the damaged file is kept whole";
    }

    // What was saved reads back whole and is saved unchanged.
    std::filesystem::remove(PrefDir() / kOld);
    dbg::GetTraceVolume("abc");
    dbg::ShutdownTraceManager();
    EXPECT_EQ(ReadPref(kFile), row.savedAs);
    EXPECT_FALSE(PrefExists(kOld));
  }
}

TEST_F(Trace, SettingsSurviveARestartOfTheProcess) {
  InFreshProcess([&] {
    SetIdentity();
    dbg::SetMasterTraceVolume(7);
    dbg::SetTraceVolume("Foo", 3);
    dbg::SetTraceVolume("Bar", 9);
    dbg::ShutdownTraceManager();
    EXPECT_EQ(ReadPref(kFile), "Bar\t1\t9\nFoo\t1\t3\nMaster\t1\t7\n");
  });
  InFreshProcess([&] {
    SetIdentity();
    EXPECT_EQ(dbg::GetMasterTraceVolume(), 7);
    EXPECT_EQ(dbg::GetTraceVolume("Foo"), 3);
    EXPECT_FALSE(dbg::TraceEnabled("Foo", 4, false));
    EXPECT_TRUE(dbg::TraceEnabled("Bar", 7, false));
    EXPECT_FALSE(dbg::TraceEnabled("Bar", 8, false)) << "above the master";
    EXPECT_EQ(Categories(), (std::vector<std::string>{"Bar", "Foo", "Master"}));
  });
}

TEST_F(Trace, ADisabledMasterCreatesNothing) {
  InFreshProcess([&] {
    WritePref(kFile, "Master\t0\t10\n");
    SetIdentity();
    EXPECT_FALSE(dbg::TraceEnabled("New", 0, true));
    EXPECT_EQ(Categories(), (std::vector<std::string>{"Master"}));
    EXPECT_EQ(ReadPref(kFile), "Master\t0\t10\n");
    dbg::SetMasterTraceVolume(12);
    EXPECT_FALSE(dbg::TraceEnabled("New", 0, true)) << "setting the volume keeps it disabled";
  });
}

TEST_F(Trace, AFileThatCannotBeReadIsNeverWrittenOver) {
  std::filesystem::create_directories(PrefDir() / kFile / "inside");
  Start();
  dbg::SetTraceVolume("Kept", 4);
  EXPECT_EQ(dbg::GetTraceVolume("Kept"), 4);
  dbg::ShutdownTraceManager();
  EXPECT_TRUE(std::filesystem::is_directory(PrefDir() / kFile / "inside"));
  EXPECT_FALSE(PrefExists(kOld));
}

TEST_F(Trace, AnUnwritablePreferencesFolderIsSilentForBothDatabases) {
  std::filesystem::create_directories(root_ / "config");
  std::filesystem::permissions(
      root_ / "config", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  InFreshProcess([&] {
    const int status = tvxtest::RunUnprivileged([] {
      SetIdentity();
      dbg::SetTraceVolume("Memory", 3);
      dbg::SetMasterTraceVolume(4);
      dbg::DebugDatabase::Instance().SetEntry(UTF8String(4, 'k'), UTF8String(1, '1'));
      const bool ok =
          dbg::GetTraceVolume("Memory") == 3 && dbg::TraceEnabled("Memory", 3, true) &&
          !dbg::TraceEnabled("Memory", 4, true) &&
          dbg::DebugDatabase::Instance().GetEntry(UTF8String(4, 'k')) == UTF8String(1, '1');
      dbg::ShutdownTraceManager();
      dbg::DebugDatabase::Instance().SaveDataBase();
      return ok ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(root_ / "config" / "TestCo"));
  });
}

TEST_F(Trace, LinesGoToTheMasterHandlerAndTheDefaultOneWithoutIt) {
  Start();
  RecordingHandler handler;
  EXPECT_NE(dynamic_cast<dbg::DefaultTraceHandler*>(dbg::GetMasterTraceHandler()), nullptr);
  dbg::InstallMasterTraceHandler(&handler);

  dbg::Trace("as it stands");
  dbg::SetTraceVolume("Lines", 2);
  TVX_TRACE("Lines", 2, std::string("shown"));
  TVX_TRACE("Lines", 3, std::string("too loud"));
  const std::string thread = std::to_string(tvxcore::threads::GetCurrentThreadID());
  EXPECT_EQ(handler.lines,
            (std::vector<std::string>{"as it stands", "<" + thread + "> <Lines> <2> shown\n"}));

  dbg::RemoveMasterTraceHandler();
  dbg::Trace("not recorded");
  EXPECT_EQ(handler.lines.size(), 2u);
  EXPECT_NE(dynamic_cast<dbg::DefaultTraceHandler*>(dbg::GetMasterTraceHandler()), nullptr);
}

bool HotSite() { return TVX_TRACE_ENABLED("Hot", 4); }

// One site asked on many threads while the settings change: once the changes
// are over, no thread keeps a stale answer.
TEST_F(Trace, ASiteFollowsChangesMadeOnOtherThreads) {
  Start();
  dbg::SetDisableFileWrites(true);
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop.load()) {
        HotSite();
        dbg::TraceEnabled("Hot", 1, true);
      }
    });
  }
  for (int i = 0; i < 300; ++i) dbg::SetTraceVolume("Hot", i % 2 == 0 ? 2 : 6);
  dbg::SetTraceVolume("Hot", 2);
  stop = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_FALSE(HotSite());
  std::thread([] { EXPECT_FALSE(HotSite()); }).join();
  dbg::SetTraceVolume("Hot", 6);
  EXPECT_TRUE(HotSite());
  std::thread([] { EXPECT_TRUE(HotSite()); }).join();
}

}  // namespace
