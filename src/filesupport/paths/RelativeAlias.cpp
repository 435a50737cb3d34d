// Relative aliases: records that find their target again after a move.
//
// Every loop over a path walks its units once; nothing recurses on the
// components of a path, and an ascend count only bounds a loop that stops at
// the first level that can't be climbed.
#include "tvxcore/utility/RelativeAlias.h"

#include <boost/any.hpp>
#include <stdexcept>

#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/PathQueries.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/serialization/JSON.h"
#include "tvxcore/utility/FileUtils.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility::FileUtils {
namespace {

constexpr std::uint32_t kModule = 0x6D;
constexpr char kWrapperKey[] = "SerializerWrappedObject";
constexpr char kKeyPlatform[] = "platform";
constexpr char kKeyFullPath[] = "fullpath";
constexpr char kKeyServer[] = "server_name";
constexpr char kKeyVolume[] = "server_volume_name";
constexpr char kKeyTargetCount[] = "ascendcount_target";
constexpr char kKeyBaseCount[] = "ascendcount_base";
constexpr char kKeyIsFolder[] = "target_is_folder";

[[noreturn]] void Raise(int number, const config::ReplacementValue& value) {
  const char* key = RelativeAliasErrorKey(number);
  if (config::ErrorManager::Get(true) != nullptr)
    config::ThrowError(config::kErrorLevel_NonFatal, key, kModule, number, true, value,
                       config::ReplacementValue(), config::ReplacementValue(),
                       config::ReplacementValue());
  // No manager, or one that returned: the caller must not go on.
  throw std::logic_error(key);
}

// A drive-letter path ("C:", "C:\x") or a network name ("\\srv\share").
bool IsWindowsForm(const UTF16String& path) {
  return (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == u':') ||
         path.starts_with(u"\\\\");
}

// The separator a path of this form is built with, and the units that count
// as one: both for a Windows-form path, "/" alone for a native one, where a
// backslash is part of a name.
UTF16Char SeparatorOf(bool windows) {
  return windows ? kFilePathSeparator_WIN : kFilePathSeparator;
}
bool IsSeparator(UTF16Char unit, bool windows) {
  return unit == kFilePathSeparator || (windows && unit == kFilePathSeparator_WIN);
}
bool EndsInSeparator(const UTF16String& path, bool windows) {
  return !path.empty() && IsSeparator(path.back(), windows);
}

// The parent by the rule of GetParentPath, in the path's own form.
bool ParentOf(const UTF16String& path, bool windows, UTF16String& out) {
  if (!windows) return GetParentPath(path, out);
  std::size_t at = path.size();
  while (at > 0 && !IsSeparator(path[at - 1], true)) --at;
  if (at <= 1) return false;
  UTF16String parent = path.substr(0, at - 1);
  if (!parent.empty() && parent.back() == kFilePathSeparator_WIN) parent.pop_back();
  if (parent.empty()) return false;
  out = std::move(parent);
  return true;
}

// Whether any component of the path is "." or "..".
bool HasDotComponent(const UTF16String& path, bool windows) {
  std::size_t start = 0;
  for (std::size_t i = 0; i <= path.size(); ++i) {
    if (i < path.size() && !IsSeparator(path[i], windows)) continue;
    const std::size_t length = i - start;
    if ((length == 1 && path[start] == u'.') ||
        (length == 2 && path[start] == u'.' && path[start + 1] == u'.'))
      return true;
    start = i + 1;
  }
  return false;
}

// Where something is at `path`, in the form it stands as or in one of the four
// normal forms, in their order.
bool FindExisting(const UTF16String& path, UTF16String& out) {
  if (path.empty()) return false;
  if (FileOrDirExists(path)) {
    out = path;
    return true;
  }
  for (int form = kUnicodeNormalizationComposed;
       form <= kUnicodeNormalizationCompatibilityDecomposed; ++form) {
    UTF16String candidate = NormalizedString(path, static_cast<UnicodeNormalizationForm>(form));
    if (candidate != path && FileOrDirExists(candidate)) {
      out = std::move(candidate);
      return true;
    }
  }
  return false;
}

// The part of `path` behind the separator at which a count of separators from
// the end reaches `count`. Error 21 for a count of 0, or with the count left
// over when the path has too few separators.
UTF16String TailOf(const UTF16String& path, unsigned long long count, bool windows) {
  if (count == 0) Raise(kRelativeAliasInvalidAscendCount, 0ULL);
  const UTF16Char separator = SeparatorOf(windows);
  unsigned long long seen = 0;
  for (std::size_t at = path.size(); at > 0; --at) {
    if (path[at - 1] == separator && ++seen == count) return path.substr(at);
  }
  Raise(kRelativeAliasInvalidAscendCount, count - seen);
}

// Text for a JSON string: quotation marks, backslashes, controls and units
// that aren't text (lone surrogates, such as the bytes of a name that isn't
// UTF-8) escaped, everything else as UTF-8. The writer puts it between
// quotation marks as it stands.
UTF8String EscapedJSONText(const UTF16String& text) {
  UTF8String out;
  out.reserve(text.size() + 8);
  auto escape = [&out](unsigned unit) {
    static const char kHex[] = "0123456789abcdef";
    const char digits[] = {'\\',
                           'u',
                           kHex[(unit >> 12) & 15],
                           kHex[(unit >> 8) & 15],
                           kHex[(unit >> 4) & 15],
                           kHex[unit & 15]};
    out.append(reinterpret_cast<const UTF8Char*>(digits), sizeof digits);
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const UTF16Char unit = text[i];
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      out += UTF16to8(text.substr(i, 2));
      ++i;
    } else if (high || low || unit < 0x20) {
      escape(unit);
    } else if (unit == u'"' || unit == u'\\') {
      out.push_back(static_cast<UTF8Char>('\\'));
      out.push_back(static_cast<UTF8Char>(unit));
    } else {
      out += UTF16to8(UTF16String(1, unit));
    }
  }
  return out;
}

