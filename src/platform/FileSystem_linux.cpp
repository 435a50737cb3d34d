// Linux file-system calls behind platform/FileSystem.h.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "platform/FileSystem.h"
#include "platform/TestSeams.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

std::string ParentOf(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

int LastError(const std::string& path) { return ErrorForPath(errno, path); }

void Fill(const struct stat& st, FileAttributes& out) {
  out.isDirectory = S_ISDIR(st.st_mode);
  out.isReadOnly = (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

// Mount paths in mountinfo escape blank, tab, newline and backslash as \ooo.
std::string Unescape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      const char a = text[i + 1], b = text[i + 2], c = text[i + 3];
      if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
        out.push_back(static_cast<char>((a - '0') * 64 + (b - '0') * 8 + (c - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

// /dev/disk/by-label names escape unsafe bytes as \xHH.
std::string UnescapeHex(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x') {
      char hex[3] = {text[i + 2], text[i + 3], 0};
      char* end = nullptr;
      long value = std::strtol(hex, &end, 16);
      if (end == hex + 2) {
        out.push_back(static_cast<char>(value));
        i += 3;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

}  // namespace

int TranslateErrno(int err, bool parentMissing) {
  switch (err) {
    case 0:
      return kErrorSuccess;
    case ENOENT:
      return parentMissing ? kErrorPathNotFound : kErrorFileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
      return kErrorPathNotFound;
    case EACCES:
    case EPERM:
    case EISDIR:
      return kErrorAccessDenied;
    case EEXIST:
      return kErrorAlreadyExists;
    case ENOTEMPTY:
      return kErrorDirNotEmpty;
    case EROFS:
      return kErrorWriteProtect;
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case EIO:
      return kErrorIoDevice;
    case EBADF:
      return kErrorInvalidHandle;
    case EMFILE:
    case ENFILE:
      return kErrorTooManyOpenFiles;
    case ENOMEM:
      return kErrorNotEnoughMemory;
    case EXDEV:
      return kErrorNotSameDevice;
    case EBUSY:
    case ETXTBSY:
      return kErrorBusy;
    case EINVAL:
      return kErrorInvalidParameter;
    case EILSEQ:
      return kErrorInvalidName;
    case EFBIG:
      return kErrorDiskFull;
    case ENODEV:
    case ENXIO:
    case ENOMEDIUM:
      return kErrorNotReady;
    case ENOTSUP:
    case ENOSYS:
      return kErrorNotSupported;
    case ECANCELED:
      return kErrorRequestAborted;
    case EPIPE:
      return kErrorBrokenPipe;
    case EHOSTUNREACH:
    case ENETUNREACH:
    case EHOSTDOWN:
    case ECONNREFUSED:
      return kErrorBadNetPath;
    case ETIMEDOUT:
      return kErrorTimeout;
    case EAGAIN:
      return kErrorLockViolation;
    default:
      return kErrorInvalidFunction;
  }
}

int ErrorForPath(int err, const std::string& path) {
  bool parentMissing = false;
  if (err == ENOENT) {
    struct stat st;
    const std::string parent = ParentOf(path);
    parentMissing = ::stat(parent.c_str(), &st) != 0 || !S_ISDIR(st.st_mode);
  }
  return TranslateErrno(err, parentMissing);
}

int GetAttributes(const std::string& path, FileAttributes& out) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return LastError(path);
  Fill(st, out);
  out.isSymlink = false;
  struct stat lst;
  if (::lstat(path.c_str(), &lst) == 0) out.isSymlink = S_ISLNK(lst.st_mode);
  return kErrorSuccess;
}

int GetLinkAttributes(const std::string& path, FileAttributes& out) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return LastError(path);
  Fill(st, out);
  out.isSymlink = S_ISLNK(st.st_mode);
  return kErrorSuccess;
}

int CreateEmptyFile(const std::string& path, bool failIfExists) {
  int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (failIfExists ? O_EXCL : O_TRUNC);
  ScopedFd fd(RetryOnEintr([&] { return ::open(path.c_str(), flags, 0666); }));
  if (!fd.valid()) {
    const int err = errno;
    if (err == EEXIST) return kErrorFileExists;
    return ErrorForPath(err, path);
  }
  return kErrorSuccess;
}

int DeleteFile(const std::string& path) {
  struct stat st;
  // unlink() of a directory is EISDIR on Linux but EPERM elsewhere: be exact.
  if (::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return kErrorAccessDenied;
  if (::unlink(path.c_str()) != 0) return LastError(path);
  return kErrorSuccess;
}

int CreateDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0777) != 0) return LastError(path);
  return kErrorSuccess;
}

int RemoveDirectory(const std::string& path) {
  if (::rmdir(path.c_str()) != 0) return LastError(path);
  return kErrorSuccess;
}

int MovePath(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
    return kErrorSuccess;
  int err = errno;
  if (err == EINVAL || err == ENOSYS) {
    // File systems without RENAME_NOREPLACE: test first, then rename.
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) return kErrorAlreadyExists;
    if (::rename(from.c_str(), to.c_str()) == 0) return kErrorSuccess;
    err = errno;
  }
  if (err == ENOENT) {
    struct stat st;
    if (::lstat(from.c_str(), &st) != 0) return ErrorForPath(err, from);
    return ErrorForPath(err, to);
  }
  return TranslateErrno(err, false);
}

int GetFileTimes(const std::string& path, FileTime& outCreated, FileTime& outModified) {
  struct statx sx;
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_MTIME | STATX_BTIME, &sx) != 0)
    return LastError(path);
  outModified = {sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec};
  // Some file systems set the mask yet report a zero birth time.
  if ((sx.stx_mask & STATX_BTIME) && (sx.stx_btime.tv_sec != 0 || sx.stx_btime.tv_nsec != 0))
    outCreated = {sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec};
  else
    outCreated = outModified;
  return kErrorSuccess;
}

