#include "tvxcore/filesupport/DirIterators.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileSystem.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::filesupport {

// Full paths back to back in one buffer, so that a listing costs no heap
// string per entry. Built once, then shared read-only.
class IteratorHelper::Entries {
 public:
  std::size_t size() const { return ends_.size(); }
  bool empty() const { return ends_.empty(); }
  PathView operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return PathView(units_.get() + begin, ends_[index] - begin);
  }

  // Room for `count` more entries of `units` units in all, so that a block
  // of a directory is taken in without growing the buffer.
  void Reserve(std::size_t count, std::size_t units) {
    Grow(used_ + units);
    ends_.reserve(ends_.size() + count);
  }
  void Append(PathView path) {
    Grow(used_ + path.size());
    std::copy(path.begin(), path.end(), units_.get() + used_);
    used_ += path.size();
    ends_.push_back(used_);
  }
  // `prefix` followed by the native name widened.
  void AppendJoined(PathView prefix, std::string_view name) {
    Grow(used_ + prefix.size() + name.size());
    UTF16Char* to = std::copy(prefix.begin(), prefix.end(), units_.get() + used_);
    used_ = static_cast<std::size_t>(to - units_.get()) + internal::WidenNative(name, to);
    ends_.push_back(used_);
  }

  // Empty again, keeping the room.
  void Clear() {
    used_ = 0;
    ends_.clear();
  }

  void Sort(const PathCompare& compare) {
    std::vector<UTF16String> paths;
    paths.reserve(size());
    for (std::size_t i = 0; i < size(); ++i) {
      const PathView path = (*this)[i];
      paths.emplace_back(path.data(), path.size());
    }
    std::sort(paths.begin(), paths.end(), compare);
    Clear();
    for (const auto& path : paths) Append(PathView(path.data(), path.size()));
  }

 private:
  // Keeps what is used; the new room is left uninitialised.
  void Grow(std::size_t needed) {
    if (needed <= capacity_) return;
    const std::size_t capacity = std::max(needed, 2 * capacity_);
    std::unique_ptr<UTF16Char[]> units(new UTF16Char[capacity]);
    std::copy(units_.get(), units_.get() + used_, units.get());
    units_ = std::move(units);
    capacity_ = capacity;
  }

  std::unique_ptr<UTF16Char[]> units_;  // the first used_ of them hold paths
  std::size_t capacity_ = 0;
  std::size_t used_ = 0;
  std::vector<std::size_t> ends_;  // where each path ends in units_
};

namespace {

bool EndsWithLnk(std::string_view name) {
  return name.size() >= 4 && name.substr(name.size() - 4) == ".lnk";
}

PathView ViewOf(const UTF16String& text) { return PathView(text.data(), text.size()); }

}  // namespace

// --- IteratorHelper ---

IteratorHelper::IteratorHelper() = default;

IteratorHelper::IteratorHelper(bool wantDirs, const UTF16String& path, bool resolveAliases,
                               boost::function<bool()>* abortCheck, bool resolvedFilesOnly,
                               PathComparePtr compare)
    : wantDirs_(wantDirs), resolveAliases_(resolveAliases), compare_(std::move(compare)) {
  Read(path, abortCheck, resolvedFilesOnly);
}

void IteratorHelper::Read(const UTF16String& path, boost::function<bool()>* abortCheck,
                          bool resolvedFilesOnly) {
  entries_ = boost::make_shared<Entries>();
  index_ = 0;
  ReadInto(path, resolveAliases_, skipLinkedDirs_, abortCheck, resolvedFilesOnly,
           wantDirs_ ? nullptr : entries_.get(), wantDirs_ ? entries_.get() : nullptr, nullptr);
  Finish();
}

namespace {

// Whether the directory at `path` is one of `dirs`.
bool IsAmong(const UTF16String& path, const IteratorHelper::DirIds& dirs) {
  std::string native;
  platform::FileId id;
  if (!internal::ToNative(path, native) || platform::GetFileId(native, id) != 0) return false;
  return std::find(dirs.begin(), dirs.end(), std::make_pair(id.device, id.inode)) != dirs.end();
}

}  // namespace

