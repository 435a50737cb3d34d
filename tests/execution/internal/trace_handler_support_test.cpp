// The timestamp and rolling trace handlers with the clocks set by the test:
// the timestamp's text, rolls by size and by day, the growing names, and the
// switches as the rolling handler reads them.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "diagnostics/DiagnosticsFixture.h"
#include "execution/ExecutorTestSupport.h"
#include "execution/internal/TraceHandlerSupport.h"
#include "support/TempDirFixture.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/TraceHandlers.h"

namespace {

namespace dbg = tvxcore::debug;
namespace pt = boost::posix_time;
using tvxtest::SetDebugSetting;

// Line i of a test, ten bytes long.
std::string TenBytes(std::size_t i) {
  std::string digits = std::to_string(10000 + i % 10000).substr(1);
  return "line " + digits + "\n";
}

// The time the handlers see, set by each test.
pt::ptime fakeNow;
pt::ptime FakeNow() { return fakeNow; }

class TraceClocks : public tvxtest::DiagnosticsTest {
 protected:
  void SetUp() override {
    DiagnosticsTest::SetUp();
    dbg::internal::SetTraceClocks(&FakeNow, &FakeNow);
  }
  void TearDown() override {
    dbg::internal::SetTraceClocks(nullptr, nullptr);
    DiagnosticsTest::TearDown();
  }

  std::filesystem::path Logs() const { return PrefDir() / "logs"; }
  std::string ReadLog(const std::string& name) const {
    std::ifstream in(Logs() / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
};

TEST_F(TraceClocks, TimestampIsIsoExtendedUtcWithMicroseconds) {
  tvxtest::TraceRecorder recorder;
  dbg::TimestampTraceHandler handler(&recorder);
  for (const pt::ptime& time :
       {pt::ptime({2026, 11, 13}, pt::time_duration(9, 19, 30) + pt::microseconds(123456)),
        pt::ptime({2026, 1, 2}, pt::time_duration(3, 4, 5))}) {
    fakeNow = time;
    handler.WriteTrace("<1> <Cat> <0> text\n");
  }
  EXPECT_EQ(recorder.lines,
            (std::vector<std::string>{"2026-11-13T09:19:30.123456 <1> <Cat> <0> text\n",
                                      "2026-01-02T03:04:05.000000 <1> <Cat> <0> text\n"}));
}

TEST_F(TraceClocks, RollingSwitchesAsTheDebugDatabaseSaysThem) {
  const struct {
    const char* create;
    const char* maxSize;
    const char* daily;
    bool bySize;
    std::uint32_t max;
    bool rollDaily;
  } kCases[] = {
      {"false", "1000", "true", false, 0, false},  // nothing without the master switch
      {"true", "1000", "false", true, 1000, false},
      {"1", "1000", "1", true, 1000, true},
      {"true", "0", "true", false, 0, true},
      {"true", "200000001", "false", true, 200000000, false},
      {"true", "99999999999999999999999999", "false", true, 200000000, false},
      {"true", "12ab", "false", false, 0, false},
      {"TRUE", "1000", "true", false, 0, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.create) + " " + c.maxSize + " " + c.daily);
    SetDebugSetting("CreateLogFilesThatDoNotExist", c.create);
    SetDebugSetting("MaxLogSize", c.maxSize);
    SetDebugSetting("RolloverLogsDaily", c.daily);
    const dbg::internal::RollingSettings settings = dbg::internal::ReadRollingSettings();
    EXPECT_EQ(settings.bySize, c.bySize);
    EXPECT_EQ(settings.bySize ? settings.maxSize : 0u, c.max);
    EXPECT_EQ(settings.daily, c.rollDaily);
  }
}

// Lines of ten bytes through the installed chain into the log. `file[i]` is
// the log that line i must land in; "" after a day's change of the clock.
TEST_F(TraceClocks, RollsBySizeAfterTheLimitIsPassedAndByDay) {
  const struct {
    const char* maxSize;
    bool daily;
    std::vector<int> dayOfLine;  // added to the first day, per line
    std::vector<const char*> file;
  } kCases[] = {
      // 10, 20 (at the limit is not past it), 30; the next line rolls.
      {"20",
       false,
       {0, 0, 0, 0, 0, 0, 0},
       {"Diag Log.txt", "Diag Log.txt", "Diag Log.txt", "Diag Log.0.txt", "Diag Log.0.txt",
        "Diag Log.0.txt", "Diag Log.0.1.txt"}},
      // A new day reopens the default log and restarts the count; a clock
      // that goes back rolls nothing.
      {"20",
       true,
       {0, 0, 0, 0, 1, 1, 1, 1, 0, 2},
       {"Diag Log.txt", "Diag Log.txt", "Diag Log.txt", "Diag Log.0.txt", "Diag Log.txt",
        "Diag Log.txt", "Diag Log.txt", "Diag Log.0.txt", "Diag Log.0.txt", "Diag Log.txt"}},
      {"0", true, {0, 1, 1, 3}, {"Diag Log.txt", "Diag Log.txt", "Diag Log.txt", "Diag Log.txt"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.maxSize) + (c.daily ? " daily" : ""));
    std::filesystem::remove_all(PrefDir());
    InFreshProcess([&] {
      const pt::ptime first({2026, 3, 4}, pt::time_duration(23, 59, 59));
      fakeNow = first;
      SetIdentity();
      SetDebugSetting("CreateLogFilesThatDoNotExist", "true");
      SetDebugSetting("MaxLogSize", c.maxSize);
      SetDebugSetting("RolloverLogsDaily", c.daily ? "true" : "false");
      SetDebugSetting("LogTimeInTicks", "false");
      {
        dbg::TraceHandlerInstaller installer;
        for (std::size_t i = 0; i < c.file.size(); ++i) {
          fakeNow = first + boost::gregorian::days(c.dayOfLine[i]);
          dbg::Trace(TenBytes(i).c_str());
        }
      }
      tvxcore::console::ConsoleLogFile::Terminate();
      std::set<std::string> expectedFiles;
      for (std::size_t i = 0; i < c.file.size(); ++i) {
        const std::string line = TenBytes(i);
        EXPECT_NE(ReadLog(c.file[i]).find(line), std::string::npos)
            << line << " in " << c.file[i] << ": " << ReadLog(c.file[i]);
        expectedFiles.insert(c.file[i]);
      }
      std::set<std::string> files;
      for (const auto& entry : std::filesystem::directory_iterator(Logs()))
        files.insert(entry.path().filename().string());
      EXPECT_EQ(files, expectedFiles);
    });
  }
}

TEST_F(TraceClocks, SizeRollWithTheCurrentLogGoneKeepsTheOldStream) {
  InFreshProcess([&] {
    fakeNow = pt::ptime({2026, 3, 4});
    SetIdentity();
    SetDebugSetting("CreateLogFilesThatDoNotExist", "true");
    SetDebugSetting("MaxLogSize", "5");
    dbg::TraceHandlerInstaller installer;
    dbg::Trace("line one\n");
    std::filesystem::remove(Logs() / "Diag Log.txt");
    dbg::Trace("line two\n");  // the roll finds no file to name the next after
    dbg::Trace("line 333\n");
    tvxcore::UTF16String current;
    ASSERT_TRUE(tvxcore::console::ConsoleLogFile::GetInstance()->GetCurrentLogFilePath(current));
    EXPECT_EQ(tvxtest::N(current), (Logs() / "Diag Log.txt").string());
    EXPECT_TRUE(std::filesystem::is_empty(Logs()));
  });
}

}  // namespace
