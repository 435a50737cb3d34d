// Linux calls behind platform/FileRead.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/FileRead.h"
#include "platform/FileSystem.h"

namespace tvxcore::platform {
namespace {

std::string ErrnoText(int err) {
  char buffer[256];
  // The GNU strerror_r answers a pointer, which may or may not be `buffer`.
  const char* text = ::strerror_r(err, buffer, sizeof buffer);
  return text ? std::string(text) : std::string();
}

}  // namespace

ReadOnlyFile::~ReadOnlyFile() {
  if (fd_ >= 0) ::close(fd_);
}

int ReadOnlyFile::Fail(int err, const std::string& path) {
  failure_ = ErrnoText(err);
  return path.empty() ? TranslateErrno(err, false) : ErrorForPath(err, path);
}

int ReadOnlyFile::Open(const std::string& path) {
  failure_.clear();
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
  if (path.empty()) return Fail(ENOENT, std::string());
  // O_NONBLOCK so that a pipe with no writer cannot hang the open; it means
  // nothing for the regular files that are let through.
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return Fail(errno, path);
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    const int err = errno;
    ::close(fd);
    return Fail(err, std::string());
  }
  if (!S_ISREG(st.st_mode)) {
    ::close(fd);
    failure_ = S_ISDIR(st.st_mode) ? ErrnoText(EISDIR) : std::string("Not a regular file");
    return kErrorAccessDenied;
  }
  fd_ = fd;
  size_ = static_cast<std::uint64_t>(st.st_size);
  return kErrorSuccess;
}

int ReadOnlyFile::Read(unsigned char* dst, std::size_t count, std::size_t& outDone) {
  outDone = 0;
  if (fd_ < 0) return kErrorInvalidHandle;
  constexpr std::size_t kMaxCall = std::size_t{1} << 30;
  while (outDone < count) {
    const std::size_t want = count - outDone < kMaxCall ? count - outDone : kMaxCall;
    const ssize_t n = ::read(fd_, dst + outDone, want);
    if (n < 0) {
      if (errno == EINTR) continue;
      return Fail(errno, std::string());
    }
    if (n == 0) break;
    outDone += static_cast<std::size_t>(n);
  }
  return kErrorSuccess;
}

}  // namespace tvxcore::platform
