// Linux calls behind platform/FileRead.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/FileRead.h"
#include "platform/FileSystem.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

std::string ErrnoText(int err) {
  char buffer[256];
  // The GNU strerror_r answers a pointer, which may or may not be `buffer`.
  const char* text = ::strerror_r(err, buffer, sizeof buffer);
  return text ? std::string(text) : std::string();
}

}  // namespace

int ReadOnlyFile::Fail(int err, const std::string& path) {
  failure_ = ErrnoText(err);
  return path.empty() ? TranslateErrno(err, false) : ErrorForPath(err, path);
}

int ReadOnlyFile::Open(const std::string& path) {
  failure_.clear();
  fd_.Reset();
  if (path.empty()) return Fail(ENOENT, std::string());
  // O_NONBLOCK so that a pipe with no writer cannot hang the open; it means
  // nothing for the regular files that are let through.
  internal::ScopedFd fd(internal::RetryOnEintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
  if (!fd.valid()) return Fail(errno, path);
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return Fail(errno, std::string());
  if (!S_ISREG(st.st_mode)) {
    failure_ = S_ISDIR(st.st_mode) ? ErrnoText(EISDIR) : std::string("Not a regular file");
    return kErrorAccessDenied;
  }
  fd_ = std::move(fd);
  size_ = static_cast<std::uint64_t>(st.st_size);
  return kErrorSuccess;
}

int ReadOnlyFile::Read(unsigned char* dst, std::size_t count, std::size_t& outDone) {
  outDone = 0;
  if (!fd_.valid()) return kErrorInvalidHandle;
  if (const int err = internal::ReadAll(fd_.get(), dst, count, outDone))
    return Fail(err, std::string());
  return kErrorSuccess;
}

}  // namespace tvxcore::platform
