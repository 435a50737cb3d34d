#include "platform/DebugOutput.h"

#include <unistd.h>

#include "platform/HostInfo.h"
#include "platform/TestSeams.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {

void WriteStandardError(const char* data, std::size_t size) noexcept {
  // A failure has nowhere to be reported.
  (void)internal::WriteAll(STDERR_FILENO, data, size);
}

void WriteDebuggerOutput(const char* data, std::size_t size) noexcept {
  if (const seams::DebuggerOutputCapture capture = seams::GetDebuggerOutputCapture()) {
    capture(data, size);
    return;
  }
  if (size > 0 && TracerAttached()) WriteStandardError(data, size);
}

}  // namespace tvxcore::platform