int GetFileSize(const std::string& path, std::uint64_t& outSize) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return LastError(path);
  outSize = S_ISDIR(st.st_mode) ? 0 : static_cast<std::uint64_t>(st.st_size);
  return kErrorSuccess;
}

int ListDirectoryBlocks(const std::string& path,
                        const std::function<bool(const DirEntry*, std::size_t)>& visit) {
  ScopedFd fd(RetryOnEintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC); }));
  if (!fd.valid()) return LastError(path);
  // One read takes in a directory of about a thousand entries. The buffers
  // stay with the thread for its next listing (fresh ones each time cost page
  // faults); a listing started from inside `visit` makes its own.
  constexpr std::size_t kBufferSize = 64 * 1024;
  struct Buffers {
    std::unique_ptr<char[]> bytes;
    std::vector<DirEntry> entries;
  };
  thread_local std::unique_ptr<Buffers> spare;
  std::unique_ptr<Buffers> buffers = std::move(spare);
  if (!buffers) {
    buffers = std::make_unique<Buffers>();
    buffers->bytes.reset(new char[kBufferSize]);
  }
  struct GiveBack {
    std::unique_ptr<Buffers>& buffers;
    ~GiveBack() {
      if (!spare) spare = std::move(buffers);
    }
  } giveBack{buffers};
  char* const buffer = buffers->bytes.get();
  std::vector<DirEntry>& entries = buffers->entries;
  for (;;) {
    const ssize_t got = RetryOnEintr([&] { return ::getdents64(fd.get(), buffer, kBufferSize); });
    if (got <= 0) break;  // the end, or a failure part way, which ends the listing too
    entries.clear();
    for (ssize_t at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const struct dirent64*>(buffer + at);
      at += entry->d_reclen;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      DirEntry& out = entries.emplace_back();
      out.name = std::string_view(name, std::strlen(name));
      unsigned char type = entry->d_type;
      if (type == DT_UNKNOWN) {
        struct stat st;
        if (::fstatat(fd.get(), name, &st, AT_SYMLINK_NOFOLLOW) == 0)
          type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISLNK(st.st_mode) ? DT_LNK : DT_REG;
      }
      if (type == DT_LNK) {
        out.isSymlink = true;
        struct stat st;
        out.isDirectory = ::fstatat(fd.get(), name, &st, 0) == 0 && S_ISDIR(st.st_mode);
      } else {
        out.isDirectory = type == DT_DIR;
      }
    }
    if (!entries.empty() && !visit(entries.data(), entries.size())) break;
  }
  return kErrorSuccess;
}

