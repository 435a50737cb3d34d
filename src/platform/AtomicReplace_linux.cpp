// Linux calls behind platform/AtomicReplace.h.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/AtomicReplace.h"
#include "platform/FileSystem.h"

namespace tvxcore::platform {
namespace {

int SyncOpened(const std::string& path, int flags) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return ErrorForPath(errno, path);
  int result = 0;
  if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) {
    // EINVAL/EROFS: the file system keeps nothing to sync (pipes, some
    // special or read-only file systems); there is nothing left to commit.
    result = TranslateErrno(errno, false);
  }
  ::close(fd);
  return result;
}

}  // namespace

int ReplaceFileAtomically(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) == 0) return kErrorSuccess;
  const int err = errno;
  return err == ENOENT ? ErrorForPath(err, from) : TranslateErrno(err, false);
}

int SyncFileAtPath(const std::string& path) { return SyncOpened(path, O_RDONLY); }

int SyncDirectoryAtPath(const std::string& path) {
  return SyncOpened(path.empty() ? std::string(".") : path, O_RDONLY | O_DIRECTORY);
}

}  // namespace tvxcore::platform
