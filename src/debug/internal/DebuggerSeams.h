// The debugger services the error road uses: whether a debugger is attached,
// the contract dialog, the machine-exception dialog. The assertion dialogs are
// not in the library yet; until they are, the dialogs here show nothing and
// answer "don't break".
#pragma once

#include <cstdint>

namespace tvxcore::debug::internal {

// True when a debugger is attached to the process.
bool IsDebuggerAttached() noexcept;

// Stops in the attached debugger; call only when IsDebuggerAttached().
void BreakIntoDebugger() noexcept;

// Offers the violated contract to the user; true asks for a break.
bool BreakAfterContractDialog(const char* inExpression, const char* inFile, long inLine) noexcept;

// Offers a machine exception to the user; true asks for the debugger. May set
// *ioIgnore so that later exceptions are not offered again.
bool DisplayMachineExceptionDialog(bool* ioIgnore, const char* inText, const char* inHint,
                                   const char* inFile, std::uint32_t inLine,
                                   const char* inFunction) noexcept;

}  // namespace tvxcore::debug::internal