void IteratorHelper::ReadInto(const UTF16String& path, bool resolveAliases, bool skipLinkedDirs,
                              boost::function<bool()>* abortCheck, bool resolvedFilesOnly,
                              Entries* files, Entries* dirs, const DirIds* enteredDirs) {
  std::string native;
  if (!internal::ToNative(path, native)) return;
  const bool checkAbort = abortCheck != nullptr && !abortCheck->empty();
  UTF16String prefixText = path;
  if (prefixText.empty() || prefixText.back() != u'/') prefixText.push_back(u'/');
  const PathView prefix = ViewOf(prefixText);
  // Most entries of a block usually go to one side: room is made there.
  Entries* mostly = files != nullptr ? files : dirs;
  platform::ListDirectoryBlocks(native, [&](const platform::DirEntry* block, std::size_t count) {
    std::size_t nameUnits = 0;
    for (std::size_t i = 0; i < count; ++i) nameUnits += block[i].name.size();
    if (mostly != nullptr) mostly->Reserve(count, count * prefix.size() + nameUnits);
    for (std::size_t i = 0; i < count; ++i) {
      const platform::DirEntry& entry = block[i];
      bool isDir = entry.isDirectory;
      Entries* into = isDir ? dirs : files;
      if (isDir && entry.isSymlink && skipLinkedDirs) into = nullptr;
      // The alias is the link itself, a file whatever it leads to; only a
      // real directory named "*.lnk" is no alias.
      if (resolveAliases && (!isDir || entry.isSymlink) && EndsWithLnk(entry.name)) {
        UTF16String full = prefixText;
        internal::AppendFromNative(entry.name, full);
        bool keep = true;
        UTF16String target = full;
        bool targetIsDir = false;
        const long result = utility::FileUtils::ResolveIT(target, targetIsDir);
        if (resolvedFilesOnly) {
          // Only a file target replaces the alias; a broken alias, or one to
          // a directory, is listed as the file it is.
          if (result >= 0 && !targetIsDir) full = DirHelper(target).Path();
          isDir = false;
        } else if (result < 0) {
          keep = false;  // a broken alias isn't listed
        } else {
          full = DirHelper(target).Path();
          isDir = targetIsDir;
          // A walk doesn't enter a directory it is already inside of, so
          // aliases that lead back up can't make it loop.
          if (isDir && enteredDirs != nullptr && IsAmong(full, *enteredDirs)) keep = false;
        }
        into = isDir ? dirs : files;
        if (keep && into != nullptr) into->Append(ViewOf(full));
      } else if (into != nullptr) {
        into->AppendJoined(prefix, entry.name);
      }
      if (checkAbort && (*abortCheck)()) return false;
    }
    return true;
  });
}

void IteratorHelper::Finish() {
  atEnd_ = entries_->empty();
  if (!atEnd_ && compare_) entries_->Sort(*compare_);
}

IteratorHelper* IteratorHelper::Volumes(PathComparePtr compare) {
  auto* helper = new IteratorHelper();
  helper->wantDirs_ = true;
  helper->compare_ = std::move(compare);
  helper->entries_ = boost::make_shared<Entries>();
  std::set<std::string> seen;
  for (const auto& mount : platform::ReadMounts()) {
    switch (platform::GetDriveType(mount)) {
      case platform::kDriveFixed:
      case platform::kDriveRemote:
      case platform::kDriveCdRom:
      case platform::kDriveRemovable:
        break;
      default:
        continue;
    }
    // Bind mounts of single files aren't volumes; a point mounted twice is one.
    platform::FileAttributes attributes;
    if (platform::GetAttributes(mount.path, attributes) != 0 || !attributes.isDirectory ||
        !seen.insert(mount.path).second)
      continue;
    helper->entries_->Append(ViewOf(DirHelper(internal::FromNative(mount.path)).Path()));
  }
  helper->Finish();
  return helper;
}

PathView IteratorHelper::Current() const {
  if (atEnd_ || !entries_ || index_ < 0 || static_cast<std::size_t>(index_) >= entries_->size())
    return PathView();
  return (*entries_)[static_cast<std::size_t>(index_)];
}

void IteratorHelper::Advance() {
  if (atEnd_) return;
  ++index_;
  if (static_cast<std::size_t>(index_) >= entries_->size()) atEnd_ = true;
}

bool IteratorHelper::operator==(const IteratorHelper& other) const {
  if (atEnd_ || other.atEnd_) return atEnd_ && other.atEnd_;
  return wantDirs_ == other.wantDirs_ && resolveAliases_ == other.resolveAliases_ &&
         entries_ == other.entries_ && index_ == other.index_;
}

