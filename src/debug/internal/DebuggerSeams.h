// The debugger service the library's own breaks use; whether a debugger is
// attached is public (tvxcore/debug/Assert.h).
#pragma once

namespace tvxcore::debug::internal {

// Stops in the attached debugger (a trap signal); call only when
// IsDebuggerAttached(), since without a debugger the trap ends the process.
void BreakIntoDebugger() noexcept;

}  // namespace tvxcore::debug::internal
