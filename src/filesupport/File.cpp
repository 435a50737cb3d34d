#include "tvxcore/filesupport/File.h"

#include <unicode/uchar.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <type_traits>

#include "base/NoDestructor.h"

#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/TextFold.h"
#include "platform/FileSystem.h"
#include "tvxcore/filesupport/Aliases.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::filesupport {
namespace {

namespace fu = utility::FileUtils;
using internal::ToNative;

// Repeated "/" collapse to one.
UTF16String NativeNormalForm(const UTF16String& path, bool isDir) {
  // Most paths are normal already: one search instead of a rebuild.
  const UTF16Char* units = path.data();
  const std::size_t size = path.size();
  bool doubled = false;
  for (std::size_t i = 1; i < size && !doubled; ++i)
    doubled = units[i] == u'/' && units[i - 1] == u'/';
  if (!doubled && !(isDir && size > 1 && units[size - 1] == u'/')) return path;
  UTF16String out;
  out.reserve(path.size());
  for (UTF16Char unit : path) {
    if (unit == u'/' && !out.empty() && out.back() == u'/') continue;
    out.push_back(unit);
  }
  if (isDir && out.size() > 1 && out.back() == u'/') out.pop_back();
  return out;
}

boost::posix_time::ptime ToPtime(const platform::FileTime& time) {
  static const boost::posix_time::ptime kEpoch(boost::gregorian::date(1970, 1, 1));
  return kEpoch + boost::posix_time::seconds(time.seconds) +
         boost::posix_time::microseconds(time.nanoseconds / 1000);
}

// 0 and the two times, or the Windows code of the failure.
int ReadTimes(const UTF16String& path, platform::FileTime& created, platform::FileTime& modified) {
  std::string native;
  if (!ToNative(path, native)) return platform::kErrorInvalidName;
  return platform::GetFileTimes(native, created, modified);
}

enum class TimeKind { kCreated, kModified };

// One of the two times of `item` (a File or a Dir): NotFound when the path is
// missing, Failure for any other failure.
template <typename NotFound, typename Failure, typename Item>
boost::posix_time::ptime ReadTime(const Item& item, const UTF16String& path, TimeKind kind) {
  platform::FileTime created, modified;
  const int error = ReadTimes(path, created, modified);
  if (error == 2) throw NotFound(item);
  if (error != 0) throw Failure(item);
  return ToPtime(kind == TimeKind::kCreated ? created : modified);
}

UTF16String JoinPath(const UTF16String& dir, const UTF16String& name) {
  UTF16String joined = dir;
  joined.push_back(u'/');
  joined += name;
  return joined;
}

// The target of an alias ("*.lnk" symbolic link) at `path`, when it is of the
// kind wanted.
bool ResolveAliasPath(const UTF16String& path, bool wantDir, UTF16String& out) {
  File file;
  Dir dir;
  bool isDir = false;
  if (!ResolveIfAlias(File(path), file, dir, isDir) || isDir != wantDir) return false;
  out = isDir ? dir.FullPath() : file.FullPath();
  return true;
}

UTF16String ToLower(UTF16String text) {
  for (auto& unit : text) {
    if (unit < 0xD800 || unit > 0xDFFF) unit = static_cast<UTF16Char>(u_tolower(unit));
  }
  return text;
}

// Copy assignment of a value's helper: an empty value has none (so that it
// costs no allocation), an existing helper is reused.
template <typename Helper>
void AssignHelper(std::unique_ptr<Helper>& to, const std::unique_ptr<Helper>& from) {
  if (to == from) return;
  if (!from)
    to.reset();
  else if (to)
    *to = *from;
  else
    to = std::make_unique<Helper>(*from);
}

}  // namespace

// --- helpers ---

FileHelper::FileHelper(const UTF16String& path) : path_(NativeNormalForm(path, false)) {}
FileHelper::FileHelper(const std::string& path)
    : path_(NativeNormalForm(internal::FromNative(path), false)) {}
DirHelper::DirHelper(const UTF16String& path) : path_(NativeNormalForm(path, true)) {}
DirHelper::DirHelper(const std::string& path)
    : path_(NativeNormalForm(internal::FromNative(path), true)) {}

// --- what File and Dir share ---

