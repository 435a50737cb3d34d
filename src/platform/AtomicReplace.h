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

// Makes the file at `path` ready to replace `model`: gives it the permission
// bits of `model` (when that exists) and commits its data and metadata to the
// storage device (fsync of a descriptor opened for the purpose). A failure
// here means the file may not be what was written: EIO, ENOSPC and EDQUOT come
// back as their codes. A file system that keeps nothing to sync is success.
int PrepareReplacement(const std::string& path, const std::string& model);

// Commits the entries of the directory at `path`, so a rename inside it
// survives a power loss (fsync of the directory).
int SyncDirectoryAtPath(const std::string& path);

// Creates the empty file `path` for the new version of `model`: exclusively
// (a leftover entry of that name is removed first), with the permission bits
// of `model` when that exists, plus reading and writing for the owner so the
// caller can fill it (PrepareReplacement takes the extra bits away again), and
// with the usual default (0666 less the umask) when it doesn't. Nobody but
// the owner gains access that the model doesn't give, at any moment.
int CreateFileLike(const std::string& path, const std::string& model);

}  // namespace tvxcore::platform