// --- Dir listings ---

Dir::DirIterator Dir::BeginSubdirs(bool resolveAliases, boost::function<bool()>* abortCheck,
                                   PathComparePtr compare) const {
  return DirIterator(
      new IteratorHelper(true, FullPath(), resolveAliases, abortCheck, false, std::move(compare)));
}
Dir::DirIterator Dir::EndSubdirs() { return DirIterator(new IteratorHelper()); }

Dir::FileIterator Dir::BeginFiles(bool resolveAliases, boost::function<bool()>* abortCheck,
                                  bool resolvedFilesOnly, PathComparePtr compare) const {
  return FileIterator(new IteratorHelper(false, FullPath(), resolveAliases, abortCheck,
                                         resolvedFilesOnly, std::move(compare)));
}
Dir::FileIterator Dir::EndFiles() { return FileIterator(new IteratorHelper()); }

Dir::DirIterator Dir::BeginVolumes(PathComparePtr compare) {
  return DirIterator(IteratorHelper::Volumes(std::move(compare)));
}
Dir::DirIterator Dir::EndVolumes() { return DirIterator(new IteratorHelper()); }

// Dir::DirIterator and Dir::FileIterator: one body for both.

template <typename Value>
ListingIterator<Value>::ListingIterator() = default;
template <typename Value>
ListingIterator<Value>::ListingIterator(IteratorHelper* helper) : helper_(helper) {}
template <typename Value>
ListingIterator<Value>::ListingIterator(const ListingIterator& other)
    : helper_(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr) {}
template <typename Value>
ListingIterator<Value>& ListingIterator<Value>::operator=(const ListingIterator& other) {
  if (this != &other) helper_.reset(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr);
  return *this;
}
template <typename Value>
ListingIterator<Value>::ListingIterator(ListingIterator&& other) noexcept = default;
template <typename Value>
ListingIterator<Value>& ListingIterator<Value>::operator=(ListingIterator&& other) noexcept =
    default;
template <typename Value>
ListingIterator<Value>::~ListingIterator() = default;

template <typename Value>
bool ListingIterator<Value>::operator==(const ListingIterator& other) const {
  if (!helper_ || !other.helper_) return !helper_ && !other.helper_;
  return *helper_ == *other.helper_;
}
template <typename Value>
ListingIterator<Value>& ListingIterator<Value>::operator++() {
  if (helper_) helper_->Advance();
  return *this;
}
template <typename Value>
ListingIterator<Value> ListingIterator<Value>::operator++(int) {
  ListingIterator before(*this);
  ++*this;
  return before;
}

// Entries are in normal form already.
template <typename Value>
Value ListingIterator<Value>::operator*() const {
  using PathHelper = std::remove_cvref_t<decltype(std::declval<const Value&>().Helper())>;
  if (!helper_) return Value();
  const PathView path = helper_->Current();
  return Value(PathHelper(UTF16String(path.data(), path.size()), FileHelper::NormalPath()));
}
template <typename Value>
PathView ListingIterator<Value>::CurrentPath() const {
  return helper_ ? helper_->Current() : PathView();
}

template class ListingIterator<Dir>;
template class ListingIterator<File>;

// --- RecursiveFileIterator ---

RecursiveFileIterator::RecursiveFileIterator() = default;

RecursiveFileIterator::RecursiveFileIterator(const Dir& root, bool resolveAliases,
                                             boost::function<bool()> abortCheck,
                                             const UTF16String& startPath, PathComparePtr compare)
    : finished_(false),
      resolveAliases_(resolveAliases),
      current_(root),
      abortCheck_(std::move(abortCheck)),
      compare_(std::move(compare)) {
  filesEnd_ = Dir::EndFiles();
  Enter(root);
  if (startPath.empty()) {
    if (files_ == filesEnd_) Step();
    return;
  }
  // Resume: enter each directory named by the path, then find the file.
  std::vector<UTF16String> components;
  UTF16String part;
  for (UTF16Char unit : startPath) {
    if (unit != u'/') {
      part.push_back(unit);
    } else if (!part.empty()) {
      components.push_back(std::move(part));
      part.clear();
    }
  }
  if (!part.empty()) components.push_back(std::move(part));
  for (std::size_t level = 0; level + 1 < components.size(); ++level) {
    auto& [dirs, dirsEnd] = stack_.back();
    Dir::DirIterator found = dirs;
    while (found != dirsEnd && CompareFileNames((*found).GetName(), components[level]) != 0)
      ++found;
    if (found == dirsEnd) {
      // The directory is gone: go on behind this level's files.
      files_ = filesEnd_;
      Step();
      return;
    }
    current_ = *found;
    dirs = ++found;
    Enter(current_);
  }
  const UTF16String& name = components.empty() ? UTF16String() : components.back();
  while (files_ != filesEnd_ && CompareFileNames((*files_).GetName(), name) != 0) ++files_;
  if (files_ == filesEnd_) Step();
}

