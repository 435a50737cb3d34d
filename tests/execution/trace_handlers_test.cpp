// The trace handler chain as a host builds it: the debug database's switches
// decide which handlers stand in front of the one that served before, in
// which order, and what the default handler writes to the console log.
// GCC 12 at -O1 with the sanitizers reports std::function's move inside
// <regex> as maybe uninitialised, a false positive.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "tvxcore/debug/TraceHandlers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "diagnostics/DiagnosticsFixture.h"
#include "execution/ExecutorTestSupport.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace {

namespace dbg = tvxcore::debug;
using tvxtest::SetDebugSetting;

const char kWarning[] =
    "Warning: Rolling the log file without using unique timestamped log file names. This may "
    "result in overwritten log files!\n";

using TraceHandlers = tvxtest::DiagnosticsTest;

TEST_F(TraceHandlers, SwitchesBuildTheChainInFrontOfTheHandlerBefore) {
  // Settings as "key=value" words; Create.. is CreateLogFilesThatDoNotExist.
  // A null front: the handler before stays in front.
  const std::type_info* const kRolling = &typeid(dbg::RollingTraceHandler);
  const std::type_info* const kTimestamp = &typeid(dbg::TimestampTraceHandler);
  const std::type_info* const kAsync = &typeid(dbg::AsyncTraceHandler);
  const struct {
    const char* settings;
    const std::type_info* front;  // the master handler while the installer lives
    bool stamped;                 // the line reaches the old handler with a timestamp
    bool warned;                  // the rolling handler's warning came first
    bool timestampNames;          // the log's name has a timestamp
  } kCases[] = {
      {"", nullptr, false, false, false},
      {"MaxLogSize=1000 RolloverLogsDaily=true", nullptr, false, false, false},
      {"Create=true MaxLogSize=1000", kRolling, false, true, false},
      {"Create=true RolloverLogsDaily=true", kRolling, false, true, false},
      {"Create=true MaxLogSize=1000 AddTimestampToLogFileNames=true", kRolling, false, false, true},
      {"AddTimestampToLogFileNames=true", nullptr, false, false, true},
      {"AddUTCTimestampToTraces=true", kTimestamp, true, false, false},
      {"AddUTCTimestampToTraces=true Create=true MaxLogSize=5", kTimestamp, true, true, false},
      {"TraceAsync=true", kAsync, false, false, false},
      {"TraceAsync=1 AddUTCTimestampToTraces=1 Create=1 RolloverLogsDaily=1", kAsync, true, true,
       false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.settings);
    std::filesystem::remove_all(PrefDir());
    InFreshProcess([&] {
      SetIdentity();
      std::istringstream words(c.settings);
      for (std::string word; words >> word;) {
        std::string key = word.substr(0, word.find('='));
        if (key == "Create") key = "CreateLogFilesThatDoNotExist";
        SetDebugSetting(key, word.substr(word.find('=') + 1));
      }
      tvxtest::TraceRecorder before;
      dbg::InstallMasterTraceHandler(&before);
      {
        dbg::TraceHandlerInstaller installer;
        dbg::TraceHandler* const master = dbg::GetMasterTraceHandler();
        if (c.front == nullptr)
          EXPECT_EQ(master, &before);
        else
          EXPECT_TRUE(typeid(*master) == *c.front) << typeid(*master).name();
        dbg::Trace("a line\n");
        dbg::Trace("another\n");
      }
      if (c.front == nullptr)
        EXPECT_EQ(dbg::GetMasterTraceHandler(), &before);
      else
        EXPECT_NE(dynamic_cast<dbg::DefaultTraceHandler*>(dbg::GetMasterTraceHandler()), nullptr);
      std::vector<std::string> expected;
      if (c.warned)
        expected.push_back("<" + std::to_string(tvxcore::threads::GetCurrentThreadID()) +
                           "> <RollingTraceHandler> <0> " + kWarning);
      expected.push_back("a line\n");
      expected.push_back("another\n");
      ASSERT_EQ(before.lines.size(), expected.size());
      const std::regex stamp(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6} )");
      for (std::size_t i = 0; i < expected.size(); ++i) {
        std::string line = before.lines[i];
        std::smatch prefix;
        const bool stamped = std::regex_search(line, prefix, stamp) && prefix.position(0) == 0;
        EXPECT_EQ(stamped, c.stamped && i >= (c.warned ? 1u : 0u)) << line;
        if (stamped) line.erase(0, prefix.length(0));
        EXPECT_EQ(line, expected[i]);
      }
      tvxcore::UTF16String path;
      ASSERT_TRUE(tvxcore::console::ConsoleLogFile::GetInstance()->GetLogFilePath(path, false));
      const auto name = tvxcore::utility::UTF16to8(path);
      EXPECT_EQ(std::regex_search(std::string(name.begin(), name.end()),
                                  std::regex(R"(/Diag \d{8}-\d{6}_\d{6}\.txt$)")),
                c.timestampNames);
    });
  }
}

TEST_F(TraceHandlers, DefaultHandlerWritesToTheConsoleLogOnceTheChainIsBuilt) {
  InFreshProcess([&] {
    SetIdentity();
    const std::filesystem::path logs = PrefDir() / "logs";
    std::filesystem::create_directories(logs);
    std::ofstream(logs / "Diag Log.txt");  // the log exists: it is written
    dbg::Trace("before the chain\n");
    {
      dbg::TraceHandlerInstaller installer;
      EXPECT_NE(dynamic_cast<dbg::DefaultTraceHandler*>(dbg::GetMasterTraceHandler()), nullptr);
      dbg::Trace("through the chain\n");
    }
    dbg::Trace("after the chain\n");
    tvxcore::console::ConsoleLogFile::Terminate();
    std::ifstream in(logs / "Diag Log.txt", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_TRUE(std::regex_search(text, std::regex("Ticks = \\d+      through the chain\n"
                                                   "Ticks = \\d+      after the chain\n")))
        << text;
  });
}

}  // namespace
