// tvxcore/utility/FileUtils.h: the library's toolbox of functions on paths.
//
// Stateless functions on paths held as UTF16String: splitting and joining,
// volumes (mount points on Linux), tests and small actions on the file system,
// legal file names, and the symbolic links that serve as the platform's
// aliases. Most answer with a bool; those that say so throw the exceptions of
// filesupport/FileExceptions.h. All are reentrant; the server host cache is
// guarded by its own lock.
#pragma once

#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::FileUtils {

inline constexpr UTF16Char kFilePathSeparator_WIN = u'\\';
inline constexpr UTF16Char kFilePathSeparator_MAC = u'/';
// The separator of native paths.
inline constexpr UTF16Char kFilePathSeparator = u'/';

// The nine units that no file name may hold: \ / : * ? " < > |
TVXCORE_EXPORT const UTF16String& GetIllegalFilenameCharacters();

// --- Splitting and joining (native paths: "/" is the only separator) ---

// Parent (before the last "/"; "/" itself for a name in the root), title
// (behind it, up to its last "."), and extension (from that "." on, written
// only when there is one). Each out pointer may be null.
TVXCORE_EXPORT void SplitLongPath(const UTF16String& path, UTF16String* outParent,
                                  UTF16String* outTitle, UTF16String* outExtension);
// The text before the last "/", with one trailing "/" removed; "/" for a name
// in the root. False when there is none.
TVXCORE_EXPORT bool GetParentPath(const UTF16String& path, UTF16String& out);
// The text behind the last "/"; empty when there is no "/".
TVXCORE_EXPORT UTF16String GetPathFileName(const UTF16String& path);
// `dir`, a "/" unless `dir` is empty or ends in one, and `name`.
TVXCORE_EXPORT void BuildPathSpec(const UTF16String& dir, const UTF16String& name,
                                  UTF16String& out);
// A form for comparing paths, not for the platform: canonical composition
// (NFC), then case folding.
TVXCORE_EXPORT UTF16String NormalizePath(const UTF16String& path);
TVXCORE_EXPORT bool PathsEqual(const UTF16String& a, const UTF16String& b);

// --- Volumes ---

// The volume of a path: for a native absolute path the mount point that holds
// it; for a Windows-form path its drive ("C:") or share ("\\srv\share").
// True when `out` isn't empty.
TVXCORE_EXPORT bool GetVolumePath(const UTF16String& path, UTF16String& out);
// The Windows rule alone, on the string: "\\srv\share" of a UNC path, the two
// units of a drive-letter path, else nothing.
TVXCORE_EXPORT bool GetWindowsVolumePath(const UTF16String& path, UTF16String& out);
// Throw create_fnf_exception when the path has no volume.
TVXCORE_EXPORT bool IsRoot(const UTF16String& path);
TVXCORE_EXPORT bool OnSameVolume(const UTF16String& a, const UTF16String& b);
// The extended Windows form: unchanged if it holds "\\?\"; "\\?\UNC" for the
// first unit of a path with two adjacent backslashes; "\\?\" before a
// drive-letter path; anything else unchanged.
TVXCORE_EXPORT UTF16String ExtendedPathForm(const UTF16String& path);

// --- Tests on the file system ---

TVXCORE_EXPORT bool DirectoryExists(const UTF16String& path);
// Anything at the path, a directory included.
TVXCORE_EXPORT bool FileExists(const UTF16String& path);
TVXCORE_EXPORT bool FileOrDirExists(const UTF16String& path);
// Throws create_fnf_exception when nothing is at the path.
TVXCORE_EXPORT bool IsDir(const UTF16String& path);
// Makes the directory and any missing parents; false when a file is in the
// way or a level can't be reached. Throws dir_create_exception from a level
// that can't be made.
TVXCORE_EXPORT bool EnsureDirectoryExists(const UTF16String& path);

// --- Acting on the file system ---

// Creates or empties the file; true on success.
TVXCORE_EXPORT bool CreateNewFile(const UTF16String& path);
TVXCORE_EXPORT bool CreateNewDirectory(const UTF16String& path);
TVXCORE_EXPORT bool RemoveFile(const UTF16String& path);
// Copies the contents and permission bits, replacing `to`. The copy is made
// under a temporary name beside `to` and renamed onto it when complete, so
// `to` holds its old contents or the whole copy, never a part. Copying a file
// onto itself (also through a hard or symbolic link) is refused. Failures
// name the file that failed: file_not_found_exception for a missing source,
// file_exception for an unreadable one or for `from` and `to` naming one
// file; create_invalidpath_exception for a destination path that is empty or
// whose folder is missing, create_accessdenied_exception for one that may
// not be written, file_exception for a failed write (a full disk).
TVXCORE_EXPORT void Copy(const UTF16String& from, const UTF16String& to);
// As Copy, telling `callback` the fraction done with `context`; a true answer
// cancels, removes the partial copy (`to` stays as it was) and gives false. A
// null callback never cancels.
TVXCORE_EXPORT bool CopyWithProgress(const UTF16String& from, const UTF16String& to,
                                     bool (*callback)(double, void*), void* context);
