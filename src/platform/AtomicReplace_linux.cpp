// Linux calls behind platform/AtomicReplace.h.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/AtomicReplace.h"
#include "platform/FileSystem.h"
#include "platform/TestSeams.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

int Open(const std::string& path, int flags, mode_t mode = 0) {
  return RetryOnEintr([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); });
}

int SyncDescriptor(int fd) {
  if (const int injected = seams::TakeFailure(seams::Fault::kSync))
    return TranslateErrno(injected, false);
  // EINVAL/EROFS: the file system keeps nothing to sync (pipes, some special
  // or read-only file systems); there is nothing left to commit.
  if (RetryOnEintr([&] { return ::fsync(fd); }) != 0 && errno != EINVAL && errno != EROFS)
    return TranslateErrno(errno, false);
  return kErrorSuccess;
}

}  // namespace

int ReplaceFileAtomically(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) == 0) return kErrorSuccess;
  const int err = errno;
  return err == ENOENT ? ErrorForPath(err, from) : TranslateErrno(err, false);
}

int PrepareReplacement(const std::string& path, const std::string& model) {
  ScopedFd fd(Open(path, O_RDONLY));
  // A file its owner may only write to is reached through a descriptor for writing.
  if (!fd.valid() && errno == EACCES) fd.Reset(Open(path, O_WRONLY));
  if (!fd.valid()) return ErrorForPath(errno, path);
  struct stat wanted, current;
  if (::stat(model.c_str(), &wanted) == 0 && !S_ISDIR(wanted.st_mode) &&
      (::fstat(fd.get(), &current) != 0 || (current.st_mode & 07777) != (wanted.st_mode & 07777)) &&
      ::fchmod(fd.get(), wanted.st_mode & 07777) != 0)
    return TranslateErrno(errno, false);
  if (const int error = SyncDescriptor(fd.get())) return error;
  const int closeError = fd.Close();
  return closeError == 0 ? kErrorSuccess : TranslateErrno(closeError, false);
}

int SyncDirectoryAtPath(const std::string& path) {
  ScopedFd fd(Open(path.empty() ? std::string(".") : path, O_RDONLY | O_DIRECTORY));
  if (!fd.valid()) return ErrorForPath(errno, path);
  return SyncDescriptor(fd.get());
}

int CreateFileLike(const std::string& path, const std::string& model) {
  struct stat st;
  const bool hasModel = ::stat(model.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
  // Owner-only until the model's bits are set.
  const mode_t createMode = hasModel ? 0600 : 0666;
  for (int attempt = 0;; ++attempt) {
    ScopedFd fd(Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, createMode));
    if (!fd.valid()) {
      if (errno == EEXIST && attempt == 0 && ::unlink(path.c_str()) == 0) continue;
      return ErrorForPath(errno, path);
    }
    if (hasModel && ::fchmod(fd.get(), (st.st_mode & 07777) | S_IRUSR | S_IWUSR) != 0) {
      const int err = errno;
      ::unlink(path.c_str());
      return TranslateErrno(err, false);
    }
    return kErrorSuccess;
  }
}

}  // namespace tvxcore::platform
