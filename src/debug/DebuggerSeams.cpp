#include "debug/internal/DebuggerSeams.h"

#include "platform/HostInfo.h"

namespace tvxcore::debug::internal {

bool IsDebuggerAttached() noexcept { return platform::TracerAttached(); }

void BreakIntoDebugger() noexcept { platform::TrapIntoDebugger(); }

bool BreakAfterContractDialog(const char*, const char*, long) noexcept { return false; }

bool DisplayMachineExceptionDialog(bool*, const char*, const char*, const char*, std::uint32_t,
                                   const char*) noexcept {
  return false;
}

}  // namespace tvxcore::debug::internal
