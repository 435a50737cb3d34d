// Assertion text, standard-output mode, the contract dialog and the address
// checks, through the public interface. The dialogs themselves are driven in
// assert_dialog_test.cpp.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "config/ErrorTestSupport.h"
#include "debug/ChildProcess.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/debug/StackTrace.h"
#include "tvxcore/threads/Thread.h"

namespace {

using namespace tvxcore::debug;

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

}  // namespace
