// platform/AtomicReplace.h: the calls behind replacing a file in one step.
//
// Each answers with a Windows system error code, 0 for success, as the other
// file-system calls do (FileSystem.h). Nothing throws.
#pragma once

#include <string>

namespace tvxcore::platform {

// Renames `from` onto `to` in one atomic step (rename(2)): an existing file at
// `to` is replaced, and at no moment is `to` missing. Both must be on one file
// system. A directory at `to` is not replaced.
int ReplaceFileAtomically(const std::string& from, const std::string& to);

// Commits the data and metadata of the file at `path` to the storage device
// (fsync of a descriptor opened for the purpose). A failure here means that
// bytes written earlier may not be on the device: EIO, ENOSPC and EDQUOT come
// back as their codes. A file system that keeps nothing to sync is success.
int SyncFileAtPath(const std::string& path);

// Commits the entries of the directory at `path`, so a rename inside it
// survives a power loss (fsync of the directory).
int SyncDirectoryAtPath(const std::string& path);

// Creates the empty file `path` for the new version of `model`: exclusively
// (a leftover entry of that name is removed first), with the permission bits
// of `model` when that exists and the usual default (0666 less the umask)
// when it doesn't. The bits are never wider than the model's at any moment.
int CreateFileLike(const std::string& path, const std::string& model);

// Gives `path` the permission bits of `model`, when `model` exists; nothing
// happens when it doesn't.
int MatchPermissions(const std::string& path, const std::string& model);

}  // namespace tvxcore::platform
