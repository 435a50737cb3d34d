// The one road by which the library's debug stream reaches the trace output.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::debug::internal {

// Hands `text` to the trace output as it stands (no line break is added).
// Until a trace manager is installed the text goes to standard error.
void DebugTraceText(const UTF8String& text);

}  // namespace tvxcore::debug::internal
