#include "tvxcore/utility/MachineExceptions.h"

#include <atomic>
#include <cstring>

#include "platform/DebugOutput.h"
#include "platform/SignalSafeText.h"
#include "platform/Signals.h"
#include "platform/StackTrace.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/threads/Thread.h"

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

bool OnFaultSignal(const platform::FaultSignal& inFault) {
  const std::uint32_t code = inFault.exceptionCode;
  if (InternalHiddenFilterWindowsSEHException(code, "", 0, "") == 0) return false;
  if (MachineExceptionReporter reporter = g_reporter.load()) {
    reporter(code, MachineExceptionText(code));
  }
  return true;
}

void Write(const platform::SignalSafeLine& inLine) noexcept {
  platform::WriteStandardError(inLine.data(), inLine.size());
}

constexpr std::size_t kReportFrames = 128;

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
  if (inReporter) platform::PrepareStackReport();
  platform::SetFaultSignalCallback(inReporter ? &OnFaultSignal : nullptr);
}

void WriteMachineExceptionReport(std::uint32_t inCode, const char* inText) noexcept {
  // Exception codes in upper case, as they are known ("0xC0000005").
  Write(platform::SignalSafeLine()
            .Text("tvxcore: machine exception ")
            .Hex(inCode, 8, true)
            .Text(": "));
  if (inText) platform::WriteStandardError(inText, std::strlen(inText));
  platform::WriteStandardError("\n", 1);
  const platform::FaultSignal* fault = platform::CurrentFaultSignal();
  if (fault) {
    Write(platform::SignalSafeLine()
              .Text("  signal ")
              .Decimal(static_cast<unsigned>(fault->signalNumber))
              .Text(", address ")
              .Address(fault->dataAddress)
              .Text(", instruction ")
              .Address(fault->instruction)
              .Text("\n"));
  }
  void* frames[kReportFrames];
  const std::size_t count = platform::CaptureStack(frames, kReportFrames, 0);
  // Inside the fault handler the stack starts at the faulting instruction,
  // below the handler's own frames; elsewhere at the caller.
  std::size_t first = count > 0 ? 1 : 0;
  for (std::size_t i = 0; fault && fault->instruction && i < count; ++i) {
    if (frames[i] == fault->instruction) {
      first = i;
      break;
    }
  }
  Write(platform::SignalSafeLine()
            .Text("stack of thread ")
            .Decimal(threads::GetCurrentThreadID())
            .Text(":\n"));
  platform::WriteStackReport(frames + first, count - first);
}

void InstallMachineExceptionHandlers() {
  InstallMachineExceptionReporter(&WriteMachineExceptionReport);
}

}  // namespace tvxcore::utility::exceptions
