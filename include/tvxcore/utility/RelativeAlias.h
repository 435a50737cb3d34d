// tvxcore/utility/RelativeAlias.h: a stored reference to a file or directory
// that survives the move of a whole tree, and a trip to another machine.
//
// Besides the target's absolute path a RelativeAlias records how the target
// relates to a base path (typically the document that holds the alias), and
// the server and volume the path came from. Resolving tries the path relative
// to the base first, then the absolute one, each in the four Unicode normal
// forms, and last, for a path from a network share, the share once mounted.
//
// A record is a value with no lock; copies may be used on any thread.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/utility/Flags.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::FileUtils {

// Failures of this header are raised by number through config::ThrowError
// (level 1, module 0x6D, the number as the code, one value for "^1"), or as a
// std::logic_error holding the key when no config::ErrorManager is installed
// or the installed one returns:
//
//   7   InvalidPath        an empty (or relative, or "."/".."-holding) path
//   11  DirNotFound        a record without a path to resolve
//   19  InvalidIndex       two paths on one volume with no common folder
//   20  NoPathSep          a common part that doesn't end at a separator
//   21  InvalAscendCount   an ascend count the record's path can't satisfy
//   22  Magic              not a valid record (wrong magic, unreadable text)
//   23  NotFound           the target is nowhere to be found
enum RelativeAliasError : int {
  kRelativeAliasInvalidPath = 7,
  kRelativeAliasDirNotFound = 11,
  kRelativeAliasInvalidIndex = 19,
  kRelativeAliasNoPathSep = 20,
  kRelativeAliasInvalidAscendCount = 21,
  kRelativeAliasMagic = 22,
  kRelativeAliasNotFound = 23,
};

// The key of `number` in the table above ("Unknown alias record error" for
// any other number).
TVXCORE_EXPORT const char* RelativeAliasErrorKey(int number);

// Paths on this platform are native ("/home/me/doc"). A path in Windows form
// (a drive letter and ":", or "\\server\share") is taken as such wherever it
// appears; the separator of every step below is that of the path's form.
struct TVXCORE_EXPORT RelativeAlias {
  static constexpr std::uint32_t kMagic = 0x72656C41;  // "relA"
  // Platform flags: made here from a path of this platform; the path is in
  // the other platform's (Windows') form.
  static constexpr unsigned long kMadeOnThisPlatform = 1;
  static constexpr unsigned long kOtherPlatformForm = 2;
  // Bits of the result of ResolveAlias.
  static constexpr unsigned char kResolved = 1;
  static constexpr unsigned char kRelocated = 2;

  std::uint32_t magic = kMagic;
  utility::Flags<unsigned long> platformFlags;
  UTF16String fullPath;  // no trailing separator
  UTF16String serverName;
  UTF16String serverVolumeName;
  unsigned long long ascendCountTarget = 0;  // components of the target below the common folder
  unsigned long long ascendCountBase = 0;    // levels to climb from the base to it
  bool targetIsFolder = false;

  // Stores what it is given, with no checks. The pointers may be null.
  RelativeAlias(const UTF16String& fullPath, bool isDir, utility::Flags<unsigned long> flags,
                const UTF16String* serverName, const UTF16String* serverVolumeName);
  // A record of `fullPath` as seen from `basePath` (may be null): server and
  // volume from GetPathVolumeHostName, the ascend counts when both lie on one
  // volume and the target isn't a root. Error 7 for an empty path, a relative
  // one or one with a "." or ".." component. A base with no volume throws
  // create_fnf_exception, as OnSameVolume does.
  RelativeAlias(const UTF16String& fullPath, bool isDir, const UTF16String* basePath,
                bool baseIsDir);
  // From the property list form: "platform", "ascendcount_target" and
  // "ascendcount_base" numbers, "fullpath", "server_name" and
  // "server_volume_name" strings, "target_is_folder" a bool. A key that is
  // missing (or of another type) leaves its field empty; a negative count is
  // error 21. A full path ending in a separator names a folder.
  explicit RelativeAlias(const proplist::PropList& list);
  // From stored text: JSON when it begins with "{", else the property list's
  // XML form (read with proplist::utils::ReadPropList, whose failures come
  // through as they are). Empty text is error 7; JSON that doesn't parse or
  // doesn't hold a record is error 22.
  explicit RelativeAlias(const UTF8String& stored);

