#include "tvxcore/utility/FileUtils.h"

#include <map>
#include <mutex>

#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/TextFold.h"
#include "platform/FileSystem.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/FileExceptions.h"

namespace tvxcore::utility::FileUtils {
namespace {

using filesupport::Dir;
using filesupport::File;
using filesupport::internal::FromNative;
using filesupport::internal::ToNative;

using filesupport::internal::ThrowCopyError;
using filesupport::internal::ThrowCopySideError;
using filesupport::internal::ThrowForError;

bool Attributes(const UTF16String& path, platform::FileAttributes& out, int* error = nullptr) {
  std::string native;
  int code = ToNative(path, native) ? platform::GetAttributes(native, out)
                                    : static_cast<int>(platform::kErrorInvalidName);
  if (error != nullptr) *error = code;
  return code == 0;
}

bool StartsWith(const UTF16String& text, std::u16string_view prefix) {
  return text.size() >= prefix.size() &&
         std::u16string_view(text).substr(0, prefix.size()) == prefix;
}

// A localisable key in the user's language when the host has installed a
// localizer, else its default text: what follows its "=".
UTF16String LocalisedText(const char* key) {
  if (config::Localizer::Initialized()) return config::Localizer::Get()->Translate(key);
  std::string_view text(key);
  text.remove_prefix(text.find('=') + 1);
  return FromNative(text);
}

UTF16String DriveTypeName(platform::DriveType type) {
  switch (type) {
    case platform::kDriveNoRootDir:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/Invalid=Invalid");
    case platform::kDriveRemovable:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/Removable=Removable");
    case platform::kDriveFixed:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/Fixed=Local Disk");
    case platform::kDriveRemote:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/Network=Network");
    case platform::kDriveCdRom:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/CDROM=CD-ROM");
    case platform::kDriveRamDisk:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/RAMDisk=RAM Disk");
    default:
      return LocalisedText("$$$/tvxcore/utility/FileUtils_WIN/Unknown=Unknown");
  }
}

bool MountOf(const UTF16String& path, platform::MountPoint& out) {
  std::string native;
  return !path.empty() && path[0] == u'/' && ToNative(path, native) &&
         platform::FindMount(native, out);
}

// Server and share of a network mount's source: "//server/share/..." or
// "server:/export".
bool SplitNetworkSource(const std::string& source, std::string& server, std::string& share) {
  if (source.rfind("//", 0) == 0) {
    auto slash = source.find('/', 2);
    server = source.substr(2, slash == std::string::npos ? std::string::npos : slash - 2);
    share = slash == std::string::npos ? std::string() : source.substr(slash + 1);
    return !server.empty();
  }
  auto colon = source.find(':');
  if (colon == std::string::npos || colon == 0) return false;
  server = source.substr(0, colon);
  share = source.substr(colon + 1);
  return true;
}

struct HostCache {
  std::recursive_mutex lock;
  std::map<UTF16String, bool> hosts;
};
HostCache& Cache() {
  static HostCache* cache = new HostCache;  // never destroyed: used until exit
  return *cache;
}

const UTF16String kDeviceNames[] = {u"CON",  u"PRN",  u"AUX",  u"NUL",  u"COM1", u"COM2",
                                    u"COM3", u"COM4", u"COM5", u"COM6", u"COM7", u"COM8",
                                    u"COM9", u"LPT1", u"LPT2", u"LPT3", u"LPT4", u"LPT5",
                                    u"LPT6", u"LPT7", u"LPT8", u"LPT9"};

constexpr long kE_FAIL = static_cast<long>(static_cast<std::int32_t>(0x80004005u));
long HresultFromError(int error) {
  return static_cast<long>(static_cast<std::int32_t>(0x80070000u | (error & 0xFFFF)));
}

}  // namespace

const UTF16String& GetIllegalFilenameCharacters() {
  static const UTF16String kIllegal = u"\\/:*?\"<>|";
  return kIllegal;
}

// --- Splitting and joining ---

void SplitLongPath(const UTF16String& path, UTF16String* outParent, UTF16String* outTitle,
                   UTF16String* outExtension) {
  const auto slash = path.rfind(u'/');
  const auto dot = path.rfind(u'.');
  const std::size_t nameStart = slash == UTF16String::npos ? 0 : slash + 1;
  const bool hasExtension = dot != UTF16String::npos && dot >= nameStart;
  if (outParent != nullptr) {
    if (slash == UTF16String::npos || path.size() == 1)
      outParent->clear();
    else if (slash == 0)
      *outParent = u"/";  // a name in the root
    else
      *outParent = path.substr(0, slash);
  }
  if (outTitle != nullptr)
    *outTitle = path.substr(nameStart, hasExtension ? dot - nameStart : UTF16String::npos);
  if (outExtension != nullptr && hasExtension) *outExtension = path.substr(dot);
}

bool GetParentPath(const UTF16String& path, UTF16String& out) {
  const auto slash = path.rfind(u'/');
  if (slash == UTF16String::npos) return false;
  UTF16String parent = path.substr(0, slash);
  if (parent.empty()) {
    if (path.size() == 1) return false;  // "/" has no parent
    parent = u"/";
  } else if (parent.size() > 1 && parent.back() == u'/') {
    parent.pop_back();
  }
  out = parent;
  return true;
}

UTF16String GetPathFileName(const UTF16String& path) {
  const auto slash = path.rfind(u'/');
  return slash == UTF16String::npos ? UTF16String() : path.substr(slash + 1);
}

void BuildPathSpec(const UTF16String& dir, const UTF16String& name, UTF16String& out) {
  UTF16String result = dir;
  if (!result.empty() && result.back() != u'/') result.push_back(u'/');
  result += name;
  out = std::move(result);
}

UTF16String NormalizePath(const UTF16String& path) {
  return filesupport::internal::FoldCase(filesupport::internal::ComposeNfc(path));
}

bool PathsEqual(const UTF16String& a, const UTF16String& b) {
  return NormalizePath(a) == NormalizePath(b);
}

// --- Volumes ---

bool GetWindowsVolumePath(const UTF16String& path, UTF16String& out) {
  out.clear();
  UTF16String copy = path;
  if (copy.size() >= 5 && copy[0] == u'\\' && copy[1] == u'\\') {
    const auto afterServer = copy.find(u'\\', 3);
    if (afterServer != UTF16String::npos && afterServer < copy.size() - 1) {
      const auto afterShare = copy.find(u'\\', afterServer + 1);
      if (afterShare != UTF16String::npos) copy.resize(afterShare);
      out = copy;
    }
  }
  if (copy.size() >= 2 && IsDriveLetter(copy[0]) && copy[1] == u':') out = copy.substr(0, 2);
  return !out.empty();
}

bool GetVolumePath(const UTF16String& path, UTF16String& out) {
  platform::MountPoint mount;
  if (!path.empty() && path[0] == u'/') {
    out.clear();
    if (MountOf(path, mount)) out = FromNative(mount.path);
    return !out.empty();
  }
  return GetWindowsVolumePath(path, out);
}

bool IsRoot(const UTF16String& path) {
  UTF16String volume;
  if (!GetVolumePath(path, volume)) throw filesupport::create_fnf_exception(File(path));
  return volume == path;
}

bool OnSameVolume(const UTF16String& a, const UTF16String& b) {
  UTF16String volumeA, volumeB;
  if (!GetVolumePath(a, volumeA)) throw filesupport::create_fnf_exception(File(a));
  if (!GetVolumePath(b, volumeB)) throw filesupport::create_fnf_exception(File(b));
  return volumeA == volumeB;
}

UTF16String ExtendedPathForm(const UTF16String& path) {
  if (path.find(u"\\\\?\\") != UTF16String::npos) return path;
  if (path.find(u"\\\\") != UTF16String::npos) return u"\\\\?\\UNC" + path.substr(1);
  if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == u':') return u"\\\\?\\" + path;
  return path;
}

