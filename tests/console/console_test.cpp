// Console commands and the console log, through the public interface. Every
// scenario runs in a fresh process with a preferences folder of its own, since
// the client name can't be unset and the trace settings are read once.
// GCC 12 at -O1 with the sanitizers reports std::function's move inside
// <regex> as maybe uninitialised, a false positive.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "config/ErrorTestSupport.h"
#include "diagnostics/DiagnosticsFixture.h"
#include "tvxcore/console/Console.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/utility/TextStreams.h"

namespace {

using tvxcore::UTF16String;
using tvxcore::console::ConsoleLogFile;
using tvxcore::console::ExecuteCommand;

using tvxtest::S;
using tvxtest::U;
using tvxtest::U8;

// What one command line prints, and whether a command ran.
std::string RunLine(const UTF16String& line, bool* ran = nullptr) {
  tvxcore::utility::UTF16StringBuf buffer;
  tvxcore::utility::UTF16OutputStream out(&buffer);
  const bool executed = ExecuteCommand(line, out);
  if (ran != nullptr) *ran = executed;
  return S(buffer.str());
}

class Console : public tvxtest::DiagnosticsTest {
 protected:
  std::filesystem::path Logs() const { return PrefDir() / "logs"; }
  std::filesystem::path Log() const { return Logs() / "Diag Log.txt"; }
  std::filesystem::path LastLog() const { return Logs() / "Diag Log-last.txt"; }
  void PlaceEmptyLog() const { WritePref("logs/Diag Log.txt", ""); }
};

// Whether a log is written, from an empty file or a setting, and what becomes
// of the file a previous run left: it is kept once as the last log, or, with
// timestamped names, continued. `log` is matched over the whole file.
TEST_F(Console, LogExistsOnlyWhenItsFileOrTheSettingIsThereAndKeepsThePreviousRun) {
  const std::string kRun =
      "Log file created: [^\r\n]+\r\n-+\r\nTicks = \\d+      a line\n"
      "Log file closed: [^\r\n]+\r\n-+\r\n";
  const struct {
    const char* previous;  // the log file before the run, or null
    const char* last;      // the "-last" file before the run, or null
    const char* setting;   // a debug setting made "true" or "false" first, or null
    const char* value;
    const char* log;  // null: no log is written
    const char* lastAfter;
  } kCases[] = {
      {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
      {nullptr, nullptr, "CreateLogFilesThatDoNotExist", "true", "", nullptr},
      {nullptr, nullptr, "CreateLogFilesThatDoNotExist", "false", nullptr, nullptr},
      {"previous run\n", nullptr, nullptr, nullptr, "", "previous run\n"},
      {"previous run\n", "older run\n", nullptr, nullptr, "", "previous run\n"},
      {"previous run\n", nullptr, "AddTimestampToLogFileNames", "true", "previous run\n", nullptr},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.previous ? c.previous : "-") + (c.setting ? c.setting : ""));
    std::filesystem::remove_all(PrefDir());
    std::filesystem::create_directories(Logs());
    if (c.previous) WritePref("logs/Diag Log.txt", c.previous);
    if (c.last) WritePref("logs/Diag Log-last.txt", c.last);
    InFreshProcess([&] {
      SetIdentity();
      if (c.setting) tvxcore::debug::DebugDatabase::Instance().SetEntry(U8(c.setting), U8(c.value));
      ConsoleLogFile::GetInstance()->WriteToLog(U8("a line\n"), true);
      EXPECT_EQ(ConsoleLogFile::GetInstance()->Exists(), c.log != nullptr);
      UTF16String current;
      EXPECT_EQ(ConsoleLogFile::GetInstance()->GetCurrentLogFilePath(current), c.log != nullptr);
      if (c.log) {
        EXPECT_EQ(S(current), Log().string());
      }
      ConsoleLogFile::Terminate();
      EXPECT_EQ(std::filesystem::exists(Log()), c.log != nullptr);
      if (c.log) {
        const std::string text = ReadPref("logs/Diag Log.txt");
        EXPECT_TRUE(std::regex_match(text, std::regex(c.log + kRun))) << text;
      }
      EXPECT_EQ(std::filesystem::exists(LastLog()), c.lastAfter != nullptr);
      if (c.lastAfter) {
        EXPECT_EQ(ReadPref("logs/Diag Log-last.txt"), c.lastAfter);
      }
    });
  }
}