  // The JSON form: {"SerializerWrappedObject":{...}} with the keys of the
  // property list form. Strings are escaped, so that any path reads back.
  UTF8String FlattenTo_UTF8_JSON() const;
  // The property list form, into `list` (replacing those keys).
  void FlattenTo_PropList(proplist::PropList& list) const;

  const UTF16String& GetFullPath() const { return fullPath; }
  void SetFullPath(const UTF16String& path) { fullPath = path; }
  const UTF16String& GetServerName() const { return serverName; }
  void SetServerName(const UTF16String& name) { serverName = name; }
  const UTF16String& GetServerVolumeName() const { return serverVolumeName; }
  void SetServerVolumeName(const UTF16String& name) { serverVolumeName = name; }
  utility::Flags<unsigned long> GetPlatformFlags() const { return platformFlags; }
  void SetPlatformFlags(utility::Flags<unsigned long> flags) { platformFlags = flags; }
  unsigned long long GetAscendCount_Target() const { return ascendCountTarget; }
  void SetAscendCount_Target(unsigned long long count) { ascendCountTarget = count; }
  unsigned long long GetAscendCount_Base() const { return ascendCountBase; }
  void SetAscendCount_Base(unsigned long long count) { ascendCountBase = count; }
  bool IsDir() const { return targetIsFolder; }
  bool HasRelativePath() const { return ascendCountBase != 0; }
  // The last component of the full path.
  UTF16String GetName() const;
  bool operator==(const RelativeAlias& other) const;

  // Finds the target: relative to `basePath` (when given and the record has a
  // relative path), then at the recorded path, each also in the other Unicode
  // normal forms; with `mountServer`, last at the recorded server's share
  // when that is mounted. Returns the path found, with kResolved in `result`
  // and kRelocated when it isn't the recorded path; or, when nothing is
  // found, error 23 if `throwIfNotFound`, else an empty string and `result`
  // 0. Error 22 first for a wrong magic; errors 7, 11 and 21 for a damaged
  // record whatever `throwIfNotFound` says.
  UTF16String ResolveAlias(const UTF16String* basePath, bool baseIsDir, bool mountServer,
                           bool throwIfNotFound, utility::Flags<unsigned char>& result) const;

  // The full path in this platform's form (kOtherPlatformForm clear in
  // `flags`) or in Windows' (set), and the server and volume when the
  // pointers aren't null. docs/PORTING.md tells how paths are rewritten.
  UTF16String GetPlatformFullPath(UTF16String* serverNameOut, UTF16String* volumeOut,
                                  utility::Flags<unsigned long> flags) const;

  // The two ascend counts of `target` seen from `base`: false, both 0, when
  // the base is empty or the two lie on different volumes. Errors 19, 20.
  static bool GetRelativeAscendCounts(const UTF16String& base, bool baseIsDir,
                                      const UTF16String& target, bool targetIsDir,
                                      unsigned long long& baseCount,
                                      unsigned long long& targetCount);
  // The path `baseCount` levels above `base` with the last `targetCount`
  // components of `target` behind it, when something is there (in any normal
  // form); else empty, with `*relocated` (when given) telling whether that
  // candidate differs from `recorded`. Errors 7, 11, 21.
  static UTF16String ResolveAlias_Relative(const UTF16String& base, bool baseIsDir,
                                           unsigned long long baseCount, const UTF16String& target,
                                           bool targetIsDir, unsigned long long targetCount,
                                           const UTF16String& recorded, bool* relocated);
  static bool MagicNumberValid(const RelativeAlias& alias) { return alias.magic == kMagic; }
  // Removes one trailing "\" or "/" (not the whole of "/"); true when it did.
  static bool IfDir_RemoveTrailingSeparator(UTF16String& path);
  // The length of the common beginning of `a` and `b`, compared unit by unit
  // and cut back to just after the last separator within it.
  static std::size_t p_PathBeginMatch(const UTF16String& a, const UTF16String& b);

 private:
  // The last ascendCountTarget components of the full path.
  UTF16String p_GetPathTail() const;
};

}  // namespace tvxcore::utility::FileUtils
