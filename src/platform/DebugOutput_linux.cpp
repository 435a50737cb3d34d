#include "platform/DebugOutput.h"

#include <unistd.h>

#include "platform/internal/Posix.h"

namespace tvxcore::platform {

void WriteStandardError(const char* data, std::size_t size) noexcept {
  // A failure has nowhere to be reported.
  (void)internal::WriteAll(STDERR_FILENO, data, size);
}

}  // namespace tvxcore::platform