// --- Tests on the file system ---

bool DirectoryExists(const UTF16String& path) { return Dir(path).Exists(); }

bool FileExists(const UTF16String& path) {
  platform::FileAttributes attributes;
  return Attributes(path, attributes);
}

bool FileOrDirExists(const UTF16String& path) { return Dir(path).Exists() || FileExists(path); }

bool IsDir(const UTF16String& path) {
  platform::FileAttributes attributes;
  if (!Attributes(path, attributes)) throw filesupport::create_fnf_exception(File(path));
  return attributes.isDirectory;
}

bool EnsureDirectoryExists(const UTF16String& path) {
  Dir dir(path);
  if (dir.Exists()) return true;
  if (dir.IsTopLevelDir()) return false;
  if (File(path).Exists()) return false;
  if (!EnsureDirectoryExists(dir.Parent().FullPath())) return false;
  dir.Create();
  return true;
}

// --- Acting on the file system ---

bool CreateNewFile(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::CreateEmptyFile(native, false) == 0;
}

bool CreateNewDirectory(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::CreateDirectory(native) == 0;
}

bool RemoveFile(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::DeleteFile(native) == 0;
}

void Copy(const UTF16String& from, const UTF16String& to) {
  if (!CopyWithProgress(from, to, nullptr, nullptr))
    ThrowCopyError(platform::kErrorRequestAborted, from, to);
}