void RecursiveFileIterator::Enter(const Dir& dir) {
  auto* files = new IteratorHelper();
  Dir::FileIterator filesIt(files);  // owns it from here on
  auto* dirs = new IteratorHelper();
  Dir::DirIterator dirsIt(dirs);
  files->resolveAliases_ = dirs->resolveAliases_ = resolveAliases_;
  dirs->wantDirs_ = true;
  files->compare_ = dirs->compare_ = compare_;
  // Spent listings that nobody else holds are refilled instead of made anew.
  // The spare may be shared with a copy of this iterator, and is then left to it.
  auto spareOrNew = [this] {
    boost::shared_ptr<IteratorHelper::Entries> entries = std::move(spare_);
    if (entries.use_count() != 1) entries = boost::make_shared<IteratorHelper::Entries>();
    return entries;
  };
  files->entries_ = Reclaim(files_.helper_.get());
  if (!files->entries_) files->entries_ = spareOrNew();
  dirs->entries_ = spareOrNew();
  // Links to directories are left out, so a cycle of links can't trap the
  // walk; the target of an alias is entered unless the walk is inside it.
  if (resolveAliases_) {
    std::string native;
    platform::FileId id;
    if (!internal::ToNative(dir.Helper().Path(), native) || platform::GetFileId(native, id) != 0)
      id = platform::FileId();
    enteredDirs_.emplace_back(id.device, id.inode);
  }
  IteratorHelper::ReadInto(dir.Helper().Path(), resolveAliases_, true, &abortCheck_, false,
                           files->entries_.get(), dirs->entries_.get(),
                           resolveAliases_ ? &enteredDirs_ : nullptr);
  files->Finish();
  dirs->Finish();
  files_ = std::move(filesIt);
  stack_.emplace_back(std::move(dirsIt), Dir::EndSubdirs());
}

boost::shared_ptr<IteratorHelper::Entries> RecursiveFileIterator::Reclaim(IteratorHelper* helper) {
  boost::shared_ptr<IteratorHelper::Entries> entries;
  if (helper == nullptr || !helper->entries_ || helper->entries_.use_count() != 1) return entries;
  entries = std::move(helper->entries_);
  helper->atEnd_ = true;
  entries->Clear();
  return entries;
}

void RecursiveFileIterator::Step() {
  bool found = false;
  while (!finished_ && !found) {
    if (files_ != filesEnd_) {
      ++files_;
      found = files_ != filesEnd_;
    } else if (stack_.empty()) {
      finished_ = true;
    } else if (stack_.back().first != stack_.back().second) {
      auto& dirs = stack_.back().first;
      current_ = *dirs;
      ++dirs;
      Enter(current_);
      found = files_ != filesEnd_;  // a new directory stands on its first file
    } else {
      if (!spare_) spare_ = Reclaim(stack_.back().first.helper_.get());
      stack_.pop_back();
      if (!enteredDirs_.empty()) enteredDirs_.pop_back();
    }
  }
}

File RecursiveFileIterator::operator*() const { return finished_ ? File() : *files_; }
PathView RecursiveFileIterator::CurrentPath() const {
  return finished_ ? PathView() : files_.CurrentPath();
}
Dir RecursiveFileIterator::CurrentDir() const { return current_; }

bool RecursiveFileIterator::operator==(const RecursiveFileIterator& other) const {
  if (finished_ || other.finished_) return finished_ && other.finished_;
  return files_ == other.files_ && current_.Helper().Path() == other.current_.Helper().Path();
}

RecursiveFileIterator& RecursiveFileIterator::operator++() {
  Step();
  return *this;
}

RecursiveFileIterator RecursiveFileIterator::operator++(int) {
  RecursiveFileIterator before(*this);
  Step();
  return before;
}

}  // namespace tvxcore::filesupport
