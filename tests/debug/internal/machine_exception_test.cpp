#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Signals.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/utility/MachineExceptions.h"

namespace {

using namespace tvxcore::utility::exceptions;

TEST(MachineExceptions, EveryCodeHasItsText) {
  const struct {
    std::uint32_t code;
    const char* name;
  } table[] = {
      {0xC0000005u,
       "EXCEPTION_ACCESS_VIOLATION (The thread attempted to read from or write to a "
       "virtual address for which it does not have the appropriate access.)"},
      {0x80000002u, "EXCEPTION_DATATYPE_MISALIGNMENT ("},
      {0x80000003u, "EXCEPTION_BREAKPOINT (A breakpoint was encountered.)"},
      {0x80000004u, "EXCEPTION_SINGLE_STEP ("},
      {0xC0000025u, "EXCEPTION_NONCONTINUABLE_EXCEPTION ("},
      {0xC000008Cu, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED ("},
      {0xC000008Du, "EXCEPTION_FLT_DENORMAL_OPERAND ("},
      {0xC000008Eu, "EXCEPTION_FLT_DIVIDE_BY_ZERO ("},
      {0xC000008Fu, "EXCEPTION_FLT_INEXACT_RESULT ("},
      {0xC0000090u,
       "EXCEPTION_FLT_INVALID_OPERATION (This exception represents any "
       "floating-point exception not included in this list.)"},
      {0xC0000091u, "EXCEPTION_FLT_OVERFLOW ("},
      {0xC0000092u, "EXCEPTION_FLT_STACK_CHECK ("},
      {0xC0000093u, "EXCEPTION_FLT_UNDERFLOW ("},
      {0xC0000094u,
       "EXCEPTION_INT_DIVIDE_BY_ZERO (The thread attempted to divide an integer "
       "value by an integer divisor of zero.)"},
      {0xC0000095u, "EXCEPTION_INT_OVERFLOW ("},
      {0xC0000096u,
       "EXCEPTION_PRIV_INSTRUCTION (The thread attempted to execute an instruction "
       "whose operation is not allowed in the current machine mode.)"},
  };
  for (const auto& entry : table) {
    const std::string text = MachineExceptionText(entry.code);
    EXPECT_EQ(text.compare(0, std::strlen(entry.name), entry.name), 0) << std::hex << entry.code;
    EXPECT_EQ(text.back(), ')');
  }
  EXPECT_STREQ(MachineExceptionText(0x80000002u),
               "EXCEPTION_DATATYPE_MISALIGNMENT (The thread attempted to read or write data that "
               "is misaligned on hardware that does not provide alignment. For example, 16-bit "
               "values must be aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, "
               "and so on.)");
  for (std::uint32_t unknown : {0u, 0xC000001Du, 0xC0000006u, 0x80000001u, 0xFFFFFFFFu}) {
    EXPECT_STREQ(MachineExceptionText(unknown), "An unknown machine exception has occurred.");
  }
}

TEST(MachineExceptions, FaultSignalsTranslateToExceptionCodes) {
  const struct {
    int signal;
    int code;
    std::uint32_t expected;
  } table[] = {
      {SIGSEGV, SEGV_MAPERR, 0xC0000005u}, {SIGSEGV, SEGV_ACCERR, 0xC0000005u},
      {SIGSEGV, SI_USER, 0xC0000005u},     {SIGBUS, BUS_ADRALN, 0x80000002u},
      {SIGBUS, BUS_ADRERR, 0xC0000005u},   {SIGFPE, FPE_INTDIV, 0xC0000094u},
      {SIGFPE, FPE_INTOVF, 0xC0000095u},   {SIGFPE, FPE_FLTDIV, 0xC000008Eu},
      {SIGFPE, FPE_FLTOVF, 0xC0000091u},   {SIGFPE, FPE_FLTUND, 0xC0000093u},
      {SIGFPE, FPE_FLTRES, 0xC000008Fu},   {SIGFPE, FPE_FLTINV, 0xC0000090u},
      {SIGFPE, FPE_FLTSUB, 0xC000008Cu},   {SIGFPE, SI_USER, 0u},
      {SIGILL, ILL_PRVOPC, 0xC0000096u},   {SIGILL, ILL_PRVREG, 0xC0000096u},
      {SIGILL, ILL_ILLOPC, 0xC000001Du},   {SIGTRAP, TRAP_BRKPT, 0x80000003u},
      {SIGTRAP, TRAP_TRACE, 0x80000004u},  {SIGINT, 0, 0u},
  };
  for (const auto& entry : table) {
    EXPECT_EQ(tvxcore::platform::ExceptionCodeForSignal(entry.signal, entry.code), entry.expected)
        << "signal " << entry.signal << " code " << entry.code;
  }
}

TEST(MachineExceptions, FilterPassesBreakpointsOnAndHandlesTheRestWithoutADebugger) {
  if (tvxcore::debug::IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  EXPECT_EQ(InternalHiddenFilterWindowsSEHException(0x80000003u, "f.cpp", 1, "f"), 0);
  for (std::uint32_t code : {0xC0000005u, 0xC0000094u, 0x80000004u, 0u, 0x12345678u}) {
    EXPECT_EQ(InternalHiddenFilterWindowsSEHException(code, "f.cpp", 1, "f"), 1) << code;
  }
}

// Reporters run inside a signal handler: they answer through the exit status,
// which is all an async-signal-safe reporter can portably do here.
void ExitWithVerdict(std::uint32_t code, const char* text) {
  const char kExpected[] = "EXCEPTION_ACCESS_VIOLATION (";
  const bool right =
      code == 0xC0000005u && std::strncmp(text, kExpected, sizeof kExpected - 1) == 0;
  std::_Exit(right ? 42 : 43);
}
void ReturnQuietly(std::uint32_t, const char*) {}

TEST(MachineExceptionsDeathTest, FaultSignalReachesTheReporterWithItsCodeAndText) {
  if (tvxcore::debug::IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        InstallMachineExceptionReporter(&ExitWithVerdict);
        std::raise(SIGSEGV);
      },
      ::testing::ExitedWithCode(42), "");
  EXPECT_EXIT(
      {
        InstallMachineExceptionReporter(&ReturnQuietly);
        std::raise(SIGSEGV);
      },
      ::testing::ExitedWithCode(255), "");
  EXPECT_EXIT(
      {
        InstallMachineExceptionReporter(&ReturnQuietly);
        InstallMachineExceptionReporter(nullptr);
        std::raise(SIGSEGV);
      },
      ::testing::KilledBySignal(SIGSEGV), "");
}

bool g_filterAnswer = false;
std::uint32_t g_filteredCode = 0;
bool Filter(std::uint32_t code, void*) {
  g_filteredCode = code;
  return g_filterAnswer;
}
void Fault(void*) { std::raise(SIGSEGV); }
void Quiet(void*) {}
// A guard inside a guard: the inner one answers first.
void NestedFault(void*) {
  g_filterAnswer = true;
  const bool ran = tvxcore::platform::RunGuarded(&Fault, nullptr, &Filter, nullptr);
  std::_Exit(ran ? 50 : 51);
}

TEST(MachineExceptionsDeathTest, GuardedCallIsAbandonedWhenTheFilterTakesTheFault) {
  if (tvxcore::debug::IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  using tvxcore::platform::RunGuarded;
  const struct {
    void (*body)(void*);
    bool filterAnswer;
    int exitCode;  // 42 + whether the body ran to its end, 255 from the reporter
  } table[] = {
      {&Fault, true, 42},    // taken: the call returns false and the process goes on
      {&Fault, false, 255},  // passed on: the crash reporter ends the process
      {&Quiet, true, 43},
      {&NestedFault, false, 51},
  };
  for (const auto& row : table) {
    EXPECT_EXIT(
        {
          InstallMachineExceptionReporter(&ReturnQuietly);
          g_filterAnswer = row.filterAnswer;
          const bool ran = RunGuarded(row.body, nullptr, &Filter, nullptr);
          // After a taken fault the guard is gone and the handlers still work.
          if (!ran && g_filteredCode != 0xC0000005u) std::_Exit(44);
          if (!ran && RunGuarded(&Quiet, nullptr, &Filter, nullptr) != true) std::_Exit(45);
          std::_Exit(ran ? 43 : 42);
        },
        ::testing::ExitedWithCode(row.exitCode), "");
  }
  // Without the handlers a guard catches nothing: the signal (or a
  // sanitizer's handler) ends the process.
  EXPECT_EXIT(
      {
        g_filterAnswer = true;
        RunGuarded(&Fault, nullptr, &Filter, nullptr);
        std::_Exit(42);
      },
      [](int status) {
        return WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) != 42);
      },
      "");
}

}  // namespace