int ListDirectory(const std::string& path, const std::function<bool(const DirEntry&)>& visit) {
  return ListDirectoryBlocks(path, [&](const DirEntry* entries, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
      if (!visit(entries[i])) return false;
    return true;
  });
}

std::vector<MountPoint> ReadMounts() {
  std::ifstream in("/proc/self/mountinfo");
  std::ostringstream text;
  text << in.rdbuf();
  return ParseMounts(text.str());
}

std::vector<MountPoint> ParseMounts(const std::string& text) {
  std::vector<MountPoint> mounts;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    // id parent major:minor root mountpoint options [optional...] - type source super
    std::istringstream fields(line);
    std::string id, parent, device, root, point, options, field;
    if (!(fields >> id >> parent >> device >> root >> point >> options)) continue;
    while (fields >> field && field != "-") {
    }
    MountPoint mount;
    mount.path = Unescape(point);
    if (!(fields >> mount.fsType)) continue;
    fields >> mount.source;
    mount.source = Unescape(mount.source);
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

bool FindMount(const std::string& path, MountPoint& out) {
  bool found = false;
  std::size_t best = 0;
  for (auto& mount : ReadMounts()) {
    const std::string& mp = mount.path;
    bool under =
        path == mp || (mp == "/" && !path.empty() && path[0] == '/') ||
        (path.size() > mp.size() && path.compare(0, mp.size(), mp) == 0 && path[mp.size()] == '/');
    // Later lines stack over earlier ones on the same point, so ">=".
    if (under && (!found || mp.size() >= best)) {
      out = std::move(mount);
      best = out.path.size();
      found = true;
    }
  }
  return found;
}

bool IsNetworkFileSystem(const std::string& fsType) {
  static const char* const kNetwork[] = {"nfs",           "nfs4", "cifs", "smb3",  "smbfs",
                                         "fuse.sshfs",    "9p",   "afs",  "ncpfs", "ceph",
                                         "fuse.glusterfs"};
  for (const char* type : kNetwork)
    if (fsType == type) return true;
  return false;
}

DriveType GetDriveType(const MountPoint& mount) {
  static const char* const kDiskTypes[] = {"ext2", "ext3",    "ext4",    "xfs",    "btrfs",
                                           "vfat", "exfat",   "ntfs",    "ntfs3",  "f2fs",
                                           "zfs",  "hfsplus", "fuseblk", "overlay"};
  if (IsNetworkFileSystem(mount.fsType)) return kDriveRemote;
  if (mount.fsType == "iso9660" || mount.fsType == "udf") return kDriveCdRom;
  if (mount.fsType == "tmpfs" || mount.fsType == "ramfs") return kDriveRamDisk;
  bool disk = mount.source.rfind("/dev/", 0) == 0;
  for (const char* type : kDiskTypes) disk = disk || mount.fsType == type;
  if (!disk) return kDriveUnknown;
  if (mount.source.rfind("/dev/", 0) != 0) return kDriveFixed;
  // /sys/class/block/<name> is the partition; "removable" sits on the disk.
  char resolved[PATH_MAX];
  if (::realpath(mount.source.c_str(), resolved) == nullptr) return kDriveFixed;
  std::string name = resolved;
  name = name.substr(name.find_last_of('/') + 1);
  char sysPath[PATH_MAX];
  std::snprintf(sysPath, sizeof sysPath, "/sys/class/block/%s", name.c_str());
  if (::realpath(sysPath, resolved) == nullptr) return kDriveFixed;
  std::string device = resolved;
  for (int level = 0; level < 2; ++level) {
    std::ifstream removable(device + "/removable");
    int flag = 0;
    if (removable >> flag) return flag ? kDriveRemovable : kDriveFixed;
    device = ParentOf(device);
  }
  return kDriveFixed;
}

bool GetVolumeLabel(const MountPoint& mount, std::string& outLabel) {
  char device[PATH_MAX];
  if (mount.source.rfind("/dev/", 0) != 0 || ::realpath(mount.source.c_str(), device) == nullptr)
    return false;
  bool found = false;
  ListDirectory("/dev/disk/by-label", [&](const DirEntry& entry) {
    std::string link = "/dev/disk/by-label/" + std::string(entry.name);
    char target[PATH_MAX];
    if (::realpath(link.c_str(), target) != nullptr && std::strcmp(target, device) == 0) {
      outLabel = UnescapeHex(std::string(entry.name));
      found = true;
      return false;
    }
    return true;
  });
  return found;
}

int GetVolumeSpace(const std::string& path, std::uint64_t& outFreeForCaller,
                   std::uint64_t& outTotal) {
  struct statvfs sv;
  if (::statvfs(path.c_str(), &sv) != 0) return LastError(path);
  outFreeForCaller = static_cast<std::uint64_t>(sv.f_bavail) * sv.f_frsize;
  outTotal = static_cast<std::uint64_t>(sv.f_blocks) * sv.f_frsize;
  return kErrorSuccess;
}

namespace {

// Errors of a transfer that belong to the file being written; the others
// are taken to come from reading the source.
bool IsWriteSideError(int err) {
  return err == ENOSPC || err == EDQUOT || err == EFBIG || err == EROFS;
}

// A name in `dir` for the copy under way, made with O_EXCL. The name is
// hidden and shortened so that it stays within NAME_MAX.
int CreateCopyTemp(const std::string& dir, const std::string& name, std::string& outPath,
                   ScopedFd& outFd) {
  static std::atomic<unsigned> counter{0};
  constexpr std::size_t kNameBytes = 64;
  for (int attempt = 0;; ++attempt) {
    char suffix[64];
    std::snprintf(suffix, sizeof suffix, ".%d-%u.tvxcopy", static_cast<int>(::getpid()),
                  counter.fetch_add(1, std::memory_order_relaxed));
    outPath = (dir == "/" ? std::string() : dir) + "/." + name.substr(0, kNameBytes) + suffix;
    outFd.Reset(RetryOnEintr([&] {
      return ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0600);
    }));
    if (outFd.valid()) return kErrorSuccess;
    if (errno != EEXIST || attempt == 100) return ErrorForPath(errno, outPath);
  }
}

}  // namespace