// Copies the times and permission bits of a file. file_not_found_exception for
// a missing side; nothing happens for a directory at `from`.
TVXCORE_EXPORT void CopyAttributes(const UTF16String& from, const UTF16String& to);
// Sets the modification time to now; file_not_found_exception when missing.
TVXCORE_EXPORT void UpdateFileModifiedTime(const UTF16String& path);
// `dir`/`base``n``extension` for the first n from 1 that names nothing.
// dir_not_found_exception when `dir` doesn't exist.
TVXCORE_EXPORT UTF16String UniqueFileName(const UTF16String& dir, const UTF16String& base,
                                          const UTF16String& extension);
// Replace or append the text; failures are not reported.
TVXCORE_EXPORT void SimpleWriteStringToFile(const UTF16String& path, const UTF8String& text);
TVXCORE_EXPORT void SimpleAppendStringToFile(const UTF16String& path, const UTF8String& text);
// The files (not directories, not hidden ones) of one directory level, as full
// paths, in the file system's order, appended to `out`.
TVXCORE_EXPORT void ContainedFiles(const UTF16String& dir, std::vector<UTF16String>& out);

// --- Drives, volumes and hosts ---

TVXCORE_EXPORT bool IsDriveLetter(UTF16Char unit);
// The first unit when the second is ":", else 0. The first isn't checked.
TVXCORE_EXPORT UTF16Char GetDriveLetterForPath(const UTF16String& path);
// Linux has no drive letters and no floppy devices by letter: always false.
TVXCORE_EXPORT bool IsFloppyDrive(UTF16Char letter);
// The label of the volume holding the path; a volume without a label gives a
// name for its kind ("Local Disk", "Network", ...).
TVXCORE_EXPORT UTF16String GetVolumeNameForPath(const UTF16String& path);
// The volume whose label is PathsEqual to `name`; empty when none.
TVXCORE_EXPORT UTF16String GetDriveLetterForDriveName(const UTF16String& name);
// Free bytes for the caller, and the total, of the volume of `path` (its
// parent when it has one). Failures as Copy's, for `path`.
TVXCORE_EXPORT unsigned long long GetVolumeFreeSpace(const UTF16String& path);
TVXCORE_EXPORT unsigned long long GetVolumeSize(const UTF16String& path);
// "\\server\share": the key of the host cache.
TVXCORE_EXPORT UTF16String CreateServerHostString(const UTF16String& server,
                                                  const UTF16String& share);
// Whether the share is reachable: a mount of it exists. The answer is cached
// until PurgeServerHostCache(); `reportFailure` throws file_exception for the
// host string of an unreachable share.
TVXCORE_EXPORT bool MountHost(const UTF16String& server, const UTF16String& share,
                              bool reportFailure);
TVXCORE_EXPORT bool IsServerHostCached(const UTF16String& host, bool* outReachable);
TVXCORE_EXPORT void CacheServerHost(const UTF16String& host, bool reachable);
TVXCORE_EXPORT void PurgeServerHostCache();
// The server of the volume of `path` and its share, or for a local volume
// this computer's name (cut at its first ".") and the volume's label. Empty on
// failure, reported through the error mapping when `reportFailure` is set.
TVXCORE_EXPORT UTF16String GetPathVolumeHostName(const UTF16String& path,
                                                 UTF16String* outShareOrLabel, bool reportFailure);

// Makes `name` a legal file name: illegal units and controls replaced by
// `replacement` (removed when it is 0), reserved device names (CON, PRN, AUX,
// NUL, COM1-9, LPT1-9) broken, trailing "." and blanks and leading "." dealt
// with. An illegal, "." or blank replacement is used as "-". True when the
// name changed.
TVXCORE_EXPORT bool ReplaceIllegalFileNameCharacters(UTF16String& name, UTF16Char replacement);

// --- Aliases: on Linux, symbolic links ---

// Resolves the symbolic link at `path`: on success (0) `path` becomes the
// target's path and `isDir` says whether it is a directory. A negative result
// (not a link, or a broken one) leaves both alone.
TVXCORE_EXPORT long ResolveIT(UTF16String& path, bool& isDir);
// Makes a symbolic link at `link` to `target`: 0, or negative on failure.
TVXCORE_EXPORT long CreateLink(const UTF16String& target, const UTF16String& link);

}  // namespace tvxcore::utility::FileUtils
