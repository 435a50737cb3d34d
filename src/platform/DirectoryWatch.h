// platform/DirectoryWatch.h: change notification for directories (inotify)
// and for the mount table. The change monitor above waits for both
// descriptors in its event loop and reads them when they signal.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/internal/ScopedFd.h"

namespace tvxcore::platform {

// What happened to a watched directory, as bits.
enum DirectoryEventFlags : std::uint32_t {
  kEntriesChanged = 1,  // an entry was created, removed, renamed, written or changed
  kDirectoryGone = 2,   // the directory itself was removed, moved away or unmounted
  kWatchEnded = 4,      // the kernel dropped the watch; its id means nothing now
  kEventsLost = 8,      // the queue overflowed: anything may have changed (watch 0)
};

struct DirectoryEvent {
  int watch;
  std::uint32_t flags;
};

// One inotify instance. Not thread-safe: one owner at a time.
class DirectoryWatcher {
 public:
  // 0, or the errno of inotify_init1 (EMFILE: the user's instance limit).
  int Open();
  bool IsOpen() const noexcept { return fd_.valid(); }
  // The descriptor to wait on (readable when events are queued).
  int Fd() const noexcept { return fd_.get(); }
  // Watches the directory at `path` (not following a final link, directories
  // only). The watch's id (above 0), or 0 with `err` set: ENOENT, ENOTDIR,
  // EACCES, ENOSPC (the user's watch limit), ...
  int Add(const std::string& path, int& err);
  // Ends a watch; unknown ids are ignored.
  void Remove(int watch);
  // Appends the events queued now (consecutive records of one watch as one
  // event), without blocking; stops after a bounded amount under a flood.
  void Read(std::vector<DirectoryEvent>& out);

 private:
  internal::ScopedFd fd_;
};

// Opens the process's mount table for change notification (urgent data
// when a mount comes or goes). 0 or an errno.
int OpenMountTable(internal::ScopedFd& out);
// Reads the whole table again from `fd`. False when it cannot be read.
bool ReadMountTable(int fd, std::string& text);

// Where the current limits are set, for messages to the user.
extern const char kWatchLimitSetting[];     // per user, watches
extern const char kInstanceLimitSetting[];  // per user, instances

}  // namespace tvxcore::platform
