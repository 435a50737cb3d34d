// Removing a directory tree through directory descriptors (RemoveTree in
// platform/FileSystem.h).
//
// Every step is relative to a descriptor of the directory that holds the
// entry (openat with O_NOFOLLOW, unlinkat), so a link met anywhere, or swapped
// in for a directory while the walk runs, is removed as a link and never
// entered. The walk keeps its own stack, one frame per level, and no more
// than a few dozen descriptors open whatever the depth: a frame whose
// descriptor was closed is opened again by names from the nearest open
// ancestor, checked by device and inode, never through "..".
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/TestSeams.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Descriptor budget. Frame i keeps its descriptor while the deepest frame is
// `top` if i is the root or `top`, or if for some k, i is a multiple of
// kStride^k less than kStride^k * kWindow levels above `top`: the last
// kWindow levels, every kStride-th of the last kStride * kWindow, and so on.
// That is at most kWindow descriptors per power of kStride of the depth
// (about 80 at a depth of 100,000), and going back up opens at most kStride
// levels again per kStride levels climbed at each power.
constexpr std::size_t kWindow = 16;
constexpr std::size_t kStride = 16;

bool Keep(std::size_t i, std::size_t top) {
  if (i == 0 || i >= top) return true;
  const std::size_t distance = top - i;
  for (std::size_t span = 1; span <= i; span *= kStride) {
    if (i % span != 0) return false;  // then no higher power divides it either
    if (distance < span * kWindow) return true;
  }
  return false;
}

struct Frame {
  std::string name;  // in the parent; empty for the root
  dev_t device = 0;
  ino_t inode = 0;
  ScopedFd fd;  // none while closed to keep within the budget
  bool scanned = false;
  std::vector<std::string> subdirs;  // still to remove, taken from the back
};

class TreeRemover {
 public:
  TreeRemover(const std::string& root, TreeRemovalFailure& failure)
      : root_(root), failure_(failure) {}
  TreeRemover(const TreeRemover&) = delete;
  TreeRemover& operator=(const TreeRemover&) = delete;

  int Run();

 private:
  // Records the entry `name` of frame `depth` (or that frame itself when
  // `name` is null) as the one that failed, and returns `error`.
  int Fail(int error, std::size_t depth, const std::string* name, bool isDirectory);
  // Lists frame `depth` once: removes what isn't a directory, and keeps the
  // names of the subdirectories.
  int Scan(std::size_t depth);
  // Gives frame `depth` its descriptor again, from the nearest open ancestor.
  int Reopen(std::size_t depth);
  // A descriptor of frame `level`, opened from the open frame `base` above
  // it, or minus the error (the level that failed in failedLevel_).
  int OpenBelow(std::size_t base, std::size_t level);
  // Whether `fd` is the directory of frame `level`.
  bool IsFrame(int fd, std::size_t level) const;
  // After a push: closes the descriptors that have just left the budget.
  void CloseUnkept(std::size_t top);
  int Open(int parent, const std::string& name) const {
    return RetryOnEintr([&] { return ::openat(parent, name.c_str(), kDirectoryFlags); });
  }

  const std::string& root_;
  TreeRemovalFailure& failure_;
  std::vector<Frame> frames_;
  std::unique_ptr<char[]> buffer_;
  bool openat2Usable_ = true;
  std::size_t failedLevel_ = 0;
};

constexpr std::size_t kBufferSize = 32 * 1024;

int TreeRemover::Fail(int error, std::size_t depth, const std::string* name, bool isDirectory) {
  std::string path = root_;
  for (std::size_t i = 1; i <= depth && i < frames_.size(); ++i) {
    if (path.empty() || path.back() != '/') path.push_back('/');
    path += frames_[i].name;
  }
  if (name != nullptr) {
    if (path.empty() || path.back() != '/') path.push_back('/');
    path += *name;
  }
  failure_.path = std::move(path);
  failure_.isDirectory = isDirectory;
  return error;
}

