// Assertion text, standard-output mode, the contract dialog and the address
// checks, through the public interface; and the dialogs as a person meets
// them: typed answers on a terminal of the child's own (a pty), and a window
// program (zenity, kdialog) played by a script that records its arguments
// and gives scripted answers.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/ErrorTestSupport.h"
#include "debug/ChildProcess.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/debug/StackTrace.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/MachineExceptions.h"

namespace {

using namespace tvxcore::debug;
using tvxtest::ChildResult;
using tvxtest::Count;
using tvxtest::RunInChild;

std::string ExpectedText(const std::string& message, const std::string& expression,
                         const std::string& file, long line, const std::string& function) {
  const std::string tid = std::to_string(tvxcore::threads::GetCurrentThreadID());
  return (message.empty() ? "" : message + "\r\n\r\n") + "Expression: " + expression +
         "\r\nProcess: " + tvxtest::ExecutableName() +
         "\r\nProcess ID: " + std::to_string(getpid()) + "\r\nThread ID: " + tid +
         "\r\nThread Name: " + tvxtest::ThreadName() + "\r\nFile: " + file +
         "\r\nLine: " + std::to_string(line) + "\r\nFunction: " + function + "\r\n";
}

// What `f` writes to standard output and to standard error.
std::pair<std::string, std::string> Captured(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  f();
  std::string out = testing::internal::GetCapturedStdout();
  return {out, testing::internal::GetCapturedStderr()};
}

TEST(Assert, TextGoesToStandardOutputAndToTheTraceInStandardOutputMode) {
  ScAssertToStdOut toStdOut;
  const std::string big(1 << 20, 'x'), slashes(300000, '/');  // shown whole
  const struct {
    const char* message;
    const char* expression;
    const char* file;
    long line;
    const char* function;
  } table[] = {
      {"count went negative", "count >= 0", "src/a.cpp", 42, "Count"},
      {"", "p", "b.cpp", -7, "F"},
      {nullptr, nullptr, nullptr, 0, nullptr},
      {big.c_str(), big.c_str(), slashes.c_str(), 1, big.c_str()},
  };
  const auto text = [](const char* s) { return std::string(s ? s : ""); };
  for (const auto& row : table) {
    bool ignore = false, brk = true;
    const auto [out, err] = Captured([&] {
      brk = BreakAfterAssertDialog(ignore, row.expression, row.message, row.file, row.line,
                                   row.function);
    });
    const std::string expected = ExpectedText(text(row.message), text(row.expression),
                                              text(row.file), row.line, text(row.function));
    EXPECT_FALSE(brk);
    EXPECT_FALSE(ignore) << "standard output answers \"Ignore Once\"";
    EXPECT_EQ(out, expected);
    EXPECT_EQ(err, "<" + std::to_string(tvxcore::threads::GetCurrentThreadID()) +
                       "> <Assert> <0> " + expected);
  }
  // The unsigned form carries the same text, and DisplayAssert adds a line
  // end only where the text has none.
  bool ignore = false;
  EXPECT_EQ(Captured([&] {
              BreakAfterAssertDialog(ignore, "e", reinterpret_cast<const unsigned char*>("m"), "f",
                                     1, "g");
            }).first,
            ExpectedText("m", "e", "f", 1, "g"));
  EXPECT_EQ(Captured([] {
              EXPECT_EQ(DisplayAssert("title", "no line end"), kAssertResult_IgnoreOnce);
              EXPECT_EQ(DisplayAssert(nullptr, static_cast<const char*>(nullptr)),
                        kAssertResult_IgnoreOnce);
            }).first,
            "no line end\n\n");
  // An ignored site shows nothing.
  ignore = true;
  EXPECT_EQ(Captured([&] { EXPECT_FALSE(BreakAfterAssertDialog(ignore, "e", "m", "f", 1, "g")); }),
            std::make_pair(std::string(), std::string()));
  EXPECT_TRUE(ignore);
}

// The mode is settled by its first reader, so each row runs in a fresh
// process: the statement re-runs this test in a new instance of the binary.
TEST(AssertDeathTest, StandardOutputModeIsDecidedOnceFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  enum class Preset { kNone, kOff, kScopeOn, kScopeOff };
  const struct {
    const char* environment;  // null: unset
    Preset preset;
    int expectedExit;  // (first answer + 1) + 10 * (second answer + 1)
  } table[] = {
      // Without a dialog to show (no display, no terminal) the answer is -1.
      {nullptr, Preset::kNone, 0},
      {"1", Preset::kNone, 44},
      {"", Preset::kNone, 44},  // set to empty still counts
      {"0", Preset::kNone, 44},
      {"1", Preset::kOff, 0},          // the environment has no say after the switch
      {nullptr, Preset::kScopeOn, 4},  // on inside the scope, back to off after it
      {"1", Preset::kScopeOff, 40},
  };
  for (const auto& row : table) {
    if (row.environment) {
      setenv("TVX_USE_STDOUT", row.environment, 1);
    } else {
      unsetenv("TVX_USE_STDOUT");
    }
    EXPECT_EXIT(
        {
          setsid();
          unsetenv("DISPLAY");
          unsetenv("WAYLAND_DISPLAY");
          if (row.preset == Preset::kOff) SetAssertWriteToStdOut(false);
          std::optional<ScAssertToStdOut> scope;
          if (row.preset == Preset::kScopeOn || row.preset == Preset::kScopeOff)
            scope.emplace(row.preset == Preset::kScopeOn);
          const long first = DisplayAssert("t", "first");
          scope.reset();
          unsetenv("TVX_USE_STDOUT");
          const long second = DisplayAssert("t", "second");
          std::fflush(stdout);
          _exit(static_cast<int>((first + 1) + 10 * (second + 1)));
        },
        testing::ExitedWithCode(row.expectedExit), "")
        << "TVX_USE_STDOUT=" << (row.environment ? row.environment : "(unset)");
  }
  unsetenv("TVX_USE_STDOUT");
}

TEST(Assert, ContractDialogShowsFileAndLineAndNeverAsksForABreak) {
  const struct {
    bool enabled;
    const char* file;
    long line;
    const char* expected;
  } table[] = {
      {true, "..\\..\\threads\\src\\SharedThreads", 383,
       "[..\\..\\threads\\src\\SharedThreads-383]\r\n"},
      {true, nullptr, -1, "[--1]\r\n"},
      {false, "a.cpp", 1, ""},
  };
  ScAssertToStdOut toStdOut;
  for (const auto& row : table) {
    if (!row.enabled) DisableContractDialog();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(BreakAfterContractDialog("inBegin < inEnd", row.file, row.line));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.expected);
    EnableContractDialog();
  }
}

