// tvxcore/utility/MachineExceptions.h: machine exceptions (faults raised by the
// processor) and the filter that decides what happens to them.
//
// Codes are the Windows machine-exception codes (0xC0000005 access violation,
// ...); on Linux a host opts into the fault-signal path, which translates
// SIGSEGV, SIGBUS, SIGFPE and SIGILL to those codes and runs them through the
// filter, so that a crash ends with its text and its stack instead of a bare
// signal. InstallMachineExceptionHandlers is the usual call.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"

namespace tvxcore::utility::exceptions {

// The fixed text of a machine-exception code, for example
// "EXCEPTION_ACCESS_VIOLATION (...)"; "An unknown machine exception has
// occurred." for a code outside the table. The pointer is to static text.
TVXCORE_EXPORT const char* MachineExceptionText(std::uint32_t inCode) noexcept;

// Decides on a machine exception: 1 runs the guarding handler, 0 passes it on.
// A breakpoint (0x80000003) always passes on. Without a debugger the answer is
// 1 and nothing is shown; with one, the exception is offered through
// debug::BreakAfterAssertDialog (its text as the expression, "Hit Debug to see
// where the exception occurred." as the message), unless an earlier offer set
// the process-wide ignore flag; "Debug" passes it on to the debugger.
TVXCORE_EXPORT long InternalHiddenFilterWindowsSEHException(std::uint32_t inCode,
                                                            const char* inFile,
                                                            std::uint32_t inLine,
                                                            const char* inFunction);

// Called once from the fault-signal handler with the code and its text, on an
// alternate stack, with the process in an undefined state: write the text
// somewhere with plain system calls and return; the process then exits with
// status 255.
using MachineExceptionReporter = void (*)(std::uint32_t inCode, const char* inText);

// Installs (or with null removes) the fault-signal handlers that route
// SIGSEGV, SIGBUS, SIGFPE and SIGILL through the filter. When the filter passes
// an exception on, the signal takes its default action (core dump, debugger).
// The installing thread gets an alternate signal stack, so that its stack
// overflowing is reported too. While the handlers are installed, the
// assertion dialog runs guarded: a fault inside it goes to the filter
// instead of ending the process. Call at start-up, on the main thread.
TVXCORE_EXPORT void InstallMachineExceptionReporter(MachineExceptionReporter inReporter);

// The library's crash report, a MachineExceptionReporter: writes to standard
// error
//   tvxcore: machine exception <code>: <text>
//     signal <n>, address <a>, instruction <i>    (inside the fault handler)
//   stack of thread <id>:
//     #0 0x... Function() at /path/file.cpp:42
// one frame a line, from the faulting instruction down, with the function,
// source file and line where the module's debug information has them.
// Async-signal-safe: no lock, no allocation in this process; the names are
// looked up in a short-lived child process, and written as bare addresses
// when that fails or takes more than a few seconds.
TVXCORE_EXPORT void WriteMachineExceptionReport(std::uint32_t inCode, const char* inText) noexcept;

// Opts the process into the fault-signal path with the library's crash report
// (InstallMachineExceptionReporter(&WriteMachineExceptionReport)): a crash
// writes its report and ends the process with exit status 255.
TVXCORE_EXPORT void InstallMachineExceptionHandlers();

}  // namespace tvxcore::utility::exceptions
