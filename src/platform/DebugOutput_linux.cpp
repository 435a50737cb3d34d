#include "platform/DebugOutput.h"

#include <errno.h>
#include <unistd.h>

#include "platform/HostInfo.h"
#include "platform/TestSeams.h"

namespace tvxcore::platform {

void WriteStandardError(const char* data, std::size_t size) noexcept {
  while (size > 0) {
    const ssize_t written = ::write(STDERR_FILENO, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

void WriteDebuggerOutput(const char* data, std::size_t size) noexcept {
  if (const seams::DebuggerOutputCapture capture = seams::GetDebuggerOutputCapture()) {
    capture(data, size);
    return;
  }
  if (size > 0 && TracerAttached()) WriteStandardError(data, size);
}

}  // namespace tvxcore::platform
