// platform/internal/Posix.h: what the Linux files of the platform layer share:
// the one EINTR retry, reading and writing a descriptor to the end, and the
// descriptor that closes itself (ScopedFd.h). Nothing here allocates, so a
// signal handler may use it.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "platform/internal/ScopedFd.h"

namespace tvxcore::platform::internal {

// Calls `call` again while it fails with EINTR; returns its last result.
template <typename Call>
auto RetryOnEintr(Call&& call) {
  for (;;) {
    auto result = call();
    if (!(result == -1 && errno == EINTR)) return result;
  }
}

// Writes all `size` bytes, over short writes. 0, or the errno of the failure;
// ENOSPC when the descriptor takes no more bytes.
inline int WriteAll(int fd, const void* data, std::size_t size) noexcept {
  const auto* from = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t n = RetryOnEintr([&] { return ::write(fd, from, size); });
    if (n < 0) return errno;
    if (n == 0) return ENOSPC;
    from += n;
    size -= static_cast<std::size_t>(n);
  }
  return 0;
}

// Reads until `size` bytes are in or the end of the file, which is no
// failure. `done` counts the bytes stored, also after a failure. 0 or the
// errno of the failure.
inline int ReadAll(int fd, void* data, std::size_t size, std::size_t& done) noexcept {
  constexpr std::size_t kMaxCall = std::size_t{1} << 30;
  auto* to = static_cast<unsigned char*>(data);
  done = 0;
  while (done < size) {
    const std::size_t want = size - done < kMaxCall ? size - done : kMaxCall;
    const ssize_t n = RetryOnEintr([&] { return ::read(fd, to + done, want); });
    if (n < 0) return errno;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return 0;
}

}  // namespace tvxcore::platform::internal
