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

// Each fault signal's exception code and the code's text; without a
// debugger the filter handles every code but the breakpoint.
TEST(MachineExceptions, FaultSignalsTranslateToCodesWithTheirTexts) {
  if (tvxcore::debug::IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  const char* const kUnknown = "An unknown machine exception has occurred.";
  const struct {
    int signal;
    int code;
    std::uint32_t expected;
    const char* text;  // the start of the code's text
  } table[] = {
      {SIGSEGV, SEGV_MAPERR, 0xC0000005u,
       "EXCEPTION_ACCESS_VIOLATION (The thread attempted to read from or write to a "
       "virtual address for which it does not have the appropriate access.)"},
      {SIGBUS, BUS_ADRALN, 0x80000002u,
       "EXCEPTION_DATATYPE_MISALIGNMENT (The thread attempted to read or write data that "
       "is misaligned on hardware that does not provide alignment. For example, 16-bit "
       "values must be aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, "
       "and so on.)"},
      {SIGBUS, BUS_ADRERR, 0xC0000005u, "EXCEPTION_ACCESS_VIOLATION ("},
      {SIGFPE, FPE_INTDIV, 0xC0000094u,
       "EXCEPTION_INT_DIVIDE_BY_ZERO (The thread attempted to divide an integer "
       "value by an integer divisor of zero.)"},
      {SIGFPE, FPE_INTOVF, 0xC0000095u, "EXCEPTION_INT_OVERFLOW ("},
      {SIGFPE, FPE_FLTDIV, 0xC000008Eu, "EXCEPTION_FLT_DIVIDE_BY_ZERO ("},
      {SIGFPE, FPE_FLTOVF, 0xC0000091u, "EXCEPTION_FLT_OVERFLOW ("},
      {SIGFPE, FPE_FLTUND, 0xC0000093u, "EXCEPTION_FLT_UNDERFLOW ("},
      {SIGFPE, FPE_FLTRES, 0xC000008Fu, "EXCEPTION_FLT_INEXACT_RESULT ("},
      {SIGFPE, FPE_FLTINV, 0xC0000090u,
       "EXCEPTION_FLT_INVALID_OPERATION (This exception represents any "
       "floating-point exception not included in this list.)"},
      {SIGFPE, FPE_FLTSUB, 0xC000008Cu, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED ("},
      {SIGFPE, SI_USER, 0u, kUnknown},
      {SIGILL, ILL_PRVOPC, 0xC0000096u,
       "EXCEPTION_PRIV_INSTRUCTION (The thread attempted to execute an instruction "
       "whose operation is not allowed in the current machine mode.)"},
      {SIGILL, ILL_PRVREG, 0xC0000096u, "EXCEPTION_PRIV_INSTRUCTION ("},
      {SIGILL, ILL_ILLOPC, 0xC000001Du, kUnknown},
      {SIGTRAP, TRAP_BRKPT, 0x80000003u, "EXCEPTION_BREAKPOINT (A breakpoint was encountered.)"},
      {SIGTRAP, TRAP_TRACE, 0x80000004u, "EXCEPTION_SINGLE_STEP ("},
      {SIGINT, 0, 0u, kUnknown},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(testing::Message() << "signal " << row.signal << " code " << row.code);
    EXPECT_EQ(tvxcore::platform::ExceptionCodeForSignal(row.signal, row.code), row.expected);
    const std::string text = MachineExceptionText(row.expected);
    EXPECT_EQ(text.compare(0, std::strlen(row.text), row.text), 0) << text;
    EXPECT_EQ(text.back(), row.text == kUnknown ? '.' : ')');
    EXPECT_EQ(InternalHiddenFilterWindowsSEHException(row.expected, "f.cpp", 1, "f"),
              row.expected == 0x80000003u ? 0 : 1);
  }
}

void ReturnQuietly(std::uint32_t, const char*) {}

// A removed reporter leaves the fault signal its default action.
TEST(MachineExceptionsDeathTest, RemovingTheReporterRestoresTheSignal) {
  if (tvxcore::debug::IsDebuggerAttached()) GTEST_SKIP() << "running under a debugger";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
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
