// platform/internal/ScopedFd.h: the platform layer's one owner of a file
// descriptor. It names no system header, so a platform header may hold one
// (platform/FileRead.h does); closing is in ScopedFd_linux.cpp.
#pragma once

#include <utility>

namespace tvxcore::platform::internal {

// A descriptor closed on every path; -1 for none. close() is never retried:
// Linux releases the descriptor even when it reports EINTR. Not copyable.
class ScopedFd {
 public:
  ScopedFd() = default;
  explicit ScopedFd(int fd) noexcept : fd_(fd) {}
  ~ScopedFd() { Reset(); }
  ScopedFd(ScopedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  // Hands the descriptor over to the caller.
  int Release() noexcept { return std::exchange(fd_, -1); }
  // Closes the descriptor held, if any, and holds `fd` instead.
  void Reset(int fd = -1) noexcept;
  // Closes and says whether the close reported a failure (a delayed write
  // error on some file systems): 0 or the errno. Holds none afterwards.
  int Close() noexcept;

 private:
  int fd_ = -1;
};

}  // namespace tvxcore::platform::internal