template <typename PathHelper>
BasicPath<PathHelper>::BasicPath() = default;
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(const PathHelper& helper)
    : helper_(std::make_unique<PathHelper>(helper)) {}
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(PathHelper&& helper)
    : helper_(std::make_unique<PathHelper>(std::move(helper))) {}
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(const UTF16String& path)
    : helper_(std::make_unique<PathHelper>(path)) {}
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(const Dir& dir, const UTF16String& name, bool resolveAlias)
    : BasicPath(JoinPath(dir.FullPath(), name)) {
  constexpr bool kIsDir = std::is_same_v<PathHelper, DirHelper>;
  UTF16String target;
  // The alias is a file: the name as given, before any trailing "/" went.
  if (resolveAlias && ResolveAliasPath(JoinPath(dir.FullPath(), name), kIsDir, target))
    *helper_ = PathHelper(target);
}
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(const BasicPath& other)
    : helper_(other.helper_ ? std::make_unique<PathHelper>(*other.helper_) : nullptr) {}
template <typename PathHelper>
BasicPath<PathHelper>::BasicPath(BasicPath&& other) noexcept = default;
template <typename PathHelper>
BasicPath<PathHelper>::~BasicPath() = default;

template <typename PathHelper>
BasicPath<PathHelper>& BasicPath<PathHelper>::operator=(const BasicPath& other) {
  AssignHelper(helper_, other.helper_);
  return *this;
}
template <typename PathHelper>
BasicPath<PathHelper>& BasicPath<PathHelper>::operator=(BasicPath&& other) noexcept {
  helper_.swap(other.helper_);
  return *this;
}

// A moved-from value reads as the empty path.
template <typename PathHelper>
const PathHelper& BasicPath<PathHelper>::Helper() const {
  static const base::NoDestructor<PathHelper> kEmpty;
  return helper_ ? *helper_ : *kEmpty;
}

template <typename PathHelper>
UTF16String BasicPath<PathHelper>::GetName() const {
  UTF16String title, extension;
  fu::SplitLongPath(Helper().Path(), nullptr, &title, &extension);
  return title + extension;
}

template <typename PathHelper>
UTF16String BasicPath<PathHelper>::FullPath() const {
  return Helper().Path();
}
template <typename PathHelper>
std::string BasicPath<PathHelper>::FullPathMultiByte() const {
  return ToNative(Helper().Path());
}

template <typename PathHelper>
Dir BasicPath<PathHelper>::Parent() const {
  UTF16String parent;
  fu::SplitLongPath(Helper().Path(), &parent, nullptr, nullptr);
  return Dir(parent);
}

template <typename PathHelper>
bool BasicPath<PathHelper>::operator==(const BasicPath& other) const {
  return CompareFileNames(Helper().Path(), other.Helper().Path()) == 0;
}

template <typename PathHelper>
int BasicPath<PathHelper>::RenameTo(const UTF16String& newName) {
  UTF16String parent, target;
  fu::GetParentPath(Helper().Path(), parent);
  fu::BuildPathSpec(parent, newName, target);
  std::string from, to;
  const int error = ToNative(Helper().Path(), from) && ToNative(target, to)
                        ? platform::MovePath(from, to)
                        : static_cast<int>(platform::kErrorInvalidName);
  if (error == 0) helper_ = std::make_unique<PathHelper>(target);
  return error;
}

template class BasicPath<FileHelper>;
template class BasicPath<DirHelper>;

// --- File ---

FileHelper& File::Helper() {
  if (!helper_) helper_ = std::make_unique<FileHelper>();
  return *helper_;
}

bool File::Exists() const { return fu::FileExists(Helper().Path()); }

bool File::IsReadOnly() const {
  std::string native;
  platform::FileAttributes attributes;
  return ToNative(Helper().Path(), native) &&
         platform::GetAttributes(native, attributes) == platform::kErrorSuccess &&
         attributes.isReadOnly;
}

void File::Create(bool failIfExists) {
  std::string native;
  const int error = ToNative(Helper().Path(), native)
                        ? platform::CreateEmptyFile(native, failIfExists)
                        : static_cast<int>(platform::kErrorInvalidName);
  internal::ThrowCreateError(error, *this);
}

void File::Delete() {
  std::string native;
  const int error = ToNative(Helper().Path(), native)
                        ? platform::DeleteFile(native)
                        : static_cast<int>(platform::kErrorInvalidName);
  if (error != 0) throw file_delete_exception(*this);
}

void File::Rename(const UTF16String& newName) {
  if (RenameTo(newName) != 0) throw rename_file(*this, newName);
}

boost::posix_time::ptime File::Modified() const {
  return ReadTime<file_not_found_exception, file_exception>(*this, Helper().Path(),
                                                            TimeKind::kModified);
}

boost::posix_time::ptime File::Created() const {
  return ReadTime<file_not_found_exception, file_exception>(*this, Helper().Path(),
                                                            TimeKind::kCreated);
}