UTF8String Key(const char* key) {
  return UTF8String(reinterpret_cast<const UTF8Char*>(key),
                    reinterpret_cast<const UTF8Char*>(key) + std::char_traits<char>::length(key));
}

// A count from either stored form: a whole number that isn't negative.
template <typename Signed>
unsigned long long CountOrRaise(Signed value) {
  if (value < 0) Raise(kRelativeAliasInvalidAscendCount, static_cast<long long>(value));
  return static_cast<unsigned long long>(value);
}

bool ReadNumber(const proplist::PropList& list, const char* name, unsigned long long& out) {
  const UTF8String key = Key(name);
  std::uint32_t u32 = 0;
  std::int32_t i32 = 0;
  std::uint16_t u16 = 0;
  long long i64 = 0;
  if (list.GetValue(key, out)) return true;
  if (list.GetValue(key, u32)) return out = u32, true;
  if (list.GetValue(key, u16)) return out = u16, true;
  if (list.GetValue(key, i32)) return out = CountOrRaise(i32), true;
  if (list.GetValue(key, i64)) return out = CountOrRaise(i64), true;
  return false;
}

bool ReadText(const proplist::PropList& list, const char* name, UTF16String& out) {
  const UTF8String key = Key(name);
  UTF8String utf8;
  if (list.GetValue(key, out)) return true;
  if (list.GetValue(key, utf8)) return out = UTF8to16(utf8), true;
  return false;
}

