// platform/FileSystem.h: the file-system calls of tvxcore.
//
// Every function takes native paths (UTF-8 bytes, as the kernel sees them) and
// answers with a Windows system error code: 0 for success, otherwise the code
// that TranslateErrno() gives for the errno of the failing call. The tables of
// the file classes stay keyed by those codes, so the same logic serves every
// platform. Nothing here throws.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tvxcore::platform {

// Windows error codes the library's tables are keyed by.
enum WinError : int {
  kErrorSuccess = 0,
  kErrorInvalidFunction = 1,
  kErrorFileNotFound = 2,
  kErrorPathNotFound = 3,
  kErrorTooManyOpenFiles = 4,
  kErrorAccessDenied = 5,
  kErrorInvalidHandle = 6,
  kErrorNotEnoughMemory = 8,
  kErrorOutOfMemory = 14,
  kErrorNotSameDevice = 17,
  kErrorWriteProtect = 19,
  kErrorNotReady = 21,
  kErrorSharingViolation = 32,
  kErrorLockViolation = 33,
  kErrorHandleEof = 38,
  kErrorNotSupported = 50,
  kErrorBadNetPath = 53,
  kErrorFileExists = 80,
  kErrorInvalidParameter = 87,
  kErrorBrokenPipe = 109,
  kErrorDiskFull = 112,
  kErrorInvalidName = 123,
  kErrorDirNotEmpty = 145,
  kErrorBusy = 170,
  kErrorAlreadyExists = 183,
  kErrorFilenameExcedRange = 206,
  kErrorMoreData = 234,
  kErrorCantResolveFilename = 1921,
  kErrorIoDevice = 1117,
  kErrorRequestAborted = 1235,
  kErrorNotConnected = 2250,
  kErrorTimeout = 1460,
};

// The Windows code nearest to `err`. `parentMissing` tells an ENOENT on a
// missing parent directory (3) from one on the named file itself (2).
int TranslateErrno(int err, bool parentMissing);

// TranslateErrno for a failed call on `path`: for ENOENT it looks whether the
// parent directory is there.
int ErrorForPath(int err, const std::string& path);

struct FileAttributes {
  bool isDirectory = false;
  bool isReadOnly = false;  // no write permission bit at all
  bool isSymlink = false;   // the path itself is a symbolic link
};

// stat() of the path (links followed). A broken link reads as missing.
int GetAttributes(const std::string& path, FileAttributes& out);
// lstat() of the path: a link is reported as itself.
int GetLinkAttributes(const std::string& path, FileAttributes& out);

// Creates an empty file and closes it. With `failIfExists` an existing file is
// kErrorFileExists; otherwise it is truncated.
int CreateEmptyFile(const std::string& path, bool failIfExists);
int DeleteFile(const std::string& path);
int CreateDirectory(const std::string& path);
int RemoveDirectory(const std::string& path);

// The entry RemoveTree stopped at.
struct TreeRemovalFailure {
  std::string path;         // the full path of the entry
  bool isDirectory = true;  // a directory (or the tree itself), else a file or link
};
// Removes the directory at `path` and everything below it, files before
// subdirectories, and never follows a symbolic link: a link at `path` itself
// or anywhere inside is removed as the link it is, and its target stays. An
// entry swapped for a link while the removal runs is not entered either. No
// recursion and a bounded number of descriptors at any depth. Stops at the
// first entry that can't be removed: its error, and the entry in `outFailure`.
int RemoveTree(const std::string& path, TreeRemovalFailure& outFailure);

// What makes a file itself: its device and inode (links followed).
struct FileId {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  bool operator==(const FileId&) const = default;
};
int GetFileId(const std::string& path, FileId& out);
// Moves without replacing: an existing target is kErrorAlreadyExists.
int MovePath(const std::string& from, const std::string& to);

// Seconds and nanoseconds since 1970-01-01 UTC.
struct FileTime {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
};
// Birth time when the file system records one, else the modification time.
int GetFileTimes(const std::string& path, FileTime& outCreated, FileTime& outModified);
int GetFileSize(const std::string& path, std::uint64_t& outSize);

// One entry of a directory listing. `isDirectory` follows symbolic links; a
// broken link is a file with `isSymlink` set.
struct DirEntry {
  std::string_view name;
  bool isDirectory = false;
  bool isSymlink = false;
};
// Calls `visit` for every entry but "." and ".."; a false result stops the
// listing. The return is the error of opening the directory.
int ListDirectory(const std::string& path, const std::function<bool(const DirEntry&)>& visit);
// The same, a block of entries at a time as the kernel hands them out (large
// reads, one call per block). The entries and their names live until `visit`
// returns.
int ListDirectoryBlocks(const std::string& path,
                        const std::function<bool(const DirEntry*, std::size_t)>& visit);

// A mounted file system from /proc/self/mountinfo.
struct MountPoint {
  std::string path;    // where it is mounted
  std::string fsType;  // ext4, nfs, cifs, tmpfs, ...
  std::string source;  // /dev/sda1, //server/share, server:/export
};
std::vector<MountPoint> ReadMounts();
// The mounts of a mountinfo text; lines it cannot read are skipped.
std::vector<MountPoint> ParseMounts(const std::string& text);
// The mount whose path is the longest prefix of `path`; false if none.
bool FindMount(const std::string& path, MountPoint& out);
bool IsNetworkFileSystem(const std::string& fsType);

// Drive kinds in the order of the Windows drive types.
enum DriveType : int {
  kDriveUnknown = 0,
  kDriveNoRootDir = 1,
  kDriveRemovable = 2,
  kDriveFixed = 3,
  kDriveRemote = 4,
  kDriveCdRom = 5,
  kDriveRamDisk = 6,
};
DriveType GetDriveType(const MountPoint& mount);
// The label of the device in /dev/disk/by-label, unescaped; false if none.
bool GetVolumeLabel(const MountPoint& mount, std::string& outLabel);
int GetVolumeSpace(const std::string& path, std::uint64_t& outFreeForCaller,
                   std::uint64_t& outTotal);

// The side of a copy that a failure belongs to.
enum class CopySide { kSource, kDestination };
// Copies the contents and permission bits of `from` to `to`, replacing it.
// The bytes go to a new file beside `to`, which is renamed onto `to` when it
// is complete (and, when it replaces a file, synced first): `to` holds its old
// contents or the whole copy, never a part. A link at `to` has the file it
// leads to replaced. `from` and `to` naming one file (the same device and
// inode, through a hard or symbolic link too) is refused with
// kErrorSharingViolation, and nothing is touched. `progress` is told the
// fraction done after each chunk; a true answer cancels with
// kErrorRequestAborted. On any failure the new file is removed, and
// `outFailedSide` says whether the source or the destination failed.
int CopyFileContents(const std::string& from, const std::string& to,
                     const std::function<bool(double)>& progress, CopySide& outFailedSide);
// Copies modification and access times and the permission bits.
int CopyTimesAndMode(const std::string& from, const std::string& to);
int SetModifiedToNow(const std::string& path);
// Writes bytes to a file, creating it; `append` adds at its end instead.
int WriteBytes(const std::string& path, std::string_view bytes, bool append);

// The host name, as gethostname() gives it.
int GetHostName(std::string& out);

// The target of the symbolic link at `path`, joined to the link's directory
// when relative. kErrorInvalidParameter when `path` is no link.
int ReadSymbolicLink(const std::string& path, std::string& outTarget);
int CreateSymbolicLink(const std::string& target, const std::string& link);

}  // namespace tvxcore::platform
