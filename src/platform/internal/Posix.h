// platform/internal/Posix.h: small helpers shared by the Linux files of the
// platform layer: a descriptor that closes itself, and the EINTR retry.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace tvxcore::platform::internal {

// Calls `call` again while it fails with EINTR; returns its last result.
template <typename Call>
auto RetryOnEintr(Call&& call) {
  for (;;) {
    auto result = call();
    if (!(result == -1 && errno == EINTR)) return result;
  }
}

// Writes all `size` bytes to `fd`, retrying after interruptions and short
// writes; false when a write fails. Async-signal-safe.
inline bool WriteFully(int fd, const void* data, std::size_t size) noexcept {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = RetryOnEintr([&] { return ::write(fd, next, size); });
    if (written <= 0) return false;
    next += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// A descriptor closed on every path. close() is never retried: Linux
// releases the descriptor even when it reports EINTR.
class ScopedFd {
 public:
  ScopedFd() = default;
  explicit ScopedFd(int fd) : fd_(fd) {}
  ~ScopedFd() { Reset(); }
  ScopedFd(ScopedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    if (this != &other) {
      Reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Hands the descriptor over to the caller.
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  // Closes and says whether the close reported a failure (a delayed write
  // error on some file systems); 0 or the errno.
  int Close() {
    if (fd_ < 0) return 0;
    const int result = ::close(std::exchange(fd_, -1));
    return result == 0 || errno == EINTR ? 0 : errno;
  }

 private:
  int fd_ = -1;
};

}  // namespace tvxcore::platform::internal