// Values of the JSON form; a value of the wrong kind means the text isn't a
// record (error 22), a negative or fractional count error 21.
const boost::any* JSONMember(const serialization::JSONObject& object, const char* name) {
  const serialization::JSONValue value = serialization::GetVariantInObject(object, name);
  return value && !value->empty() ? value.get() : nullptr;
}
void JSONText(const serialization::JSONObject& object, const char* name, UTF16String& out) {
  if (const boost::any* value = JSONMember(object, name)) {
    const auto* text = boost::any_cast<UTF8String>(value);
    if (text == nullptr) Raise(kRelativeAliasMagic, UTF8to16(Key(name)));
    out = UTF8to16(*text);
  }
}
void JSONCount(const serialization::JSONObject& object, const char* name, unsigned long long& out) {
  if (const boost::any* value = JSONMember(object, name)) {
    if (const auto* u = boost::any_cast<std::uint64_t>(value)) {
      out = *u;
    } else if (const auto* i = boost::any_cast<std::int64_t>(value)) {
      out = CountOrRaise(*i);
    } else if (const auto* d = boost::any_cast<double>(value)) {
      Raise(kRelativeAliasInvalidAscendCount, *d);
    } else {
      Raise(kRelativeAliasMagic, UTF8to16(Key(name)));
    }
  }
}

// Paths between the two platforms' forms. Windows drives are where Linux
// mounts them for Windows programs, /mnt/<letter>; a network name is the
// mount of that share when there is one, else /Volumes/<share>.
UTF16String SwapSeparators(UTF16String path, UTF16Char from, UTF16Char to) {
  for (UTF16Char& unit : path)
    if (unit == from) unit = to;
  return path;
}

UTF16String WindowsToNative(const UTF16String& path) {
  UTF16String rest;
  UTF16String head;
  if (path.starts_with(u"\\\\")) {
    const std::size_t serverEnd = path.find(kFilePathSeparator_WIN, 2);
    const UTF16String server =
        path.substr(2, serverEnd == UTF16String::npos ? UTF16String::npos : serverEnd - 2);
    UTF16String share;
    if (serverEnd != UTF16String::npos) {
      const std::size_t shareEnd = path.find(kFilePathSeparator_WIN, serverEnd + 1);
      share = path.substr(serverEnd + 1, shareEnd == UTF16String::npos ? UTF16String::npos
                                                                       : shareEnd - serverEnd - 1);
      if (shareEnd != UTF16String::npos) rest = path.substr(shareEnd);
    }
    if (!filesupport::internal::FindShareMount(server, share, head)) head = u"/Volumes/" + share;
  } else if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == u':') {
    head = u"/mnt/";
    head.push_back(path[0] < u'a' ? static_cast<UTF16Char>(path[0] + (u'a' - u'A')) : path[0]);
    rest = path.substr(2);
  } else {
    rest = path;
  }
  rest = SwapSeparators(rest, kFilePathSeparator_WIN, kFilePathSeparator);
  if (!head.empty() && !rest.empty() && rest.front() != kFilePathSeparator)
    head.push_back(kFilePathSeparator);
  UTF16String out = head + rest;
  RelativeAlias::IfDir_RemoveTrailingSeparator(out);
  return out;
}

UTF16String NativeToWindows(const UTF16String& path, const UTF16String& serverName) {
  UTF16String head;
  UTF16String rest = path;
  platform::MountPoint mount;
  std::string server, share;
  if (path.starts_with(u"/mnt/") && path.size() >= 6 && IsDriveLetter(path[5]) &&
      (path.size() == 6 || path[6] == kFilePathSeparator)) {
    head.push_back(path[5] >= u'a' ? static_cast<UTF16Char>(path[5] - (u'a' - u'A')) : path[5]);
    head.push_back(u':');
    rest = path.substr(6);
    if (rest.empty()) rest.push_back(kFilePathSeparator);
  } else if (path.starts_with(u"/Volumes/")) {
    // "/Volumes/<share>/...": the share of the recorded server.
    head = u"\\\\" + serverName;
    rest = serverName.empty() ? path.substr(9) : path.substr(8);
  } else if (filesupport::internal::MountOf(path, mount) &&
             platform::IsNetworkFileSystem(mount.fsType) &&
             filesupport::internal::SplitNetworkSource(mount.source, server, share)) {
    const UTF16String mountPath = filesupport::internal::FromNative(mount.path);
    UTF16String shareText = filesupport::internal::FromNative(share);
    while (!shareText.empty() && shareText.front() == kFilePathSeparator) shareText.erase(0, 1);
    head = u"\\\\" + filesupport::internal::FromNative(server) + u"\\" +
           SwapSeparators(shareText, kFilePathSeparator, kFilePathSeparator_WIN);
    rest = mountPath == u"/" ? path : path.substr(mountPath.size());
  }
  return head + SwapSeparators(rest, kFilePathSeparator, kFilePathSeparator_WIN);
}

