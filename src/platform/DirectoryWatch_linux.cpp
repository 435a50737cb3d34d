#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/DirectoryWatch.h"
#include "platform/TestSeams.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {

const char kWatchLimitSetting[] = "/proc/sys/fs/inotify/max_user_watches";
const char kInstanceLimitSetting[] = "/proc/sys/fs/inotify/max_user_instances";

namespace {

// Everything that changes what a listing of the directory shows, and the end
// of the directory itself. IN_EXCL_UNLINK: a file that is gone but still
// open elsewhere is no longer reported.
constexpr std::uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                     IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_DELETE_SELF |
                                     IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;

std::uint32_t FlagsOf(std::uint32_t mask) {
  std::uint32_t flags = 0;
  if (mask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_ATTRIB |
              IN_CLOSE_WRITE))
    flags |= kEntriesChanged;
  if (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) flags |= kDirectoryGone;
  if (mask & IN_IGNORED) flags |= kWatchEnded;
  if (mask & IN_Q_OVERFLOW) flags |= kEventsLost;
  return flags;
}

}  // namespace

int DirectoryWatcher::Open() {
  if (fd_.valid()) return 0;
  if (const int injected = seams::TakeFailure(seams::Fault::kDirectoryWatcher)) return injected;
  const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return errno;
  fd_.Reset(fd);
  return 0;
}

int DirectoryWatcher::Add(const std::string& path, int& err) {
  if (!fd_.valid()) {
    err = EBADF;
    return 0;
  }
  if (const int injected = seams::TakeFailure(seams::Fault::kDirectoryWatch)) {
    err = injected;
    return 0;
  }
  const int watch = ::inotify_add_watch(fd_.get(), path.c_str(), kWatchMask);
  if (watch < 0) {
    err = errno;
    return 0;
  }
  err = 0;
  return watch;
}

void DirectoryWatcher::Remove(int watch) {
  if (fd_.valid() && watch > 0) ::inotify_rm_watch(fd_.get(), watch);
}

void DirectoryWatcher::Read(std::vector<DirectoryEvent>& out) {
  if (!fd_.valid()) return;
  alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
  // A bounded number of reads: under a flood the loop gets to deliver, and
  // the descriptor, still readable, brings the caller back.
  for (int reads = 0; reads < 64; ++reads) {
    const ssize_t n =
        internal::RetryOnEintr([&] { return ::read(fd_.get(), buffer, sizeof buffer); });
    if (n <= 0) return;  // EAGAIN: drained
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= n;) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      const std::uint32_t flags = FlagsOf(event.mask);
      // Consecutive records of one watch become one event.
      if (flags != 0) {
        if (!out.empty() && out.back().watch == event.wd)
          out.back().flags |= flags;
        else
          out.push_back(DirectoryEvent{event.wd, flags});
      }
      at += static_cast<ssize_t>(sizeof(inotify_event) + event.len);
    }
  }
}

int OpenMountTable(internal::ScopedFd& out) {
  const int fd =
      internal::RetryOnEintr([] { return ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC); });
  if (fd < 0) return errno;
  out.Reset(fd);
  return 0;
}

bool ReadMountTable(int fd, std::string& text) {
  text.clear();
  if (::lseek(fd, 0, SEEK_SET) != 0) return false;
  char buffer[8192];
  for (;;) {
    const ssize_t n = internal::RetryOnEintr([&] { return ::read(fd, buffer, sizeof buffer); });
    if (n < 0) return false;
    if (n == 0) return true;
    text.append(buffer, static_cast<std::size_t>(n));
  }
}

}  // namespace tvxcore::platform
