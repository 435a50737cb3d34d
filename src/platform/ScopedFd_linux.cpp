#include <unistd.h>

#include <cerrno>

#include "platform/internal/ScopedFd.h"

namespace tvxcore::platform::internal {

void ScopedFd::Reset(int fd) noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

int ScopedFd::Close() noexcept {
  if (fd_ < 0) return 0;
  const int result = ::close(std::exchange(fd_, -1));
  return result == 0 || errno == EINTR ? 0 : errno;
}

}  // namespace tvxcore::platform::internal