// The record's path is in Windows form: so marked, or plainly so (a record
// made on Windows doesn't mark its own form).
bool StoredInWindowsForm(const RelativeAlias& alias) {
  return !alias.fullPath.starts_with(kFilePathSeparator) &&
         (alias.platformFlags.IsSet(RelativeAlias::kOtherPlatformForm) ||
          IsWindowsForm(alias.fullPath));
}

// One attempt at `recorded` (this platform's form): relative to the base
// first, then the path itself. Empty when neither is there.
UTF16String Attempt(const RelativeAlias& alias, const UTF16String* basePath, bool baseIsDir,
                    const UTF16String& recorded) {
  UTF16String found;
  if (basePath != nullptr && !basePath->empty() && alias.ascendCountBase != 0)
    found = RelativeAlias::ResolveAlias_Relative(*basePath, baseIsDir, alias.ascendCountBase,
                                                 recorded, alias.targetIsFolder,
                                                 alias.ascendCountTarget, recorded, nullptr);
  if (found.empty()) FindExisting(recorded, found);
  return found;
}

}  // namespace

const char* RelativeAliasErrorKey(int number) {
  switch (number) {
    case kRelativeAliasInvalidPath:
      return "$$$/tvxcore/filesupport/relalias/InvalidPath=Alias: invalid file path '^1'.";
    case kRelativeAliasDirNotFound:
      return "$$$/tvxcore/filesupport/relalias/DirNotFound=Alias: directory not found '^1'.";
    case kRelativeAliasInvalidIndex:
      return "$$$/tvxcore/filesupport/relalias/InvalidIndex=Alias: invalid index '^1'.";
    case kRelativeAliasNoPathSep:
      return "$$$/tvxcore/filesupport/relalias/NoPathSep=Alias: no path separator.";
    case kRelativeAliasInvalidAscendCount:
      return "$$$/tvxcore/filesupport/relalias/InvalAscendCount=Alias: Invalid ascend count '^1'.";
    case kRelativeAliasMagic:
      return "$$$/tvxcore/filesupport/relalias/Magic=Alias: Magic Error";
    case kRelativeAliasNotFound:
      return "$$$/tvxcore/filesupport/relalias/NotFound=Alias not found '^1'.";
    default:
      return "Unknown alias record error";
  }
}

RelativeAlias::RelativeAlias(const UTF16String& path, bool isDir,
                             utility::Flags<unsigned long> flags, const UTF16String* server,
                             const UTF16String* volume)
    : platformFlags(flags),
      fullPath(path),
      serverName(server != nullptr ? *server : UTF16String()),
      serverVolumeName(volume != nullptr ? *volume : UTF16String()),
      targetIsFolder(isDir) {}

RelativeAlias::RelativeAlias(const UTF16String& path, bool isDir, const UTF16String* basePath,
                             bool baseIsDir)
    : fullPath(path), targetIsFolder(isDir) {
  const bool windows = IsWindowsForm(path);
  if (path.empty() || !(windows || path.front() == kFilePathSeparator) ||
      HasDotComponent(path, windows))
    Raise(kRelativeAliasInvalidPath, path);
  if (fullPath.size() > 1 && IsSeparator(fullPath.back(), windows)) fullPath.pop_back();
  serverName = GetPathVolumeHostName(fullPath, &serverVolumeName, false);
  if (basePath != nullptr && !basePath->empty() && OnSameVolume(*basePath, fullPath) &&
      !IsRoot(fullPath))
    GetRelativeAscendCounts(*basePath, baseIsDir, fullPath, isDir, ascendCountBase,
                            ascendCountTarget);
  platformFlags.Set(kMadeOnThisPlatform);
  platformFlags.Set(kOtherPlatformForm, windows);
}

