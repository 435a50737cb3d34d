#include "debug/internal/DebuggerSeams.h"

#include "platform/HostInfo.h"
#include "tvxcore/debug/Assert.h"

namespace tvxcore::debug {

bool IsDebuggerAttached() { return platform::TracerAttached(); }

namespace internal {

void BreakIntoDebugger() noexcept { platform::TrapIntoDebugger(); }

}  // namespace internal
}  // namespace tvxcore::debug
