#include "debug/internal/DebugTraceText.h"

#include "platform/DebugOutput.h"

namespace tvxcore::debug::internal {

void DebugTraceText(const UTF8String& text) {
  platform::WriteStandardError(reinterpret_cast<const char*>(text.data()), text.size());
}

}  // namespace tvxcore::debug::internal