TEST(Assert, AddressChecksLookAtPointerValuesAndReportAnEmptyRange) {
  tvxtest::RecordingErrorManager manager;
  tvxcore::config::ErrorManager::Set(&manager);
  ScAssertToStdOut toStdOut;
  char buffer[16];
  char* const p = buffer;
  const void* const top = reinterpret_cast<const void*>(~std::uintptr_t{0});
  // Ranges by their end, and (`sized`) by begin and size.
  const struct {
    bool sized;
    const void *begin, *end;
    unsigned long long size;
    bool allowNull, valid, violation;
  } rows[] = {
      {false, p, p + 16, 0, false, true, false},
      {false, p, p, 0, false, true, true},
      {false, p + 1, p, 0, true, true, true},
      {false, nullptr, nullptr, 0, true, true, false},  // allowed null: the end is not looked at
      {false, nullptr, p, 0, false, false, false},
      {false, nullptr, nullptr, 0, false, false, true},
      {false, top, nullptr, 0, false, true, true},
      {true, p, nullptr, 0, false, true, true},
      {true, p, nullptr, ~0ULL, false, true, true},  // wraps below its begin
  };
  for (const auto& row : rows) {
    const std::size_t before = manager.Reports().size();
    bool valid = !row.valid;
    const std::string shown =
        Captured([&] {
          valid = row.sized ? IsValidAddressRange(row.begin, row.size, row.allowNull)
                            : IsValidAddressRange(row.begin, row.end, row.allowNull);
        }).first;
    SCOPED_TRACE(testing::Message()
                 << row.begin << " " << row.end << " " << row.size << " " << row.allowNull);
    EXPECT_EQ(valid, row.valid);
    EXPECT_EQ(manager.Reports().size() - before, row.violation ? 1u : 0u);
    EXPECT_EQ(shown.empty(), !row.violation) << shown;
  }
  EXPECT_TRUE(IsValidAddress(p, false));
  EXPECT_FALSE(IsValidAddress(nullptr, false));
  EXPECT_TRUE(IsValidAddress(nullptr, true));
  for (const auto& report : manager.Reports()) {
    EXPECT_EQ(report.level, tvxcore::config::kErrorLevel_Fatal);
    EXPECT_EQ(report.key,
              "$$$/tvxcore/utility/Error/Contract/InputContractViolation=An input contract "
              "violation has occurred!");
    EXPECT_EQ(report.module, 105u);
    EXPECT_EQ(report.number, 25);
    EXPECT_TRUE(report.recordable);
    for (const auto& value : report.values)
      EXPECT_EQ(value.GetKind(), tvxcore::config::ReplacementValue::kKind_Empty);
  }
  tvxcore::config::ErrorManager::Set(nullptr);
  EXPECT_THROW(IsValidAddressRange(p, p, false), std::logic_error)
      << "no error manager: the contract report throws";
}