RelativeAlias::RelativeAlias(const proplist::PropList& list) {
  unsigned long long platform = 0;
  if (ReadNumber(list, kKeyPlatform, platform))
    platformFlags = static_cast<unsigned long>(platform);
  ReadText(list, kKeyFullPath, fullPath);
  ReadText(list, kKeyServer, serverName);
  ReadText(list, kKeyVolume, serverVolumeName);
  ReadNumber(list, kKeyTargetCount, ascendCountTarget);
  ReadNumber(list, kKeyBaseCount, ascendCountBase);
  list.GetValue(Key(kKeyIsFolder), targetIsFolder);
  if (IfDir_RemoveTrailingSeparator(fullPath)) targetIsFolder = true;
}

RelativeAlias::RelativeAlias(const UTF8String& stored) {
  if (stored.empty()) Raise(kRelativeAliasInvalidPath, UTF16String());
  if (stored.front() != static_cast<UTF8Char>('{')) {
    proplist::PropList list;
    proplist::utils::ReadPropList(stored, list);
    *this = RelativeAlias(list);
    return;
  }
  serialization::JSONValue root;
  try {
    root = serialization::JSONParse(stored);
  } catch (const serialization::JSONParseError&) {
    Raise(kRelativeAliasMagic, UTF16String());
  }
  const auto* outer = boost::any_cast<serialization::JSONObject>(root.get());
  const boost::any* inner = outer ? JSONMember(*outer, kWrapperKey) : nullptr;
  const auto* object = inner ? boost::any_cast<serialization::JSONObject>(inner) : nullptr;
  if (object == nullptr) Raise(kRelativeAliasMagic, UTF16String());
  unsigned long long platform = 0;
  JSONCount(*object, kKeyPlatform, platform);
  platformFlags = static_cast<unsigned long>(platform);
  JSONText(*object, kKeyFullPath, fullPath);
  JSONText(*object, kKeyServer, serverName);
  JSONText(*object, kKeyVolume, serverVolumeName);
  JSONCount(*object, kKeyTargetCount, ascendCountTarget);
  JSONCount(*object, kKeyBaseCount, ascendCountBase);
  if (const boost::any* value = JSONMember(*object, kKeyIsFolder)) {
    const auto* flag = boost::any_cast<bool>(value);
    if (flag == nullptr) Raise(kRelativeAliasMagic, UTF8to16(Key(kKeyIsFolder)));
    targetIsFolder = *flag;
  }
  if (IfDir_RemoveTrailingSeparator(fullPath)) targetIsFolder = true;
}

UTF8String RelativeAlias::FlattenTo_UTF8_JSON() const {
  using serialization::ToJSONValue;
  serialization::JSONObject fields;
  fields[Key(kKeyPlatform)] = ToJSONValue(static_cast<std::uint64_t>(platformFlags.Bits()));
  fields[Key(kKeyFullPath)] = ToJSONValue(EscapedJSONText(fullPath));
  fields[Key(kKeyServer)] = ToJSONValue(EscapedJSONText(serverName));
  fields[Key(kKeyVolume)] = ToJSONValue(EscapedJSONText(serverVolumeName));
  fields[Key(kKeyTargetCount)] = ToJSONValue(ascendCountTarget);
  fields[Key(kKeyBaseCount)] = ToJSONValue(ascendCountBase);
  fields[Key(kKeyIsFolder)] = ToJSONValue(targetIsFolder);
  serialization::JSONObject wrapper;
  wrapper[Key(kWrapperKey)] = ToJSONValue(std::move(fields));
  return serialization::GetJSONUTF8String(boost::any(std::move(wrapper)));
}