bool CopyWithProgress(const UTF16String& from, const UTF16String& to,
                      bool (*callback)(double, void*), void* context) {
  std::string nativeFrom, nativeTo;
  if (!ToNative(from, nativeFrom))
    ThrowCopySideError(platform::kErrorFileNotFound, false, from, to);
  if (!ToNative(to, nativeTo)) ThrowCopySideError(platform::kErrorPathNotFound, true, from, to);
  std::function<bool(double)> progress;
  if (callback != nullptr) progress = [&](double fraction) { return callback(fraction, context); };
  platform::CopySide side = platform::CopySide::kSource;
  const int error = platform::CopyFileContents(nativeFrom, nativeTo, progress, side);
  if (error == platform::kErrorRequestAborted) return false;
  // The exception names the file that failed: the source for a missing,
  // unreadable or identical file, the destination for a bad path or a write.
  if (error != 0) ThrowCopySideError(error, side == platform::CopySide::kDestination, from, to);
  return true;
}

void CopyAttributes(const UTF16String& from, const UTF16String& to) {
  if (!FileExists(from)) throw filesupport::file_not_found_exception(File(from));
  if (!FileExists(to)) throw filesupport::file_not_found_exception(File(to));
  platform::FileAttributes attributes;
  if (Attributes(from, attributes) && attributes.isDirectory) return;
  const int error = platform::CopyTimesAndMode(ToNative(from), ToNative(to));
  ThrowForError(error, to);
}

void UpdateFileModifiedTime(const UTF16String& path) {
  if (!FileExists(path)) throw filesupport::file_not_found_exception(File(path));
  ThrowForError(platform::SetModifiedToNow(ToNative(path)), path);
}

UTF16String UniqueFileName(const UTF16String& dir, const UTF16String& base,
                           const UTF16String& extension) {
  if (!Dir(dir).Exists()) throw filesupport::dir_not_found_exception(Dir(dir));
  for (unsigned long long counter = 1;; ++counter) {
    UTF16String candidate;
    BuildPathSpec(dir, base, candidate);
    for (char digit : std::to_string(counter)) candidate.push_back(static_cast<UTF16Char>(digit));
    candidate += extension;
    // A broken link occupies its name too: ask about the link itself.
    platform::FileAttributes attributes;
    std::string native;
    if (!ToNative(candidate, native) || platform::GetLinkAttributes(native, attributes) != 0)
      return candidate;
  }
}

void SimpleWriteStringToFile(const UTF16String& path, const UTF8String& text) {
  if (FileExists(path)) RemoveFile(path);
  if (!CreateNewFile(path)) return;
  platform::WriteBytes(ToNative(path),
                       std::string_view(reinterpret_cast<const char*>(text.data()), text.size()),
                       false);
}

void SimpleAppendStringToFile(const UTF16String& path, const UTF8String& text) {
  std::string native;
  if (!ToNative(path, native)) return;
  platform::WriteBytes(
      native, std::string_view(reinterpret_cast<const char*>(text.data()), text.size()), true);
}

void ContainedFiles(const UTF16String& dir, std::vector<UTF16String>& out) {
  std::string native;
  if (!ToNative(dir, native)) return;
  platform::ListDirectory(native, [&](const platform::DirEntry& entry) {
    if (entry.name[0] == '.' || entry.isDirectory) return true;  // hidden, or a directory
    UTF16String path;
    BuildPathSpec(dir, FromNative(entry.name), path);
    out.push_back(std::move(path));
    return true;
  });
}

// --- Drives, volumes and hosts ---

bool IsDriveLetter(UTF16Char unit) {
  return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z');
}

UTF16Char GetDriveLetterForPath(const UTF16String& path) {
  return path.size() >= 2 && path[1] == u':' ? path[0] : UTF16Char(0);
}

