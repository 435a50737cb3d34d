// tvxcore/utility/MachineExceptions.h: machine exceptions (faults raised by the
// processor) and the filter that decides what happens to them.
//
// Codes are the Windows machine-exception codes (0xC0000005 access violation,
// ...); on Linux a host may install a fault-signal reporter that translates
// SIGSEGV, SIGBUS, SIGFPE and SIGILL to those codes and runs them through the
// filter, so that a crash ends with its text instead of a bare signal.
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
// 1 and nothing is shown; with one, the user is offered the debugger, unless an
// earlier offer set the process-wide ignore flag.
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
// Call at start-up, on the main thread.
TVXCORE_EXPORT void InstallMachineExceptionReporter(MachineExceptionReporter inReporter);

}  // namespace tvxcore::utility::exceptions
