#include "platform/DebugOutput.h"

#include <errno.h>
#include <unistd.h>

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

}  // namespace tvxcore::platform