bool IsFloppyDrive(UTF16Char) { return false; }

UTF16String GetVolumeNameForPath(const UTF16String& path) {
  platform::MountPoint mount;
  if (!MountOf(path, mount)) return UTF16String();
  std::string label;
  if (platform::GetVolumeLabel(mount, label)) return FromNative(label);
  return DriveTypeName(platform::GetDriveType(mount));
}

UTF16String GetDriveLetterForDriveName(const UTF16String& name) {
  for (auto it = Dir::BeginVolumes(); it != Dir::EndVolumes(); ++it) {
    platform::MountPoint mount;
    std::string label;
    const UTF16String volume = (*it).FullPath();
    if (MountOf(volume, mount) && platform::GetVolumeLabel(mount, label) &&
        PathsEqual(FromNative(label), name))
      return volume;
  }
  return UTF16String();
}

static unsigned long long VolumeSpace(const UTF16String& path, bool wantFree) {
  UTF16String target;
  if (!GetParentPath(path, target)) target = path;
  if (target.empty() || target.back() != u'/') target.push_back(u'/');
  std::string native;
  std::uint64_t freeBytes = 0, total = 0;
  const int error = ToNative(target, native) ? platform::GetVolumeSpace(native, freeBytes, total)
                                             : static_cast<int>(platform::kErrorInvalidName);
  ThrowForError(error, path);
  return wantFree ? freeBytes : total;
}

unsigned long long GetVolumeFreeSpace(const UTF16String& path) { return VolumeSpace(path, true); }
unsigned long long GetVolumeSize(const UTF16String& path) { return VolumeSpace(path, false); }

UTF16String CreateServerHostString(const UTF16String& server, const UTF16String& share) {
  return u"\\\\" + server + u"\\" + share;
}

bool MountHost(const UTF16String& server, const UTF16String& share, bool reportFailure) {
  const UTF16String host = CreateServerHostString(server, share);
  bool reachable = false;
  if (!IsServerHostCached(host, &reachable)) {
    // On Linux a share is reachable when it is mounted and answers.
    for (const auto& mount : platform::ReadMounts()) {
      std::string mountServer, mountShare;
      if (!platform::IsNetworkFileSystem(mount.fsType) ||
          !SplitNetworkSource(mount.source, mountServer, mountShare))
        continue;
      UTF16String shareText = FromNative(mountShare);
      while (!shareText.empty() && shareText.front() == u'/') shareText.erase(0, 1);
      UTF16String wanted = share;
      while (!wanted.empty() && (wanted.front() == u'/' || wanted.front() == u'\\'))
        wanted.erase(0, 1);
      if (PathsEqual(FromNative(mountServer), server) && PathsEqual(shareText, wanted) &&
          DirectoryExists(FromNative(mount.path))) {
        reachable = true;
        break;
      }
    }
    CacheServerHost(host, reachable);
  }
  if (!reachable && reportFailure) ThrowForError(platform::kErrorBadNetPath, host);
  return reachable;
}

bool IsServerHostCached(const UTF16String& host, bool* outReachable) {
  auto& cache = Cache();
  std::lock_guard<std::recursive_mutex> guard(cache.lock);
  auto it = cache.hosts.find(host);
  if (it == cache.hosts.end()) return false;
  if (outReachable != nullptr) *outReachable = it->second;
  return true;
}

void CacheServerHost(const UTF16String& host, bool reachable) {
  auto& cache = Cache();
  std::lock_guard<std::recursive_mutex> guard(cache.lock);
  cache.hosts[host] = reachable;
}

void PurgeServerHostCache() {
  auto& cache = Cache();
  std::lock_guard<std::recursive_mutex> guard(cache.lock);
  cache.hosts.clear();
}

