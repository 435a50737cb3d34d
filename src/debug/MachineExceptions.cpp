#include "tvxcore/utility/MachineExceptions.h"

#include <atomic>

#include "platform/HostInfo.h"
#include "tvxcore/debug/Assert.h"

namespace tvxcore::utility::exceptions {
namespace {

struct CodeText {
  std::uint32_t code;
  const char* text;
};

constexpr CodeText kCodeTexts[] = {
    {0xC0000005u,
     "EXCEPTION_ACCESS_VIOLATION (The thread attempted to read from or write to a virtual address "
     "for which it does not have the appropriate access.)"},
    {0x80000002u,
     "EXCEPTION_DATATYPE_MISALIGNMENT (The thread attempted to read or write data that is "
     "misaligned on hardware that does not provide alignment. For example, 16-bit values must be "
     "aligned on 2-byte boundaries, 32-bit values on 4-byte boundaries, and so on.)"},
    {0x80000003u, "EXCEPTION_BREAKPOINT (A breakpoint was encountered.)"},
    {0x80000004u,
     "EXCEPTION_SINGLE_STEP (A trace trap or other single-instruction mechanism signaled that one "
     "instruction has been executed.)"},
    {0xC0000025u,
     "EXCEPTION_NONCONTINUABLE_EXCEPTION (The thread attempted to continue execution after a "
     "noncontinuable exception occurred.)"},
    {0xC000008Cu,
     "EXCEPTION_ARRAY_BOUNDS_EXCEEDED (The thread attempted to access an array element that is "
     "out of bounds, and the underlying hardware supports bounds checking.)"},
    {0xC000008Du,
     "EXCEPTION_FLT_DENORMAL_OPERAND (One of the operands in a floating-point operation is "
     "denormal. A denormal value is one that is too small to represent as a standard "
     "floating-point value.)"},
    {0xC000008Eu,
     "EXCEPTION_FLT_DIVIDE_BY_ZERO (The thread attempted to divide a floating-point value by a "
     "floating-point divisor of zero.)"},
    {0xC000008Fu,
     "EXCEPTION_FLT_INEXACT_RESULT (The result of a floating-point operation cannot be "
     "represented exactly as a decimal fraction.)"},
    {0xC0000090u,
     "EXCEPTION_FLT_INVALID_OPERATION (This exception represents any floating-point exception "
     "not included in this list.)"},
    {0xC0000091u,
     "EXCEPTION_FLT_OVERFLOW (The exponent of a floating-point operation is greater than the "
     "magnitude allowed by the corresponding type.)"},
    {0xC0000092u,
     "EXCEPTION_FLT_STACK_CHECK (The stack overflowed or underflowed as the result of a "
     "floating-point operation.)"},
    {0xC0000093u,
     "EXCEPTION_FLT_UNDERFLOW (The exponent of a floating-point operation is less than the "
     "magnitude allowed by the corresponding type.)"},
    {0xC0000094u,
     "EXCEPTION_INT_DIVIDE_BY_ZERO (The thread attempted to divide an integer value by an "
     "integer divisor of zero.)"},
    {0xC0000095u,
     "EXCEPTION_INT_OVERFLOW (The result of an integer operation caused a carry out of the most "
     "significant bit of the result.)"},
    {0xC0000096u,
     "EXCEPTION_PRIV_INSTRUCTION (The thread attempted to execute an instruction whose operation "
     "is not allowed in the current machine mode.)"},
};

constexpr std::uint32_t kBreakpoint = 0x80000003u;

// One flag for the whole process; the dialog may set it.
bool S_ignoreMachineExceptions = false;

std::atomic<MachineExceptionReporter> g_reporter{nullptr};

bool OnFaultSignal(std::uint32_t inCode) {
  if (InternalHiddenFilterWindowsSEHException(inCode, "", 0, "") == 0) return false;
  if (MachineExceptionReporter reporter = g_reporter.load()) {
    reporter(inCode, MachineExceptionText(inCode));
  }
  return true;
}

}  // namespace

const char* MachineExceptionText(std::uint32_t inCode) noexcept {
  for (const CodeText& entry : kCodeTexts) {
    if (entry.code == inCode) return entry.text;
  }
  return "An unknown machine exception has occurred.";
}

long InternalHiddenFilterWindowsSEHException(std::uint32_t inCode, const char* inFile,
                                             std::uint32_t inLine, const char* inFunction) {
  if (inCode == kBreakpoint) return 0;
  if (S_ignoreMachineExceptions || !debug::IsDebuggerAttached()) return 1;
  if (!debug::BreakAfterAssertDialog(S_ignoreMachineExceptions, MachineExceptionText(inCode),
                                     "Hit Debug to see where the exception occurred.", inFile,
                                     static_cast<long>(inLine), inFunction)) {
    return 1;
  }
  return debug::IsDebuggerAttached() ? 0 : 1;
}

void InstallMachineExceptionReporter(MachineExceptionReporter inReporter) {
  g_reporter.store(inReporter);
  platform::SetFaultSignalCallback(inReporter ? &OnFaultSignal : nullptr);
}

}  // namespace tvxcore::utility::exceptions
