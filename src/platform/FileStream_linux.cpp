// Linux calls behind platform/FileStream.h: descriptors, read/write loops and
// flock() for sharing.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>

#include "platform/FileStream.h"
#include "platform/FileSystem.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

// The descriptor of a handle; false for one no descriptor can have.
bool ToFd(std::int64_t handle, int& fd) {
  if (handle < 0 || handle > INT_MAX) return false;
  fd = static_cast<int>(handle);
  return true;
}

int LastError() { return TranslateErrno(errno, false); }

// Takes the advisory lock of `share` on a freshly opened descriptor.
int Lock(int fd, bool forWriting, FileShare share) {
  if (share == FileShare::kReadWrite) return kErrorSuccess;
  const int operation = (forWriting ? LOCK_EX : LOCK_SH) | LOCK_NB;
  if (RetryOnEintr([&] { return ::flock(fd, operation); }) == 0) return kErrorSuccess;
  switch (errno) {
    case EWOULDBLOCK:
      return kErrorSharingViolation;
    // A file system that can't lock opens unlocked: sharing is advice.
    case ENOLCK:
    case EINVAL:
    case EOPNOTSUPP:
    case ENOSYS:
      return kErrorSuccess;
    default:
      return LastError();
  }
}

// 0 as kErrorSuccess, any other errno as its Windows code.
int Translated(int err) { return err == 0 ? kErrorSuccess : TranslateErrno(err, false); }

}  // namespace

int OpenFileStream(const std::string& path, bool forWriting, FileShare share,
                   std::int64_t& outHandle) {
  outHandle = -1;
  if (path.empty()) return kErrorPathNotFound;
  const int flags = (forWriting ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOCTTY;
  ScopedFd fd(RetryOnEintr([&] { return ::open(path.c_str(), flags); }));
  if (!fd.valid()) return ErrorForPath(errno, path);

  // A directory opens for reading on Linux; a file stream must not.
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return LastError();
  if (S_ISDIR(st.st_mode)) return kErrorAccessDenied;
  if (const int error = Lock(fd.get(), forWriting, share)) return error;
  outHandle = fd.Release();
  return kErrorSuccess;
}

int CloseFileStream(std::int64_t handle) {
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  return Translated(ScopedFd(fd).Close());
}

int ReadFileStream(std::int64_t handle, unsigned char* dst, std::uint32_t count,
                   std::uint32_t& outDone) {
  outDone = 0;
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  std::size_t done = 0;
  const int err = internal::ReadAll(fd, dst, count, done);
  outDone = static_cast<std::uint32_t>(done);
  return Translated(err);
}

int WriteFileStream(std::int64_t handle, const unsigned char* src, std::uint32_t count) {
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  return Translated(internal::WriteAll(fd, src, count));
}

int GetFileStreamPosition(std::int64_t handle, std::uint64_t& outPos) {
  outPos = 0;
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  const off_t pos = ::lseek(fd, 0, SEEK_CUR);
  if (pos < 0) return LastError();
  outPos = static_cast<std::uint64_t>(pos);
  return kErrorSuccess;
}

int SetFileStreamPosition(std::int64_t handle, std::uint64_t pos) {
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  if (pos > static_cast<std::uint64_t>(LLONG_MAX)) return kErrorInvalidParameter;
  return ::lseek(fd, static_cast<off_t>(pos), SEEK_SET) < 0 ? LastError() : kErrorSuccess;
}

int GetFileStreamLength(std::int64_t handle, std::uint64_t& outLength) {
  outLength = 0;
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  struct stat st;
  if (::fstat(fd, &st) != 0) return LastError();
  outLength = static_cast<std::uint64_t>(st.st_size);
  return kErrorSuccess;
}

int SetFileStreamLength(std::int64_t handle, std::uint64_t length) {
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  if (length > static_cast<std::uint64_t>(LLONG_MAX)) return kErrorInvalidParameter;
  if (RetryOnEintr([&] { return ::ftruncate(fd, static_cast<off_t>(length)); }) == 0)
    return kErrorSuccess;
  return LastError();
}

int SyncFileStream(std::int64_t handle) {
  int fd;
  if (!ToFd(handle, fd)) return kErrorInvalidHandle;
  return RetryOnEintr([&] { return ::fsync(fd); }) == 0 ? kErrorSuccess : LastError();
}

}  // namespace tvxcore::platform