unsigned long long File::Size(FileSizeSelector selector) const {
  if (selector != 0 && selector != 2 && selector != 3 && selector != 5) return 0;
  std::string native;
  std::uint64_t size = 0;
  if (!ToNative(Helper().Path(), native) || platform::GetFileSize(native, size) != 0) return 0;
  return size;
}

UTF16String File::GetTitle() const {
  UTF16String title;
  fu::SplitLongPath(Helper().Path(), nullptr, &title, nullptr);
  return title;
}

UTF16String File::GetExtension(bool lowerCase) const {
  UTF16String extension;
  fu::SplitLongPath(Helper().Path(), nullptr, nullptr, &extension);
  return lowerCase ? ToLower(extension) : extension;
}

// --- Dir ---

bool Dir::Exists() const {
  std::string native;
  platform::FileAttributes attributes;
  return ToNative(Helper().Path(), native) &&
         platform::GetAttributes(native, attributes) == platform::kErrorSuccess &&
         attributes.isDirectory;
}

void Dir::Create() {
  std::string native;
  const int error = ToNative(Helper().Path(), native)
                        ? platform::CreateDirectory(native)
                        : static_cast<int>(platform::kErrorInvalidName);
  if (error != 0 && error != platform::kErrorAlreadyExists) throw dir_create_exception(*this);
}

void Dir::Delete() {
  std::string native;
  if (!ToNative(Helper().Path(), native)) throw dir_delete_exception(*this);
  // Files, then subdirectories, then the directory itself. Links are removed
  // as the files they are and never followed, this one included: a Dir that
  // names a link removes the link and leaves what it points at.
  platform::TreeRemovalFailure failure;
  if (platform::RemoveTree(native, failure) == 0) return;
  if (failure.path == native) throw dir_delete_exception(*this);
  const UTF16String path = internal::FromNative(failure.path);
  if (failure.isDirectory) throw dir_delete_exception(Dir(path));
  throw file_delete_exception(File(path));
}

void Dir::Rename(const UTF16String& newName) {
  const int error = RenameTo(newName);
  if (error == platform::kErrorAlreadyExists) throw rename_dir_already_exists(*this, newName);
  if (error != 0) throw rename_dir(*this, newName);
}

boost::posix_time::ptime Dir::Modified() const {
  return ReadTime<dir_not_found_exception, dir_exception>(*this, Helper().Path(),
                                                          TimeKind::kModified);
}

boost::posix_time::ptime Dir::Created() const {
  return ReadTime<dir_not_found_exception, dir_exception>(*this, Helper().Path(),
                                                          TimeKind::kCreated);
}

bool Dir::IsTopLevelDir() const {
  UTF16String parent;
  fu::SplitLongPath(Helper().Path(), &parent, nullptr, nullptr);
  return parent.empty();
}

// --- free functions ---

bool IsPathDriveLetter(const UTF16String& path) { return path.size() == 2 && path[1] == u':'; }

int CompareFileNames(const UTF16String& a, const UTF16String& b) {
  UTF16String foldedA, foldedB;
  if (!internal::FoldForFileNameCompare(a, foldedA) ||
      !internal::FoldForFileNameCompare(b, foldedB))
    return -2;
  const int order = foldedA.compare(foldedB);
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

UTF16String NormalizeWindowsPath(const UTF16String& input, bool isDir) {
  UTF16String path = input;
  // Only a backslash goes, and before the runs are cut: "C:\\dir\\\\" keeps one.
  if (isDir && !path.empty() && path.back() == u'\\') path.pop_back();
  if (path.empty()) return path;
  for (auto& unit : path)
    if (unit == u'/') unit = u'\\';
  if (path.compare(0, 8, u"\\\\?\\UNC\\") == 0)
    path.erase(2, 6);
  else if (path.compare(0, 4, u"\\\\?\\") == 0)
    path.erase(0, 4);
  UTF16String out;
  out.reserve(path.size());
  for (std::size_t i = 0; i < path.size(); ++i) {
    // A run is cut to one unit, except the pair that opens a UNC path.
    if (path[i] == u'\\' && out.size() >= 2 && out.back() == u'\\') continue;
    out.push_back(path[i]);
  }
  return out;
}

UTF16String PrepAsLongPathName(const UTF16String& path) {
  if (path.size() > 2 && path[0] == u'\\' && path[1] == u'\\' &&
      path.find(u'\\', 2) != UTF16String::npos)
    return u"\\\\?\\UNC\\" + path.substr(2);
  return u"\\\\?\\" + path;
}

}  // namespace tvxcore::filesupport
