// Fault signals: the processor's faults (SIGSEGV, SIGBUS, SIGFPE, SIGILL)
// translated to machine-exception codes, the process-wide handlers that
// report them, and calls guarded against them.
#pragma once

#include <cstdint>

namespace tvxcore::platform {

// The Windows machine-exception code that matches a fault signal and its
// si_code (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP); 0 for anything else.
std::uint32_t ExceptionCodeForSignal(int signalNumber, int signalCode) noexcept;

// One fault as the handler saw it.
struct FaultSignal {
  std::uint32_t exceptionCode;  // ExceptionCodeForSignal of the signal
  int signalNumber;
  const void* dataAddress;  // the address that faulted (si_addr)
  const void* instruction;  // the faulting instruction; null when unknown
};

// Called from the fault handler, on the alternate stack where the thread has
// one. Returning true ends the process (exit status 255) after the call;
// false gives the signal its default action (core dump, or the debugger).
// Only one thread reports at a time: a second thread that faults meanwhile
// waits for the process to end, and a fault inside the callback itself takes
// the default action at once.
using FaultSignalCallback = bool (*)(const FaultSignal& fault);

// Installs (or, with null, removes) the handlers of SIGSEGV, SIGBUS, SIGFPE
// and SIGILL. Installing also gives the calling thread an alternate signal
// stack (once per process), so that a stack overflow there is reported too.
void SetFaultSignalCallback(FaultSignalCallback callback);

// The fault being reported, while the calling thread is inside the callback;
// null otherwise. Async-signal-safe.
const FaultSignal* CurrentFaultSignal() noexcept;

// Runs body(context) on the calling thread with its faults guarded: a fault
// signal raised inside asks filter(code, filterContext) (with the guard
// lifted, so a fault in the filter is not caught again); true abandons the
// body and RunGuarded returns false; false hands the fault on to the
// callback above. Returns true when the body ran to its end. Guards nest.
//
// The guard holds only while the fault handlers are installed. An abandoned
// body is left by a jump, so destructors of its locals do not run: the body
// should own little beyond what the fault spoils anyway.
using GuardedBody = void (*)(void* context);
using GuardFilter = bool (*)(std::uint32_t exceptionCode, void* filterContext);
bool RunGuarded(GuardedBody body, void* context, GuardFilter filter, void* filterContext);

}  // namespace tvxcore::platform