UTF16String GetPathVolumeHostName(const UTF16String& path, UTF16String* outShareOrLabel,
                                  bool reportFailure) {
  UTF16String result;
  int error = 0;
  bool network = false;
  if (!GetVolumePath(path, result)) {
    error = platform::kErrorPathNotFound;
  } else if (StartsWith(result, u"\\\\")) {
    network = true;
  } else if (result[0] == u'/') {
    platform::MountPoint mount;
    std::string server, share;
    MountOf(result, mount);
    if (platform::IsNetworkFileSystem(mount.fsType) &&
        SplitNetworkSource(mount.source, server, share)) {
      result = FromNative(server);
      if (outShareOrLabel != nullptr) *outShareOrLabel = FromNative(share);
    } else {
      // A local volume: its label (empty if it has none), and this computer.
      if (outShareOrLabel != nullptr) {
        std::string label;
        platform::GetVolumeLabel(mount, label);
        *outShareOrLabel = FromNative(label);
      }
      std::string host;
      error = platform::GetHostName(host);
      result = error == 0 ? FromNative(host.substr(0, host.find('.'))) : UTF16String();
    }
  } else {
    // A drive letter names no volume on Linux.
    error = platform::kErrorNotConnected;
    result.clear();
  }
  if (network) {
    result.erase(0, 2);
    const auto slash = result.find(u'\\');
    if (slash == UTF16String::npos) {
      result.clear();
    } else {
      if (outShareOrLabel != nullptr) *outShareOrLabel = result.substr(slash + 1);
      result.resize(slash);
    }
  }
  if (!result.empty()) return result;
  if (reportFailure) ThrowForError(error, path);
  return UTF16String();
}

bool ReplaceIllegalFileNameCharacters(UTF16String& name, UTF16Char replacement) {
  if (name.empty()) return false;
  const UTF16String input = name;
  const UTF16String& illegal = GetIllegalFilenameCharacters();
  if (replacement != 0 && (illegal.find(replacement) != UTF16String::npos || replacement == u'.' ||
                           replacement == u' '))
    replacement = u'-';

  auto replaceWhere = [&](auto isBad) {
    UTF16String out;
    out.reserve(name.size());
    for (UTF16Char unit : name) {
      if (!isBad(unit))
        out.push_back(unit);
      else if (replacement != 0)
        out.push_back(replacement);
    }
    name.swap(out);
  };
  replaceWhere([&](UTF16Char unit) { return illegal.find(unit) != UTF16String::npos; });
  replaceWhere([](UTF16Char unit) { return unit >= 1 && unit <= 31; });

  const UTF16String folded = filesupport::internal::FoldCase(name);
  const auto firstDot = folded.find(u'.');
  for (const UTF16String& device : kDeviceNames) {
    const UTF16String foldedDevice = filesupport::internal::FoldCase(device);
    if (folded == foldedDevice) {
      name.push_back(replacement != 0 ? replacement : u'-');
      break;
    }
    if (StartsWith(folded, foldedDevice) && firstDot == foldedDevice.size()) {
      if (replacement != 0)
        name.insert(foldedDevice.size(), 1, replacement);
      else
        name.replace(0, foldedDevice.size(), u"-");
      break;
    }
  }

  auto endsBadly = [&] { return !name.empty() && (name.back() == u'.' || name.back() == u' '); };
  if (endsBadly()) {
    if (replacement != 0) {
      name.back() = replacement;
    } else {
      while (endsBadly()) name.pop_back();
    }
  }
  if (!name.empty() && name.front() == u'.') {
    if (replacement != 0) {
      name.front() = replacement;
    } else {
      std::size_t dots = 0;
      while (dots < name.size() && name[dots] == u'.') ++dots;
      name.erase(0, dots);
    }
  }
  if (replacement == 0 && name.empty()) name = u"-";
  return name != input;
}

// --- Aliases ---

long ResolveIT(UTF16String& path, bool& isDir) {
  std::string native, target;
  if (!ToNative(path, native)) return HresultFromError(platform::kErrorInvalidName);
  const int error = platform::ReadSymbolicLink(native, target);
  if (error == platform::kErrorInvalidParameter) return kE_FAIL;  // not a link
  if (error != 0) return HresultFromError(error);
  platform::FileAttributes attributes;
  const int missing = platform::GetAttributes(target, attributes);
  if (missing != 0) return HresultFromError(missing);  // a broken link
  path = FromNative(target);
  isDir = attributes.isDirectory;
  return 0;
}

long CreateLink(const UTF16String& target, const UTF16String& link) {
  std::string nativeTarget, nativeLink;
  if (!ToNative(target, nativeTarget) || !ToNative(link, nativeLink))
    return HresultFromError(platform::kErrorInvalidName);
  const int error = platform::CreateSymbolicLink(nativeTarget, nativeLink);
  return error == 0 ? 0 : HresultFromError(error);
}

}  // namespace tvxcore::utility::FileUtils