int CopyFileContents(const std::string& from, const std::string& to,
                     const std::function<bool(double)>& progress, CopySide& outFailedSide) {
  outFailedSide = CopySide::kSource;
  ScopedFd in(RetryOnEintr([&] { return ::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); }));
  if (!in.valid()) return LastError(from);
  struct stat st;
  if (::fstat(in.get(), &st) != 0) return TranslateErrno(errno, false);
  if (S_ISDIR(st.st_mode)) return kErrorAccessDenied;

  // What the copy replaces: the file that a link at `to` leads to, else `to`.
  outFailedSide = CopySide::kDestination;
  if (to.empty()) return kErrorPathNotFound;
  std::string target = to;
  struct stat existing;
  const bool replaces = ::stat(to.c_str(), &existing) == 0;
  if (replaces) {
    if (S_ISDIR(existing.st_mode)) return kErrorAccessDenied;
    if (existing.st_dev == st.st_dev && existing.st_ino == st.st_ino) {
      // Onto itself: the copy would be the file it replaces. Refused.
      outFailedSide = CopySide::kSource;
      return kErrorSharingViolation;
    }
    // A file the caller may not write is not replaced either.
    if (::faccessat(AT_FDCWD, to.c_str(), W_OK, AT_EACCESS) != 0) return LastError(to);
    struct stat link;
    if (::lstat(to.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
      std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(to.c_str(), nullptr),
                                                           &std::free);
      if (resolved) target = resolved.get();
    }
  } else if (errno != ENOENT) {
    return LastError(to);
  }
  std::string name = target;
  while (name.size() > 1 && name.back() == '/') name.pop_back();
  name = name.substr(name.find_last_of('/') + 1);

  std::string tempPath;
  ScopedFd out;
  if (const int error = CreateCopyTemp(ParentOf(target), name, tempPath, out)) return error;
  // From here on every failure removes the unfinished copy.
  auto fail = [&](int error, CopySide side) {
    out.Reset();
    ::unlink(tempPath.c_str());
    outFailedSide = side;
    return error;
  };
  const std::uint64_t total = static_cast<std::uint64_t>(st.st_size);
  constexpr std::size_t kChunk = 1 << 20;
  std::uint64_t done = 0;
  bool useRange = true;
  if (progress && progress(0.0)) return fail(kErrorRequestAborted, CopySide::kSource);
  for (;;) {
    ssize_t n;
    if (const int injected = seams::TakeFailure(seams::Fault::kWrite)) {
      errno = injected;
      n = -1;
    } else if (useRange) {
      n = RetryOnEintr(
          [&] { return ::copy_file_range(in.get(), nullptr, out.get(), nullptr, kChunk, 0); });
      if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
        useRange = false;
        continue;
      }
    } else {
      n = RetryOnEintr([&] { return ::sendfile(out.get(), in.get(), nullptr, kChunk); });
    }
    if (n < 0) {
      const int err = errno;
      return fail(TranslateErrno(err, false),
                  IsWriteSideError(err) ? CopySide::kDestination : CopySide::kSource);
    }
    if (n == 0) break;
    done += static_cast<std::uint64_t>(n);
    if (progress && progress(total ? static_cast<double>(done) / static_cast<double>(total) : 1.0))
      return fail(kErrorRequestAborted, CopySide::kSource);
  }
  if (progress && total == 0 && progress(1.0)) return fail(kErrorRequestAborted, CopySide::kSource);
  // The permission bits of the source, as far as the file system keeps them.
  ::fchmod(out.get(), st.st_mode & 07777);
  // A file that is replaced is gone for good: the copy is on the device first.
  if (replaces) {
    int injected = seams::TakeFailure(seams::Fault::kSync);
    if (injected == 0 && RetryOnEintr([&] { return ::fsync(out.get()); }) != 0 && errno != EINVAL &&
        errno != EROFS)
      injected = errno;
    if (injected != 0) return fail(TranslateErrno(injected, false), CopySide::kDestination);
  }
  if (const int err = out.Close()) return fail(TranslateErrno(err, false), CopySide::kDestination);
  if (::rename(tempPath.c_str(), target.c_str()) != 0) {
    const int err = errno;
    return fail(err == EISDIR || err == ENOTEMPTY ? static_cast<int>(kErrorAccessDenied)
                                                  : ErrorForPath(err, target),
                CopySide::kDestination);
  }
  return kErrorSuccess;
}

