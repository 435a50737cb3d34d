// Stack frames with their functions, files and lines, and the crash report
// of the fault-signal path, which must name them too.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "debug/ChildProcess.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/debug/StackTrace.h"
#include "tvxcore/utility/MachineExceptions.h"

namespace {

using namespace tvxcore::debug;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

// Whether this executable carries line tables (-g or -g1): read from its
// own section headers, independently of the code under test.
bool ExecutableHasLineTables() {
  const std::string image = tvxtest::ReadFile("/proc/self/exe");
  if (image.size() < sizeof(Elf64_Ehdr)) return false;
  Elf64_Ehdr header;
  std::memcpy(&header, image.data(), sizeof header);
  const std::size_t tableEnd = header.e_shoff + std::size_t{header.e_shnum} * sizeof(Elf64_Shdr);
  if (header.e_shentsize != sizeof(Elf64_Shdr) || tableEnd > image.size()) return false;
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  std::memcpy(sections.data(), image.data() + header.e_shoff, tableEnd - header.e_shoff);
  if (header.e_shstrndx >= sections.size()) return false;
  const Elf64_Shdr& names = sections[header.e_shstrndx];
  for (const Elf64_Shdr& section : sections) {
    const std::size_t at = names.sh_offset + section.sh_name;
    if (at < image.size() && std::strcmp(image.c_str() + at, ".debug_line") == 0) return true;
  }
  return false;
}

struct Captured {
  void* frames[64];
  unsigned long long count;
  unsigned long line;  // of the GenerateStackTrace call
};

TVX_NOINLINE void CaptureHere(Captured& captured) {
  captured.line = __LINE__ + 1;
  captured.count = GenerateStackTrace(captured.frames, 64, 0);
  asm volatile("" ::: "memory");  // no tail call: this frame must stay
}

std::string Name(void* frame) {
  char buffer[1024];
  return StackFrameFunctionName(frame, buffer, sizeof buffer) ? buffer : "";
}
std::string Path(void* frame) {
  char buffer[4096];
  return StackFrameFullFilePath(frame, buffer, sizeof buffer) ? buffer : "";
}

// Known frames are named, with file and line where the executable carries
// line tables; unknown frames and small buffers are answered safely.
TEST(StackTrace, FramesNameTheirFunctionFileAndLine) {
  Captured captured{};
  CaptureHere(captured);
  ASSERT_GE(captured.count, 3u);
  // Frame 0 is GenerateStackTrace's own, frame 1 its caller.
  void* const known = captured.frames[1];
  EXPECT_THAT(Name(captured.frames[0]), HasSubstr("tvxcore::debug::GenerateStackTrace"));
  EXPECT_THAT(Path(captured.frames[0]), EndsWith("/src/debug/StackTrace.cpp"));
  EXPECT_THAT(Name(known), HasSubstr("CaptureHere"));
  EXPECT_THAT(Name(captured.frames[2]), HasSubstr("FramesNameTheirFunctionFileAndLine"));
  const struct {
    void* frame;
    bool named;
  } frames[] = {
      {nullptr, false},
      {reinterpret_cast<void*>(1), false},
      {reinterpret_cast<void*>(~std::uintptr_t{0} - 15), false},
      {known, true},
  };
  for (const auto& row : frames) {
    char buffer[256] = "untouched";
    EXPECT_EQ(StackFrameFunctionName(row.frame, buffer, sizeof buffer), row.named) << row.frame;
    if (!row.named) {
      EXPECT_STREQ(buffer, "");
      EXPECT_FALSE(StackFrameFullFilePath(row.frame, buffer, sizeof buffer));
      EXPECT_EQ(StackFrameLineNumber(row.frame), 0u);
    }
  }
  // Buffers: none, empty, one byte, a few bytes; the text is cut and ended.
  EXPECT_FALSE(StackFrameFunctionName(known, nullptr, 100));
  EXPECT_FALSE(StackFrameFullFilePath(known, nullptr, 100));
  char small[8] = "xxxxxxx";
  EXPECT_FALSE(StackFrameFunctionName(known, small, 0));
  EXPECT_STREQ(small, "xxxxxxx");
  EXPECT_TRUE(StackFrameFunctionName(known, small, 1));
  EXPECT_STREQ(small, "");
  EXPECT_TRUE(StackFrameFunctionName(known, small, sizeof small));
  EXPECT_EQ(std::string(small), Name(known).substr(0, 7));
  // A function of a system library is named from its dynamic symbols.
  char buffer[256];
  EXPECT_TRUE(StackFrameFunctionName(reinterpret_cast<void*>(&std::qsort), buffer, sizeof buffer));
  EXPECT_THAT(buffer, HasSubstr("qsort"));
  if (!ExecutableHasLineTables()) GTEST_SKIP() << "this test binary was built without -g";
  EXPECT_THAT(Path(known), MatchesRegex("/.*/tests/debug/stack_trace_test.cpp"));
  EXPECT_EQ(StackFrameLineNumber(known), captured.line);
}

TVX_NOINLINE unsigned long long CaptureSkipping(void** frames, unsigned long long skip) {
  const unsigned long long count = GenerateStackTrace(frames, 32, skip);
  asm volatile("" ::: "memory");
  return count;
}

TEST(StackTrace, SkipAndCountShiftAndCutTheFrames) {
  void* frames[3][32];
  unsigned long long counts[3];
  for (unsigned long long skip = 0; skip < 3; ++skip)
    counts[skip] = CaptureSkipping(frames[skip], skip);
  ASSERT_GE(counts[0], 4u);
  // Frame 2 is this test's own call, which the compiler may repeat per skip;
  // every other frame is shared by the three walks.
  constexpr unsigned long long kOwnCall = 2;
  for (unsigned long long skip = 1; skip < 3; ++skip) {
    EXPECT_EQ(counts[skip], std::min<unsigned long long>(counts[0] - skip, 32)) << skip;
    for (unsigned long long i = 0; i + skip < counts[0] && i < counts[skip]; ++i) {
      if (i + skip != kOwnCall) {
        EXPECT_EQ(frames[skip][i], frames[0][i + skip]) << skip << " " << i;
      }
    }
  }
  void* two[2] = {nullptr, nullptr};
  EXPECT_EQ(GenerateStackTrace(two, 2, 0), 2u);
  EXPECT_EQ(two[0], frames[0][0]);
  EXPECT_EQ(GenerateStackTrace(nullptr, 10, 0), 0u);
  EXPECT_EQ(GenerateStackTrace(two, 0, 0), 0u);
  EXPECT_EQ(GenerateStackTrace(two, 2, 100000), 0u);
  // The counts are cut to 32 bits: 2^32 + 1 frames is one frame.
  EXPECT_EQ(GenerateStackTrace(two, (1ULL << 32) + 1, 0), 1u);
}

// The crash path, each row in a process of its own. The faulting functions
// keep the sanitizers out, so that the signal, not a sanitizer's report,
// ends the process.
volatile int* volatile g_nowhere = nullptr;
volatile int g_zero = 0;
volatile int g_quotient = 0;
__attribute__((noinline, no_sanitize("address", "undefined"))) void WriteToNowhere() {
  *g_nowhere = 42;  // kWriteLine
}
constexpr unsigned kWriteLine = __LINE__ - 2;
__attribute__((noinline, no_sanitize("address", "undefined"))) void DivideByZero() {
  g_quotient = 7 / g_zero;  // kDivideLine
}
constexpr unsigned kDivideLine = __LINE__ - 2;
volatile int g_depthLimit = 1 << 30;  // far beyond any stack
TVX_NOINLINE int Recurse(int depth) {
  volatile char pad[512];
  pad[0] = static_cast<char>(depth);
  if (depth >= g_depthLimit) return 0;
  return Recurse(depth + 1) + pad[0];
}

// The crash report looks names up in a child made by a raw fork();
// ThreadSanitizer's runtime doesn't survive that, so under it the report
// gives bare frames and these tests can't check the names.
#if defined(__SANITIZE_THREAD__)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

TEST(StackTraceDeathTest, CrashReportCarriesTheTextAndTheStackWithFileAndLine) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "ThreadSanitizer does not survive the raw fork()";
  if (IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string lines =
      ExecutableHasLineTables() ? " at [^\n]*/tests/debug/stack_trace_test.cpp:" : "";
  const struct {
    void (*body)();
    std::string pattern;
  } rows[] = {
      {&WriteToNowhere,
       "tvxcore: machine exception 0xC0000005: EXCEPTION_ACCESS_VIOLATION \\(The thread attempted "
       "[^\n]*\n  signal 11, address 0x0000000000000000, instruction 0x[0-9a-f]+\nstack of thread "
       "[0-9]+:\n  #0 0x[0-9a-f]+ [^\n]*WriteToNowhere[^\n]*" +
           lines + (lines.empty() ? "" : std::to_string(kWriteLine)) +
           "\n  #1 [^\n]*CrashReportCarriesTheTextAndTheStack"},
      {&DivideByZero,
       "EXCEPTION_INT_DIVIDE_BY_ZERO [^\n]*\n  signal 8, [^\n]*\nstack of thread [0-9]+:\n  #0 "
       "[^\n]*DivideByZero[^\n]*" +
           lines + (lines.empty() ? "" : std::to_string(kDivideLine))},
      // A fault on another thread than the installing one.
      {[] { std::thread(&WriteToNowhere).join(); },
       "EXCEPTION_ACCESS_VIOLATION [^\n]*\n[^#]*#0 [^\n]*WriteToNowhere"},
      // A stack overflow of the installing thread.
      {[] { Recurse(0); },
       "EXCEPTION_ACCESS_VIOLATION [^\n]*\n[^#]*#0 [^\n]*Recurse[^\n]*\n  #1 [^\n]*Recurse"},
  };
  for (const auto& row : rows) {
    EXPECT_EXIT(
        {
          tvxcore::utility::exceptions::InstallMachineExceptionHandlers();
          row.body();
        },
        testing::ExitedWithCode(255), row.pattern);
  }
  // Without the handlers the signal ends the process as it always does, or
  // a sanitizer's own handler ends it with the sanitizer's exit status, 1.
  EXPECT_EXIT(
      WriteToNowhere(),
      [](int status) {
        return WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 1);
      },
      "");
}

}  // namespace