// Three assertions: site A fails twice, then site B once. The exit status
// says what each returned and which ignore flags were set.
enum Bits {
  kFirstBreaks = 1,
  kSiteAIgnored = 2,
  kSecondBreaks = 4,
  kThirdBreaks = 8,
  kSiteBIgnored = 16
};
int ThreeAssertions() {
  SetAssertWriteToStdOut(false);
  bool siteA = false, siteB = false;
  int bits = 0;
  if (BreakAfterAssertDialog(siteA, "x > 0", "the message", "file.cpp", 12, "Func"))
    bits |= kFirstBreaks;
  if (siteA) bits |= kSiteAIgnored;
  if (BreakAfterAssertDialog(siteA, "x > 0", "the message", "file.cpp", 12, "Func"))
    bits |= kSecondBreaks;
  if (BreakAfterAssertDialog(siteB, "y", static_cast<const char*>(nullptr), "other.cpp", 99, "G"))
    bits |= kThirdBreaks;
  if (siteB) bits |= kSiteBIgnored;
  return bits;
}

const char kChoices[] =
    "[d] Debug  [i] Ignore Once (Enter)  [a] Ignore Always  [s] Disable Asserts  [k] Kill Process  "
    "[c] Copy\nChoice: ";

// A folder with a window program played by a script. Each run appends its
// arguments (one a line) to args<N> and answers with line N of "answers":
// "<status>[ <output>]", or "segv" to send a fault signal to the asking
// process. A fake xclip keeps what it is given in "clipboard".
class FakeDesktop {
 public:
  explicit FakeDesktop(const std::string& program) {
    char pattern[] = "/tmp/tvx-dialog-XXXXXX";
    folder_ = mkdtemp(pattern);
    Write(program,
          "#!/bin/sh\n"
          "PATH=/usr/bin:/bin\n"
          "dir=$(dirname \"$0\")\n"
          "n=$(cat \"$dir/count\" 2>/dev/null || echo 0); n=$((n+1)); echo $n > \"$dir/count\"\n"
          "for a in \"$@\"; do printf '%s\\n' \"$a\"; done > \"$dir/args$n\"\n"
          "line=$(sed -n \"${n}p\" \"$dir/answers\")\n"
          "if [ \"$line\" = segv ]; then kill -SEGV $PPID; sleep 5; exit 0; fi\n"
          "status=${line%% *}; rest=${line#* }\n"
          "[ \"$rest\" != \"$line\" ] && printf '%s\\n' \"$rest\"\n"
          "exit $status\n");
    Write("xclip", "#!/bin/sh\nPATH=/usr/bin:/bin\ncat > \"$(dirname \"$0\")/clipboard\"\n");
  }
  ~FakeDesktop() { std::filesystem::remove_all(folder_); }

  void Answers(const std::string& lines) {
    std::ofstream(folder_ + "/answers") << lines;
    std::filesystem::remove(folder_ + "/count");
  }
  std::string File(const std::string& name) const {
    return tvxtest::ReadFile(folder_ + "/" + name);
  }
  // For the child: a display, and a PATH of the fakes only, so that a real
  // window program on the machine is never found.
  void Enter() const {
    setenv("DISPLAY", ":77", 1);
    setenv("PATH", folder_.c_str(), 1);
  }

 private:
  void Write(const std::string& name, const std::string& script) {
    const std::string path = folder_ + "/" + name;
    std::ofstream(path) << script;
    chmod(path.c_str(), 0755);
  }
  std::string folder_;
};