TEST_F(Console, EarlyTextFollowsTheHeaderAndPrefixesFollowTheSettings) {
  const struct {
    const char* setting;  // set in the debug database first (without: ticks, as in every log)
    const char* value;
    const char* prefix;  // of the line written after the client name
  } kCases[] = {
      {"LogTimeInTicks", "false", R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d )"},
      {"AddUTCTimestampToTraces", "true", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.prefix);
    std::filesystem::remove_all(PrefDir());
    InFreshProcess([&] {
      ConsoleLogFile::GetInstance()->WriteToLog(U8("early one\n"), true);
      ConsoleLogFile::GetInstance()->WriteToLog(U8(""), true);
      ConsoleLogFile::GetInstance()->WriteToLog(U8("early two\n"), false);
      EXPECT_FALSE(ConsoleLogFile::GetInstance()->Exists());
      ConsoleLogFile::Terminate();  // settings are read when the log is made
      SetIdentity();
      PlaceEmptyLog();
      tvxcore::debug::DebugDatabase::Instance().SetEntry(U8(c.setting), U8(c.value));
      ConsoleLogFile::GetInstance()->WriteToLog(U8("early three\n"), true);
      ConsoleLogFile::GetInstance()->WriteToLog(U8("late\n"), true);
      ConsoleLogFile::Terminate();
      // The early text of the first object went with it, so the header
      // comes first.
      const std::string text = ReadPref("logs/Diag Log.txt");
      EXPECT_TRUE(
          std::regex_search(text, std::regex(std::string("^Log file created: [^\r\n]+\r\n-+\r\n") +
                                             c.prefix + "early three\n" + c.prefix + "late\n")))
          << text;
    });
  }
  // Text from before the client name, kept by one object, after the header.
  std::filesystem::remove_all(PrefDir());
  InFreshProcess([&] {
    ConsoleLogFile::GetInstance()->WriteToLog(U8("before the name\n"), true);
    SetIdentity();
    PlaceEmptyLog();
    ConsoleLogFile::GetInstance()->WriteToLog(U8("after\n"), false);
    ConsoleLogFile::Terminate();
    const std::string text = ReadPref("logs/Diag Log.txt");
    EXPECT_TRUE(std::regex_search(
        text, std::regex("^Log file created: [^\r\n]+\r\n-+\r\nTicks = \\d+      before the "
                         "name\nafter\nLog file closed: ")))
        << text;
  });
}

TEST_F(Console, LogNamesAndSwitchingFiles) {
  InFreshProcess([&] {
    UTF16String path;
    EXPECT_FALSE(ConsoleLogFile::GetInstance()->GetLogFilePath(path, false));  // no name yet
    SetIdentity();
    ASSERT_TRUE(ConsoleLogFile::GetInstance()->GetLogFilePath(path, true));
    EXPECT_EQ(S(path), LastLog().string());
    ConsoleLogFile::SetDefaultLogFileName(u"Other");
    ASSERT_TRUE(ConsoleLogFile::GetInstance()->GetLogFilePath(path, false));
    EXPECT_EQ(S(path), (Logs() / "Other Log.txt").string());
    ConsoleLogFile::SetDefaultLogFileNameFn(&ConsoleLogFile::GetTimestampedLogFileName);
    ASSERT_TRUE(ConsoleLogFile::GetInstance()->GetLogFilePath(path, true));
    EXPECT_TRUE(std::regex_match(S(path), std::regex(".*/logs/Other \\d{8}-\\d{6}_\\d{6}\\.txt")))
        << S(path);
    ConsoleLogFile::SetDefaultLogFileNameFn({});
    ConsoleLogFile::SetDefaultLogFileName(u"");

    // OpenLogFile switches at once: footer on the old file, header on the new.
    PlaceEmptyLog();
    ConsoleLogFile* log = ConsoleLogFile::GetInstance();
    log->WriteToLog(U8("one\n"), false);
    EXPECT_TRUE(log->OpenLogFile(U8("Diag Log.0.txt")));
    log->WriteToLog(U8("two\n"), false);
    EXPECT_FALSE(log->OpenLogFile(U8("/nonexistent/dir/x.txt")));
    log->WriteToLog(U8("three\n"), false);
    ConsoleLogFile::Terminate();
    const std::string first = ReadPref("logs/Diag Log.txt"),
                      second = ReadPref("logs/Diag Log.0.txt");
    EXPECT_TRUE(std::regex_search(first, std::regex("one\nLog file closed: [^\r]+\r\n-+\r\n$")))
        << first;
    EXPECT_TRUE(std::regex_search(second, std::regex("^Log file created: [^\r]+\r\n-+\r\n"
                                                     "two\nthree\nLog file closed: ")))
        << second;
  });
}

