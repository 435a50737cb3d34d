// The assertion dialog as a person meets it: typed answers on a terminal of
// the child's own (a pty), and a window program (zenity, kdialog) played by
// a script that records its arguments and gives scripted answers.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "debug/ChildProcess.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/utility/MachineExceptions.h"

namespace {

using namespace tvxcore::debug;
using tvxtest::ChildResult;
using tvxtest::Count;
using tvxtest::RunInChild;

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