// DisplayAssert in a child, with the fake window programs when `desktop` is
// given; the child exits with the answer + 1 (255 for Kill Process).
ChildResult Display(const FakeDesktop* desktop, const std::string& title, const std::string& text,
                    bool terminal = false, const std::string& typed = "", bool guarded = false) {
  return RunInChild(
      [&] {
        if (desktop) desktop->Enter();
        SetAssertWriteToStdOut(false);
        if (guarded) tvxcore::utility::exceptions::InstallMachineExceptionHandlers();
        return static_cast<int>(DisplayAssert(title.c_str(), text.c_str()) + 1);
      },
      terminal, typed);
}

TEST(AssertDialog, TerminalPromptShowsTheTextAndActsOnEachAnswer) {
  const struct {
    const char* name;
    std::string typed;
    int exitCode;  // Bits, or 255 for Kill Process
    std::size_t prompts;
  } table[] = {
      {"Debug breaks", "d\ni\ni\n", kFirstBreaks, 3},
      {"Enter is Ignore Once", "\n\n\n", 0, 3},
      {"Ignore Always silences the site", "a\ni\n", kSiteAIgnored, 2},
      {"a label counts as its letter", "Ignore Always\ni\n", kSiteAIgnored, 2},
      {"Disable Asserts silences every site", "s\n", kSiteAIgnored, 1},
      {"Kill Process ends the process with 255", "k\n", 255, 1},
      {"an unknown answer asks again; letters in any case", "x\nD\ni\ni\n", kFirstBreaks, 3},
      {"end of input is no answer: no break without a debugger", "\x04\x04\x04", 0, 3},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    const ChildResult result = RunInChild(&ThreeAssertions, true, row.typed);
    ASSERT_FALSE(result.timedOut) << result.terminal;
    EXPECT_EQ(result.ExitCode(), row.exitCode) << result.terminal;
    EXPECT_EQ(Count(result.terminal, "*** Debug Assert failed! ***"), row.prompts)
        << result.terminal;
  }

  // The first prompt in full, with "\r\n" shown as line ends: an unknown
  // answer asks again, and Copy writes the text once more.
  const ChildResult result = RunInChild(&ThreeAssertions, true, "x\nc\ni\ni\ni\n");
  EXPECT_EQ(result.ExitCode(), 0);
  // The child's main thread: its thread id is its process id.
  const std::string::size_type pidAt = result.terminal.find("Process ID: ");
  ASSERT_NE(pidAt, std::string::npos) << result.terminal;
  const std::string pid =
      result.terminal.substr(pidAt + 12, result.terminal.find('\n', pidAt) - pidAt - 12);
  const std::string text =
      "the message\n\nExpression: x > 0\nProcess: " + tvxtest::ExecutableName() +
      "\nProcess ID: " + pid + "\nThread ID: " + pid + "\nThread Name: " + tvxtest::ThreadName() +
      "\nFile: file.cpp\nLine: 12\nFunction: Func\n";
  EXPECT_NE(result.terminal.find("\n*** Debug Assert failed! ***\n\n" + text + "\n" + kChoices +
                                 "x\nPlease answer with one of the letters in brackets.\n" +
                                 kChoices + "c\n\n" + text),
            std::string::npos)
      << result.terminal;
}