TEST_F(Console, LinesFromManyThreadsNeverInterleave) {
  InFreshProcess([&] {
    SetIdentity();
    tvxcore::console::Initialize();
    PlaceEmptyLog();
    constexpr int kThreads = 4, kLines = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([t] {
        const std::string line = "thread " + std::to_string(t) + " " + std::string(200, 'a' + t);
        for (int i = 0; i < kLines; ++i) {
          ConsoleLogFile::GetInstance()->WriteToLog(U8(line + "\n"), true);
          if (i % 50 == 0) RunLine(u"debug.set k" + U(std::to_string(t)) + u" = 1");
        }
      });
    for (std::thread& thread : threads) thread.join();
    ConsoleLogFile::Terminate();
    std::ifstream in(Log(), std::ios::binary);
    std::string line;
    int whole = 0;
    while (std::getline(in, line))
      whole += std::regex_match(line, std::regex("Ticks = \\d+      thread (\\d) (a+|b+|c+|d+)"));
    EXPECT_EQ(whole, kThreads * kLines);
    tvxcore::console::Terminate();
  });
}

// Every command's text. {root} is the test's folder, {pref} the preferences
// folder. A row is matched as a regular expression over the whole output.
TEST_F(Console, EveryCommandPrintsItsText) {
  InFreshProcess([&] {
    SetIdentity();
    tvxcore::console::Initialize();
    const std::string root = root_.string(), pref = PrefDir().string();
    std::filesystem::create_directories(root_ / "docs" / "sub");
    std::ofstream(root_ / "docs" / "Notes.TXT") << "x";
    auto expand = [&](const std::string& text) {
      return std::regex_replace(std::regex_replace(text, std::regex("\\{root\\}"), root),
                                std::regex("\\{pref\\}"), pref);
    };
    const std::string kDate = R"(\d{4}-[A-Z][a-z]{2}-\d\d \d\d:\d\d:\d\d(\.\d+)?)";
    const struct {
      std::string line;
      bool ran;
      std::string output;  // a regular expression
    } kRows[] = {
        {"trace.set Foo 9", true, "trace category Foo set to volume 9\n"},
        {"\ttrace.get \t Foo  ", true, "trace volume for category Foo is 9\n"},
        {"trace.set Foo", true, "trace volume for category Foo is 9\n"},
        {"trace.set Foo loud", true, "trace volume for category Foo is 9\n"},
        {"trace.set Foo 3 4 5", true, "trace category Foo set to volume 3\n"},
        {"trace.set Bar -2", true, "trace category Bar set to volume -2\n"},
        {"trace.get New", true, "trace volume for category New is 5\n"},
        {"trace.get", true, ""},
        {"trace.set", true, ""},
        {"trace.getcategories", true, "Trace Categories:\n(.*\n)*Bar\nFoo\n(.*\n)*New\n"},
        {"trace.set.master 7", true, "Master trace volume set to 7\n"},
        {"trace.get.master", true, "Master trace volume is 7\n"},
        {"trace.set.master", true, "Master trace volume is 7\n"},
        {"debug.set a = 1", true, "a = 1\n"},
        {"debug.set  b.c=  two words ", true, "b\\.c = two words\n"},
        {"debug.set a", true, "a = 1\n"},
        {"debug.set", true, ""},
        {"debug.get a", true, "a = 1\n"},
        {"debug.get nothing", true, "nothing = \n"},
        {"debug.list", true, "Listing contents of debug database!\na = 1\nb\\.c = two words\n"},
        {"debug.clear", true, "Clearing contents of debug database!\n"},
        {"debug.list", true, "Listing contents of debug database!\n"},
        {"filesupport.file {root}/docs/Notes.TXT", true,
         "File\\.FullPath: {root}/docs/Notes\\.TXT\n    found\\.\n   File\\.Created: " + kDate +
             "\n   File\\.Modified: " + kDate +
             "\n File\\.GetName: Notes\\.TXT\n File\\.GetTitle: Notes\n File\\.GetExtension: "
             "\\.TXT\n File\\.GetExtension toLower: \\.txt\n"},
        {"filesupport.file {root}/none.txt", true,
         "File\\.FullPath: {root}/none\\.txt\n    not found\\.\n"},
        {"filesupport.file", true, "File\\.FullPath: \n    not found\\.\n"},
        {"filesupport.dir {root}/docs/sub", true,
         "Directory Path: {root}/docs/sub\n    found\\.\n Dir Name: sub\n Parent Path: "
         "{root}/docs\n    found\\.\n"},
        {"filesupport.dir {root}/gone/sub", true,
         "Directory Path: {root}/gone/sub\n    not found\\.\n Dir Name: sub\n Parent Path: "
         "{root}/gone\n    not found\\.\n"},
        {"filesupport.listvols", true, "List Volumes: \n(/.*\n)+"},
        {"filesupport.listdirs", true,
         "commondirs Functions: \nMain Executable File = \t/.+\nExecutable Dir = \t\t/.*\n"
         "Resources Dir = \t\t.*\nPlugins Dir = \t\t.*\nRequired Plugins Dir = \t.*\n"
         "User Plugins Dir = \t\t.*\nAll User Plugins Dir = \t.*\nUser Documents Dir = \t.*\n"
         "All Users Documents Dir = \t.*\nUser Desktop Dir = \t\t.*\nCurrent User Dir = \t\t.*\n"
         "Dir Methods: \nApp Dir = \t\t.*\nUser Docs Dir = \t\t.*\nTemp Dir = \t\t.*\n"
         "Pref Dir = \t\t{pref}\nGlobal Pref Dir = \t\t{root}/config\nPackage Dir = \t\t.*\n"
         "Common Files Dir = \t\t.*\n"},
        {"trace.createdefaultconsolelogfile", true,
         "Created log file at: {pref}/logs/Diag Log\\.txt\n"},
        // Lines that run nothing and print nothing.
        {"trace.get\tFoo", false, ""},
        {" trace.get Foo", false, ""},  // only a blank ends the name, so it is empty
        {"TRACE.GET Foo", false, ""},
    };
    for (const auto& row : kRows) {
      bool ran = !row.ran;
      const std::string output = RunLine(U(expand(row.line)), &ran);
      EXPECT_EQ(ran, row.ran) << row.line;
      EXPECT_TRUE(std::regex_match(output, std::regex(expand(row.output)))) << row.line << "\n"
                                                                            << output;
    }
    EXPECT_TRUE(std::filesystem::exists(PrefDir() / "logs" / "Diag Log.txt"));
    ConsoleLogFile::Terminate();
  });
}