void RelativeAlias::FlattenTo_PropList(proplist::PropList& list) const {
  list.SetValue(Key(kKeyPlatform), static_cast<std::uint32_t>(platformFlags.Bits()));
  list.SetValue(Key(kKeyFullPath), fullPath);
  list.SetValue(Key(kKeyServer), serverName);
  list.SetValue(Key(kKeyVolume), serverVolumeName);
  list.SetValue(Key(kKeyTargetCount), ascendCountTarget);
  list.SetValue(Key(kKeyBaseCount), ascendCountBase);
  list.SetValue(Key(kKeyIsFolder), targetIsFolder);
}

UTF16String RelativeAlias::GetName() const {
  const bool windows = StoredInWindowsForm(*this);
  std::size_t at = fullPath.size();
  while (at > 0 && !IsSeparator(fullPath[at - 1], windows)) --at;
  return fullPath.substr(at);
}

bool RelativeAlias::operator==(const RelativeAlias& other) const {
  return magic == other.magic && platformFlags == other.platformFlags &&
         fullPath == other.fullPath && serverName == other.serverName &&
         serverVolumeName == other.serverVolumeName &&
         ascendCountTarget == other.ascendCountTarget && ascendCountBase == other.ascendCountBase &&
         targetIsFolder == other.targetIsFolder;
}

UTF16String RelativeAlias::p_GetPathTail() const {
  return TailOf(fullPath, ascendCountTarget, StoredInWindowsForm(*this));
}

UTF16String RelativeAlias::ResolveAlias(const UTF16String* basePath, bool baseIsDir,
                                        bool mountServer, bool throwIfNotFound,
                                        utility::Flags<unsigned char>& result) const {
  if (!MagicNumberValid(*this)) Raise(kRelativeAliasMagic, UTF16String());
  result = 0;
  UTF16String server, volume;
  const UTF16String recorded = GetPlatformFullPath(&server, &volume, kMadeOnThisPlatform);
  if (!recorded.empty() &&
      (recorded.front() != kFilePathSeparator || HasDotComponent(recorded, false)))
    Raise(kRelativeAliasInvalidPath, fullPath);
  UTF16String found = Attempt(*this, basePath, baseIsDir, recorded);

  // A path on a drive that was a network share: the share, when it is mounted.
  if (found.empty() && mountServer && fullPath.size() > 2 && fullPath[1] == u':' &&
      StoredInWindowsForm(*this) && !server.empty() && !volume.empty() &&
      MountHost(server, volume, false)) {
    found = Attempt(*this, basePath, baseIsDir,
                    WindowsToNative(CreateServerHostString(server, volume) + fullPath.substr(2)));
  }
  if (found.empty()) {
    if (throwIfNotFound) Raise(kRelativeAliasNotFound, recorded);
    return UTF16String();
  }
  result.Set(kResolved);
  if (!PathsEqual(found, recorded)) result.Set(kRelocated);
  return found;
}

UTF16String RelativeAlias::GetPlatformFullPath(UTF16String* serverNameOut, UTF16String* volumeOut,
                                               utility::Flags<unsigned long> flags) const {
  if (serverNameOut != nullptr) *serverNameOut = serverName;
  if (volumeOut != nullptr) *volumeOut = serverVolumeName;
  const bool stored = StoredInWindowsForm(*this);
  const bool wanted = flags.IsSet(kOtherPlatformForm);
  if (stored == wanted) return fullPath;
  return wanted ? NativeToWindows(fullPath, serverName) : WindowsToNative(fullPath);
}