int GetFileId(const std::string& path, FileId& out) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return LastError(path);
  out.device = static_cast<std::uint64_t>(st.st_dev);
  out.inode = static_cast<std::uint64_t>(st.st_ino);
  return kErrorSuccess;
}

int CopyTimesAndMode(const std::string& from, const std::string& to) {
  struct stat st;
  if (::stat(from.c_str(), &st) != 0) return LastError(from);
  struct timespec times[2] = {st.st_atim, st.st_mtim};
  if (::utimensat(AT_FDCWD, to.c_str(), times, 0) != 0) return LastError(to);
  if (::chmod(to.c_str(), st.st_mode & 07777) != 0) return LastError(to);
  return kErrorSuccess;
}

int SetModifiedToNow(const std::string& path) {
  struct timespec times[2] = {{0, UTIME_OMIT}, {0, UTIME_NOW}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) return LastError(path);
  return kErrorSuccess;
}

int WriteBytes(const std::string& path, std::string_view bytes, bool append) {
  const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC);
  ScopedFd fd(RetryOnEintr([&] { return ::open(path.c_str(), flags, 0666); }));
  if (!fd.valid()) return LastError(path);
  if (const int err = internal::WriteAll(fd.get(), bytes.data(), bytes.size()))
    return TranslateErrno(err, false);
  if (const int err = fd.Close()) return TranslateErrno(err, false);
  return kErrorSuccess;
}

int GetHostName(std::string& out) {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) return TranslateErrno(errno, false);
  out = name;
  return kErrorSuccess;
}

int ReadSymbolicLink(const std::string& path, std::string& outTarget) {
  std::string buffer(256, '\0');
  for (;;) {
    ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
    if (n < 0) return errno == EINVAL ? kErrorInvalidParameter : LastError(path);
    if (static_cast<std::size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<std::size_t>(n));
      break;
    }
    buffer.resize(buffer.size() * 2);
  }
  if (!buffer.empty() && buffer[0] != '/') {
    std::string parent = ParentOf(path);
    buffer = (parent == "/" ? std::string() : parent) + "/" + buffer;
  }
  outTarget = std::move(buffer);
  return kErrorSuccess;
}

int CreateSymbolicLink(const std::string& target, const std::string& link) {
  if (::symlink(target.c_str(), link.c_str()) != 0) return LastError(link);
  return kErrorSuccess;
}

}  // namespace tvxcore::platform