TEST_F(Console, ListingRegistryAndCommandsOfTheHost) {
  struct Echo : tvxcore::console::Command {
    void Execute(UTF16String const& inArguments,
                 tvxcore::console::UTF16OutputStream& out) override {
      out << u"[" << inArguments << u"]";
    }
  };
  tvxcore::console::Initialize();
  tvxcore::console::Initialize();
  tvxcore::console::CommandRegistry::RegisterCommand(u"echo", u"echo <text> - repeats it.",
                                                     new Echo);
  EXPECT_EQ(RunLine(u"echo   a \t b  "), "[a \t b]");
  tvxcore::console::CommandRegistry::RegisterCommand(u"", u"empty", new Echo);  // refused, freed
  tvxcore::utility::UTF16StringBuf buffer;
  tvxcore::utility::UTF16OutputStream out(&buffer);
  tvxcore::console::ListCommands(out);
  const std::string listing = S(buffer.str());
  // In the order of the names.
  EXPECT_EQ(listing.rfind("Currently installed commands.\n"
                          "debug.clear - clears the contents of the debug database.\n",
                          0),
            0u);
  EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 1 + 14 + 1) << listing;
  for (const char* help :
       {"echo <text> - repeats it.\n", "filesupport.listdirs - list the special directoriees.\n",
        "trace.getcategories - Lists all catagories that have been traced.\n",
        "trace.set.master <volume> - Sets the master trace volume. This is the highest volume "
        "that will be traced.\n"})
    EXPECT_NE(listing.find(help), std::string::npos) << help;

  tvxcore::console::Terminate();
  std::list<UTF16String> names;
  tvxcore::console::CommandRegistry::GetCommandNames(names);
  ASSERT_EQ(names.size(), 1u);  // the host's own stays
  std::unique_ptr<tvxcore::console::Command> echo(
      tvxcore::console::CommandRegistry::UnregisterCommand(u"echo"));
  EXPECT_NE(echo, nullptr);
  EXPECT_EQ(tvxcore::console::CommandRegistry::UnregisterCommand(u"echo"), nullptr);
  EXPECT_EQ(RunLine(u"echo x"), "");
}