bool RelativeAlias::GetRelativeAscendCounts(const UTF16String& base, bool baseIsDir,
                                            const UTF16String& target, bool targetIsDir,
                                            unsigned long long& baseCount,
                                            unsigned long long& targetCount) {
  baseCount = targetCount = 0;
  UTF16String baseVolume, targetVolume;
  if (base.empty() || !GetVolumePath(base, baseVolume) || !GetVolumePath(target, targetVolume) ||
      baseVolume != targetVolume)
    return false;
  const bool windows = IsWindowsForm(base);
  UTF16String paths[2] = {base, target};
  const bool isDir[2] = {baseIsDir, targetIsDir};
  for (int i = 0; i < 2; ++i)
    if (isDir[i] && !EndsInSeparator(paths[i], windows)) paths[i].push_back(SeparatorOf(windows));
  const std::size_t index = p_PathBeginMatch(paths[0], paths[1]);
  unsigned long long counts[2] = {0, 0};
  for (int i = 0; i < 2; ++i) {
    const UTF16String& path = paths[i];
    if (index == 0 || index > path.size())
      Raise(kRelativeAliasInvalidIndex, static_cast<unsigned long long>(index));
    if (path[index - 1] != SeparatorOf(windows)) Raise(kRelativeAliasNoPathSep, UTF16String());
    // From the separator that ends the common folder on: each one is a level
    // to climb from the base, or a component of the target below the folder.
    for (std::size_t at = index - 1; at < path.size(); ++at)
      if (path[at] == SeparatorOf(windows)) ++counts[i];
  }
  baseCount = counts[0];
  targetCount = counts[1];
  return true;
}

UTF16String RelativeAlias::ResolveAlias_Relative(const UTF16String& base, bool baseIsDir,
                                                 unsigned long long baseCount,
                                                 const UTF16String& target, bool targetIsDir,
                                                 unsigned long long targetCount,
                                                 const UTF16String& recorded, bool* relocated) {
  const bool baseWindows = IsWindowsForm(base);
  UTF16String climbed = base;
  if (baseIsDir && !EndsInSeparator(climbed, baseWindows))
    climbed.push_back(SeparatorOf(baseWindows));
  for (unsigned long long level = 0; level < baseCount; ++level)
    if (!ParentOf(climbed, baseWindows, climbed)) return UTF16String();

  if (target.empty()) Raise(kRelativeAliasDirNotFound, target);
  const bool targetWindows = IsWindowsForm(target);
  UTF16String path = target;
  if (targetIsDir && !EndsInSeparator(path, targetWindows))
    path.push_back(SeparatorOf(targetWindows));
  UTF16String tail = TailOf(path, targetCount, targetWindows);
  if (!tail.empty() && IsSeparator(tail.back(), targetWindows)) tail.pop_back();
  if (HasDotComponent(tail, targetWindows)) Raise(kRelativeAliasInvalidPath, target);
  if (targetWindows != baseWindows)
    tail = SwapSeparators(tail, SeparatorOf(targetWindows), SeparatorOf(baseWindows));

  UTF16String candidate = climbed;
  if (!tail.empty()) {
    if (!EndsInSeparator(candidate, baseWindows)) candidate.push_back(SeparatorOf(baseWindows));
    candidate += tail;
  }
  UTF16String found;
  if (FindExisting(candidate, found)) return found;
  if (relocated != nullptr) *relocated = !PathsEqual(candidate, recorded);
  return UTF16String();
}

bool RelativeAlias::IfDir_RemoveTrailingSeparator(UTF16String& path) {
  if (path.size() < 2 ||
      (path.back() != kFilePathSeparator_WIN && path.back() != kFilePathSeparator_MAC))
    return false;
  path.pop_back();
  return true;
}

std::size_t RelativeAlias::p_PathBeginMatch(const UTF16String& a, const UTF16String& b) {
  const UTF16Char separator = SeparatorOf(IsWindowsForm(a));
  std::size_t common = 0;
  const std::size_t limit = std::min(a.size(), b.size());
  while (common < limit && a[common] == b[common]) ++common;
  while (common > 0 && a[common - 1] != separator) --common;
  return common;
}

}  // namespace tvxcore::utility::FileUtils