int TreeRemover::Run() {
  ScopedFd rootFd(RetryOnEintr([&] { return ::open(root_.c_str(), kDirectoryFlags); }));
  if (!rootFd.valid()) {
    const int err = errno;
    struct stat st;
    if ((err == ELOOP || err == ENOTDIR) && ::lstat(root_.c_str(), &st) == 0 &&
        S_ISLNK(st.st_mode)) {
      // A link names the tree: the link goes, what it points at stays.
      if (::unlink(root_.c_str()) != 0) return Fail(ErrorForPath(errno, root_), 0, nullptr, true);
      return kErrorSuccess;
    }
    // Nothing to list (missing, no directory, unreadable): it goes if empty.
    if (::rmdir(root_.c_str()) != 0) return Fail(ErrorForPath(errno, root_), 0, nullptr, true);
    return kErrorSuccess;
  }
  struct stat st;
  if (::fstat(rootFd.get(), &st) != 0) return Fail(TranslateErrno(errno, false), 0, nullptr, true);
  buffer_.reset(new char[kBufferSize]);
  Frame& rootFrame = frames_.emplace_back();
  rootFrame.device = st.st_dev;
  rootFrame.inode = st.st_ino;
  rootFrame.fd = std::move(rootFd);

  while (!frames_.empty()) {
    const std::size_t top = frames_.size() - 1;
    if (!frames_[top].fd.valid()) {
      if (const int error = Reopen(top)) return error;
    }
    if (!frames_[top].scanned) {
      if (const int error = Scan(top)) return error;
    }
    if (!frames_[top].subdirs.empty()) {
      std::string name = std::move(frames_[top].subdirs.back());
      frames_[top].subdirs.pop_back();
      seams::BeforeDescend(name);
      const int parent = frames_[top].fd.get();
      ScopedFd child(Open(parent, name));
      if (!child.valid()) {
        const int err = errno;
        if (err == ENOENT) continue;  // gone already
        if (err == ELOOP || err == ENOTDIR) {
          // No directory any more: a link or a file has taken its place since
          // the listing. It goes as what it is now.
          if (::unlinkat(parent, name.c_str(), 0) != 0 && errno != ENOENT)
            return Fail(TranslateErrno(errno, false), top, &name, false);
          continue;
        }
        // A directory that can't be opened (no permission): it goes if empty.
        if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
          return Fail(TranslateErrno(errno, false), top, &name, true);
        continue;
      }
      if (::fstat(child.get(), &st) != 0)
        return Fail(TranslateErrno(errno, false), top, &name, true);
      Frame& frame = frames_.emplace_back();
      frame.name = std::move(name);
      frame.device = st.st_dev;
      frame.inode = st.st_ino;
      frame.fd = std::move(child);
      CloseUnkept(top + 1);
      continue;
    }
    // Empty now: it goes from its parent.
    frames_[top].fd.Reset();
    if (top == 0) {
      if (::rmdir(root_.c_str()) != 0) return Fail(ErrorForPath(errno, root_), 0, nullptr, true);
      frames_.clear();
      break;
    }
    const std::string name = std::move(frames_[top].name);
    frames_.pop_back();
    if (!frames_[top - 1].fd.valid()) {
      if (const int error = Reopen(top - 1)) return error;
    }
    if (::unlinkat(frames_[top - 1].fd.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
      return Fail(TranslateErrno(errno, false), top - 1, &name, true);
  }
  return kErrorSuccess;
}

int TreeRemover::Scan(std::size_t depth) {
  Frame& frame = frames_[depth];
  std::vector<std::string> others;
  for (;;) {
    const ssize_t got =
        RetryOnEintr([&] { return ::getdents64(frame.fd.get(), buffer_.get(), kBufferSize); });
    if (got < 0) return Fail(TranslateErrno(errno, false), depth, nullptr, true);
    if (got == 0) break;
    for (ssize_t at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const struct dirent64*>(buffer_.get() + at);
      at += entry->d_reclen;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      unsigned char type = entry->d_type;
      if (type == DT_UNKNOWN) {
        struct stat st;
        if (::fstatat(frame.fd.get(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
          if (errno == ENOENT) continue;
          type = DT_REG;  // the unlink below reports what is wrong with it
        } else {
          type = S_ISDIR(st.st_mode) ? DT_DIR : DT_REG;
        }
      }
      (type == DT_DIR ? frame.subdirs : others).emplace_back(name);
    }
  }
  frame.scanned = true;
  // Files (and links, sockets, ...) first, then the subdirectories in
  // listing order.
  for (std::string& name : others) {
    if (::unlinkat(frame.fd.get(), name.c_str(), 0) == 0) continue;
    const int err = errno;
    if (err == ENOENT) continue;
    if (err == EISDIR) {  // a directory since the listing: removed as one
      frame.subdirs.push_back(std::move(name));
      continue;
    }
    return Fail(TranslateErrno(err, false), depth, &name, false);
  }
  std::reverse(frame.subdirs.begin(), frame.subdirs.end());
  return kErrorSuccess;
}

int TreeRemover::Reopen(std::size_t depth) {
  std::size_t base = depth;
  while (base > 0 && !frames_[base].fd.valid()) --base;
  // Only the frames within the budget get their descriptors back; the levels
  // between are passed through.
  for (std::size_t level = base + 1; level <= depth; ++level) {
    if (!Keep(level, depth)) continue;
    const int fd = OpenBelow(base, level);
    if (fd < 0) return Fail(-fd, failedLevel_, nullptr, true);
    frames_[level].fd.Reset(fd);
    base = level;
  }
  return kErrorSuccess;
}

bool TreeRemover::IsFrame(int fd, std::size_t level) const {
  struct stat st;
  return ::fstat(fd, &st) == 0 && st.st_dev == frames_[level].device &&
         st.st_ino == frames_[level].inode;
}

int TreeRemover::OpenBelow(std::size_t base, std::size_t level) {
  // Several levels in one call where the kernel can refuse every link on the
  // way (openat2 with RESOLVE_NO_SYMLINKS), and the names fit in one path.
  if (level - base > 1 && openat2Usable_) {
    std::string relative;
    for (std::size_t i = base + 1; i <= level && relative.size() < PATH_MAX; ++i) {
      if (!relative.empty()) relative.push_back('/');
      relative += frames_[i].name;
    }
    if (relative.size() < PATH_MAX) {
      struct open_how how = {};
      how.flags = kDirectoryFlags;
      how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
      ScopedFd fd(static_cast<int>(RetryOnEintr([&] {
        return ::syscall(SYS_openat2, frames_[base].fd.get(), relative.c_str(), &how, sizeof how);
      })));
      if (fd.valid()) {
        if (IsFrame(fd.get(), level)) return fd.Release();
      } else if (errno == ENOSYS || errno == EINVAL || errno == E2BIG || errno == EPERM) {
        openat2Usable_ = false;  // an older kernel, or a filter that forbids it
      }
      // Otherwise one level at a time finds the level that is wrong.
    }
  }
  ScopedFd transient;
  int parent = frames_[base].fd.get();
  for (std::size_t i = base + 1; i <= level; ++i) {
    ScopedFd fd(Open(parent, frames_[i].name));
    if (!fd.valid()) {
      failedLevel_ = i;
      return -TranslateErrno(errno, false);
    }
    // Another directory under the same name: not the one being removed.
    if (!IsFrame(fd.get(), i)) {
      failedLevel_ = i;
      return -static_cast<int>(kErrorAccessDenied);
    }
    parent = fd.get();
    transient = std::move(fd);
  }
  return transient.Release();
}

void TreeRemover::CloseUnkept(std::size_t top) {
  for (std::size_t span = 1; span * kWindow <= top; span *= kStride) {
    const std::size_t i = top - span * kWindow;
    if (i % span == 0 && !Keep(i, top)) frames_[i].fd.Reset();
  }
}

}  // namespace

int RemoveTree(const std::string& path, TreeRemovalFailure& outFailure) {
  if (path.empty()) {
    outFailure = {path, true};
    return kErrorPathNotFound;
  }
  TreeRemover remover(path, outFailure);
  return remover.Run();
}

}  // namespace tvxcore::platform