TEST(ConsoleTokenizer, DividesAsDocumented) {
  const struct {
    std::u16string source, delimiters;
    bool skip;
    std::vector<std::u16string> tokens;
  } kCases[] = {
      {u"a b", u" ", false, {u"a", u"b"}},
      {u"a  b", u" ", false, {u"a", u"", u"b"}},
      {u" \ta\t b \t", u" \t", true, {u"a", u"b"}},
      {u"a,", u",", false, {u"a", u""}},
      {u",a", u",", false, {u"", u"a"}},
      {u"", u",", false, {u""}},
      {u"", u",", true, {}},
      {u"abc", u"", false, {u"abc"}},
      {u"x\xD800y\xDC80z", u"\xD800", false, {u"x", u"y\xDC80z"}},
  };
  for (const auto& c : kCases) {
    tvxcore::console::Tokenizer tokens(UTF16String(c.source.begin(), c.source.end()),
                                       UTF16String(c.delimiters.begin(), c.delimiters.end()),
                                       c.skip);
    std::vector<std::u16string> seen;
    while (!tokens.AtEnd() && seen.size() < 10) {
      const UTF16String token = tokens.NextToken();
      seen.emplace_back(token.begin(), token.end());
    }
    EXPECT_EQ(seen, c.tokens) << S(UTF16String(c.source.begin(), c.source.end()));
    EXPECT_EQ(tokens.Position(), tvxcore::console::Tokenizer::kNone);
    EXPECT_TRUE(tokens.NextToken().empty());
  }
}

// Lines of any content run or don't, and print what they can; none crashes.
TEST_F(Console, BadLinesNeverCrash) {
  InFreshProcess([&] {
    SetIdentity();
    tvxcore::console::Initialize();
    const UTF16String huge(1 << 20, u'x');
    const UTF16String lone = u"\xD800\xDC80\xDFFF";
    const UTF16String lines[] = {
        u"trace.set " + huge + u" 3",
        u"debug.set " + huge + u" = " + huge,
        u"trace.set " + lone + u" 4",
        u"debug.set " + lone + u" = " + lone,
        u"filesupport.file " + lone,
        u"filesupport.dir " + lone,
        u"filesupport.file " + huge,
        u"filesupport.dir " + huge,
        u"trace.set.master 99999999999999999999999",
        u"trace.set Foo -",
        u"filesupport.dir /",
        UTF16String(1, u'\0') + u"trace.get",
        u"debug.get " + UTF16String(1, u'\0'),
    };
    for (const UTF16String& line : lines) RunLine(line);
    EXPECT_EQ(RunLine(u"trace.get " + lone), "trace volume for category " + S(lone) + " is 4\n");
    EXPECT_EQ(RunLine(u"trace.get " + huge).size(), (1u << 20) + 32);
    EXPECT_EQ(
        RunLine(u"trace.get.master"),
        "Master trace volume is " + std::to_string(tvxcore::debug::GetMasterTraceVolume()) + "\n");
    tvxcore::console::Terminate();
    ConsoleLogFile::Terminate();
  });
}

}  // namespace
