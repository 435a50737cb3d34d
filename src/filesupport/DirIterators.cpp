#include "tvxcore/filesupport/DirIterators.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <set>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileSystem.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::filesupport {
namespace {

bool EndsWithLnk(std::string_view name) {
  return name.size() >= 4 && name.substr(name.size() - 4) == ".lnk";
}

const UTF16String kNoEntry;

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
  std::string native;
  if (internal::ToNative(path, native)) {
    const bool checkAbort = abortCheck != nullptr && !abortCheck->empty();
    UTF16String prefix = path;
    if (prefix.empty() || prefix.back() != u'/') prefix.push_back(u'/');
    platform::ListDirectory(native, [&](const platform::DirEntry& entry) {
      bool isDir = entry.isDirectory;
      bool keep = !(isDir && entry.isSymlink && skipLinkedDirs_);
      UTF16String full = prefix + internal::FromNative(entry.name);
      if (keep && resolveAliases_ && !isDir && EndsWithLnk(entry.name)) {
        UTF16String target = full;
        bool targetIsDir = false;
        const long result = utility::FileUtils::ResolveIT(target, targetIsDir);
        if (resolvedFilesOnly) {
          if (result >= 0 && !targetIsDir) full = DirHelper(target).Path();
        } else if (result < 0) {
          keep = false;  // a broken alias isn't listed
        } else {
          full = DirHelper(target).Path();
          isDir = targetIsDir;
        }
      }
      if (keep && isDir == wantDirs_) entries_->push_back(std::move(full));
      return !(checkAbort && (*abortCheck)());
    });
  }
  Finish();
}

void IteratorHelper::Finish() {
  atEnd_ = entries_->empty();
  if (!atEnd_ && compare_) std::sort(entries_->begin(), entries_->end(), *compare_);
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
    helper->entries_->push_back(DirHelper(internal::FromNative(mount.path)).Path());
  }
  helper->Finish();
  return helper;
}

const UTF16String& IteratorHelper::Current() const {
  if (atEnd_ || !entries_ || index_ < 0 || static_cast<std::size_t>(index_) >= entries_->size())
    return kNoEntry;
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

namespace {

bool HelpersEqual(const std::unique_ptr<IteratorHelper>& a,
                  const std::unique_ptr<IteratorHelper>& b) {
  if (!a || !b) return !a && !b;
  return *a == *b;
}

}  // namespace

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

Dir::DirIterator::DirIterator() = default;
Dir::DirIterator::DirIterator(IteratorHelper* helper) : helper_(helper) {}
Dir::DirIterator::DirIterator(const DirIterator& other)
    : helper_(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr) {}
Dir::DirIterator& Dir::DirIterator::operator=(const DirIterator& other) {
  if (this != &other) helper_.reset(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr);
  return *this;
}
Dir::DirIterator::~DirIterator() = default;
bool Dir::DirIterator::operator==(const DirIterator& other) const {
  return HelpersEqual(helper_, other.helper_);
}
Dir::DirIterator& Dir::DirIterator::operator++() {
  if (helper_) helper_->Advance();
  return *this;
}
Dir::DirIterator Dir::DirIterator::operator++(int) {
  DirIterator before(*this);
  ++*this;
  return before;
}
Dir Dir::DirIterator::operator*() const { return helper_ ? Dir(helper_->Current()) : Dir(); }

Dir::FileIterator::FileIterator() = default;
Dir::FileIterator::FileIterator(IteratorHelper* helper) : helper_(helper) {}
Dir::FileIterator::FileIterator(const FileIterator& other)
    : helper_(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr) {}
Dir::FileIterator& Dir::FileIterator::operator=(const FileIterator& other) {
  if (this != &other) helper_.reset(other.helper_ ? new IteratorHelper(*other.helper_) : nullptr);
  return *this;
}
Dir::FileIterator::~FileIterator() = default;
bool Dir::FileIterator::operator==(const FileIterator& other) const {
  return HelpersEqual(helper_, other.helper_);
}
Dir::FileIterator& Dir::FileIterator::operator++() {
  if (helper_) helper_->Advance();
  return *this;
}
Dir::FileIterator Dir::FileIterator::operator++(int) {
  FileIterator before(*this);
  ++*this;
  return before;
}
File Dir::FileIterator::operator*() const { return helper_ ? File(helper_->Current()) : File(); }

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
  files_ = ListFiles(root);
  filesEnd_ = Dir::EndFiles();
  stack_.emplace_back(ListDirs(root), Dir::EndSubdirs());
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
    files_ = ListFiles(current_);
    stack_.emplace_back(ListDirs(current_), Dir::EndSubdirs());
  }
  const UTF16String& name = components.empty() ? UTF16String() : components.back();
  while (files_ != filesEnd_ && CompareFileNames((*files_).GetName(), name) != 0) ++files_;
  if (files_ == filesEnd_) Step();
}

Dir::FileIterator RecursiveFileIterator::ListFiles(const Dir& dir) {
  return dir.BeginFiles(resolveAliases_, &abortCheck_, false, compare_);
}

Dir::DirIterator RecursiveFileIterator::ListDirs(const Dir& dir) {
  auto* helper = new IteratorHelper();
  helper->wantDirs_ = true;
  helper->resolveAliases_ = resolveAliases_;
  helper->skipLinkedDirs_ = true;
  helper->compare_ = compare_;
  helper->Read(dir.FullPath(), &abortCheck_, false);
  return Dir::DirIterator(helper);
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
      files_ = ListFiles(current_);
      stack_.emplace_back(ListDirs(current_), Dir::EndSubdirs());
      found = files_ != filesEnd_;  // a new directory stands on its first file
    } else {
      stack_.pop_back();
    }
  }
}

File RecursiveFileIterator::operator*() const { return finished_ ? File() : *files_; }
Dir RecursiveFileIterator::CurrentDir() const { return current_; }

bool RecursiveFileIterator::operator==(const RecursiveFileIterator& other) const {
  if (finished_ || other.finished_) return finished_ && other.finished_;
  return files_ == other.files_ && current_.FullPath() == other.current_.FullPath();
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