// zenity's buttons, or kdialog's menu when zenity is missing; without a
// display (and no terminal) nothing is shown. The window's text is cut to a
// size and made valid UTF-8.
TEST(AssertDialog, WindowOffersTheButtonsAndItsAnswerTakesEffect) {
  FakeDesktop zenity("zenity"), kdialog("kdialog");
  const struct {
    FakeDesktop* desktop;
    const char* answers;
    int exitCode;  // DisplayAssert + 1, or 255 for Kill Process
    bool guarded;  // with the fault handlers installed
  } table[] = {
      {nullptr, "", kAssertResult_NotShown + 1, false},
      {&zenity, "0\n", kAssertResult_IgnoreOnce + 1, false},  // OK is the default button
      {&zenity, "1 Debug\n", kAssertResult_Debug + 1, false},
      {&zenity, "1\n", kAssertResult_NotShown + 1, false},    // closed: no terminal to ask instead
      {&zenity, "255\n", kAssertResult_NotShown + 1, false},  // the window could not open
      {&zenity, "segv\n", kAssertResult_NotShown + 1, true},  // a fault inside the dialog is caught
      {&kdialog, "0 0\n", kAssertResult_Debug + 1, false},
      {&kdialog, "1\n", kAssertResult_NotShown + 1, false},
      {&kdialog, "0 9\n", kAssertResult_NotShown + 1, false},
      {&kdialog, "0 x\n", kAssertResult_NotShown + 1, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.answers);
    if (row.desktop) row.desktop->Answers(row.answers);
    const ChildResult result =
        Display(row.desktop, "Title", "a <b> & c\r\nsecond\r\n", false, "", row.guarded);
    EXPECT_EQ(result.ExitCode(), row.exitCode) << result.output;
  }
  EXPECT_EQ(kdialog.File("args1"),
            "--title\nTitle\n--menu\na <b> & c\nsecond\n0\nDebug\n1\nIgnore Once\n2\n"
            "Ignore Always\n3\nDisable Asserts\n4\nKill Process\n5\nCopy\n--default\n"
            "Ignore Once\n");
  zenity.Answers("1 Copy\n1 Debug\n");
  EXPECT_EQ(Display(&zenity, "Title", "a <b> & c\r\nsecond\r\n").ExitCode(),
            kAssertResult_Debug + 1);
  EXPECT_EQ(zenity.File("clipboard"), "a <b> & c\nsecond\n");
  EXPECT_EQ(zenity.File("args1"),
            "--warning\n--no-markup\n--title=Title\n--text=a <b> & c\nsecond\n"
            "--ok-label=Ignore Once\n--extra-button=Debug\n--extra-button=Ignore Always\n"
            "--extra-button=Disable Asserts\n--extra-button=Kill Process\n--extra-button=Copy\n");
  EXPECT_EQ(zenity.File("args2"), zenity.File("args1")) << "after Copy the same window comes back";

  // A window that gets no answer hands over to the terminal.
  zenity.Answers("1\n");
  const ChildResult result = Display(&zenity, "T", "text", true, "a\n");
  EXPECT_EQ(result.ExitCode(), kAssertResult_IgnoreAlways + 1) << result.terminal;
  EXPECT_EQ(Count(result.terminal, "*** T ***"), 1u);

  // The text is cut, and made valid UTF-8.
  zenity.Answers("0\n");
  Display(&zenity, "T", std::string(100000, 'x') + "\xFF");
  const std::string args = zenity.File("args1");
  EXPECT_NE(args.find("--text=" + std::string(16 * 1024, 'x') + "\n[...]\n"), std::string::npos);
  zenity.Answers("0\n");
  Display(&zenity, "T",
          "a\xFF"
          "b\xE2\x82");
  EXPECT_NE(zenity.File("args1").find("--text=a\xEF\xBF\xBD"
                                      "b\xEF\xBF\xBD\xEF\xBF\xBD\n"),
            std::string::npos);
}

// The contract message goes to a window, or to a terminal without waiting
// for an answer (nothing is typed there), or, with neither, nowhere; the
// answer is always false.
TEST(AssertDialog, ContractMessageGoesToTheWindowOrTheTerminalWithoutWaiting) {
  FakeDesktop desktop("zenity");
  desktop.Answers("0\n");
  for (const char* where : {"window", "terminal", "nowhere"}) {
    SCOPED_TRACE(where);
    const bool window = where[0] == 'w', terminal = where[0] == 't';
    const ChildResult result = RunInChild(
        [&] {
          if (window) desktop.Enter();
          SetAssertWriteToStdOut(false);
          tvxcore::utility::ThreadSafeMessageDialog(nullptr);
          return BreakAfterContractDialog("e", "f.cpp", 7) ? 1 : 0;
        },
        terminal, "", 20);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.ExitCode(), 0);
    EXPECT_EQ(result.terminal, terminal ? tvxtest::ExecutableName() + ": [f.cpp-7]\n" : "");
    EXPECT_EQ(result.output, "");
  }
  EXPECT_EQ(desktop.File("args1"), "--warning\n--no-markup\n--title=" + tvxtest::ExecutableName() +
                                       "\n--text=[f.cpp-7]\n");
  EXPECT_EQ(desktop.File("count"), "1\n");
}

}  // namespace
