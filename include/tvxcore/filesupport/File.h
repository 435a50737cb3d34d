// tvxcore/filesupport/File.h: files and directories as values.
//
// File and Dir name something in the file system by its path. They hold no
// open file and keep nothing alive; every failure of an operation is one of
// the exceptions of FileExceptions.h. Paths are native: on Linux the separator
// is "/" and a backslash is an ordinary character of a name.
#pragma once

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport {

class Dir;
class File;
class IteratorHelper;
class RecursiveFileIterator;

// Which size File::Size() reports. The first group all answer the size of the
// file's data; the other values answer 0.
enum FileSizeSelector : int {
  kFileSize_Logical = 0,
  kFileSize_ResourceFork = 1,
  kFileSize_DataFork = 2,
  kFileSize_Physical = 3,
  kFileSize_ResourcePhysical = 4,
  kFileSize_Total = 5,
};

// The sort order of a listing: a strict "comes before" on full paths.
using PathCompare = boost::function<bool(const UTF16String&, const UTF16String&)>;
using PathComparePtr = boost::shared_ptr<PathCompare>;
// A path borrowed from a listing, as its iterators hand it out without making
// a File or Dir.
using PathView = std::basic_string_view<UTF16Char>;

// The path of a File in normal form: repeated "/" collapsed to one. Owned by
// its File; a value.
class TVXCORE_EXPORT FileHelper : public utility::SmallBlockAllocator::Allocated<FileHelper> {
 public:
  // Marks a path known to be in normal form already, such as a listing's.
  struct NormalPath {};

  FileHelper() = default;
  explicit FileHelper(const UTF16String& path);
  FileHelper(UTF16String path, NormalPath) : path_(std::move(path)) {}
  // From native bytes (UTF-8 on Linux).
  explicit FileHelper(const std::string& path);

  const UTF16String& Path() const { return path_; }
  // What goes to the platform. On Linux it is the normal form itself: no
  // prefix is needed for long paths.
  UTF16String FullNativePath() const { return path_; }

 private:
  friend class File;
  UTF16String path_;
};

// The named folders that DirHelper::SystemDir finds. The values are those of
// the Windows folder identifiers (CSIDL_...), so that numbers recorded there
// mean the same folder here; docs/PORTING.md gives each one's Linux answer.
enum SystemFolderId : unsigned long {
  kSystemFolder_Documents = 0x0005,           // the user's documents
  kSystemFolder_Desktop = 0x0010,             // the user's desktop
  kSystemFolder_ApplicationData = 0x001a,     // the user's application settings
  kSystemFolder_ProgramFiles = 0x0026,        // add-on applications of the machine
  kSystemFolder_CommonProgramFiles = 0x002b,  // components shared between applications
  kSystemFolder_SharedDocuments = 0x002e,     // data shared by all users
  // Added to an identifier: make the folder (and its parents) when missing.
  kSystemFolder_FlagCreate = 0x8000,
};

// The path of a Dir in normal form: like a file's, and one trailing "/"
// removed, except from the root "/".
class TVXCORE_EXPORT DirHelper : public utility::SmallBlockAllocator::Allocated<DirHelper> {
 public:
  DirHelper() = default;
  explicit DirHelper(const UTF16String& path);
  DirHelper(UTF16String path, FileHelper::NormalPath) : path_(std::move(path)) {}
  explicit DirHelper(const std::string& path);

  // The named folder `folderId` (a SystemFolderId, with
  // kSystemFolder_FlagCreate added or not). When the system has no answer, the
  // identifier is unknown, or the folder asked to be made can't be, the
  // application's folder (Dir::AppDir()) takes its place.
  static DirHelper SystemDir(unsigned long folderId);

  const UTF16String& Path() const { return path_; }
  UTF16String FullNativePath() const { return path_; }

 private:
  UTF16String path_;
};

// What File and Dir have alike, written once for both: the path in normal
// form, held by a `PathHelper` (FileHelper or DirHelper) that an empty value
// does without, so that end iterators and default members cost no
// allocation. A value: copies are independent. Used as the base of File and
// Dir only.
template <typename PathHelper>
class TVXCORE_EXPORT BasicPath {
 public:
  BasicPath();
  BasicPath(const PathHelper& helper);  // NOLINT: a helper is a value in waiting
  BasicPath(PathHelper&& helper);       // NOLINT
  explicit BasicPath(const UTF16String& path);
  // `name` in `dir`. With `resolveAlias`, a name that is an alias (a symbolic
  // link named "*.lnk") to the same kind of thing (a file for a File, a
  // directory for a Dir) gives that thing.
  BasicPath(const Dir& dir, const UTF16String& name, bool resolveAlias = false);
  BasicPath(const BasicPath& other);
  BasicPath(BasicPath&& other) noexcept;
  BasicPath& operator=(const BasicPath& other);
  BasicPath& operator=(BasicPath&& other) noexcept;
  ~BasicPath();

  UTF16String GetName() const;
  UTF16String FullPath() const;
  // The path as native bytes (UTF-8).
  std::string FullPathMultiByte() const;
  Dir Parent() const;
  // CompareFileNames() of the two paths is 0: case, width and kana ignored.
  bool operator==(const BasicPath& other) const;
  bool operator!=(const BasicPath& other) const { return !(*this == other); }

  // An empty value reads as the empty path.
  const PathHelper& Helper() const;

 protected:
  // Renames within the parent directory: 0 or the Windows code of the failure.
  int RenameTo(const UTF16String& newName);

  std::unique_ptr<PathHelper> helper_;
};

// A file by path. Not synchronised; two threads may use two objects on the
// same path and the file system decides.
class TVXCORE_EXPORT File : public BasicPath<FileHelper> {
 public:
  using BasicPath::BasicPath;

  // True for anything at the path, a directory included.
  bool Exists() const;
  // True when the file has no write permission bit at all.
  bool IsReadOnly() const;
  // Makes an empty file. Throws a create_exception child (see
  // FileExceptions.h); Create(true) on an existing file is
  // create_accessdenied_exception, Create(false) empties it.
  void Create(bool failIfExists);
  // Throws file_delete_exception.
  void Delete();
  // Renames within the parent directory; `newName` is a name, not a path.
  // Throws rename_file. On success this object names the new file.
  void Rename(const UTF16String& newName);
  // Times in UTC. Created is the birth time where the file system keeps one,
  // else the modification time. Throw file_not_found_exception or
  // file_exception.
  boost::posix_time::ptime Modified() const;
  boost::posix_time::ptime Created() const;
  // 0 on any failure, and for selectors outside the data group.
  unsigned long long Size(FileSizeSelector selector = kFileSize_Logical) const;

  UTF16String GetTitle() const;
  UTF16String GetExtension(bool lowerCase = false) const;

  using BasicPath::Helper;
  // The helper to change, made for an empty File.
  FileHelper& Helper();
};

template <typename Value>
class ListingIterator;

// A directory by path, like File.
class TVXCORE_EXPORT Dir : public BasicPath<DirHelper> {
 public:
  using DirIterator = ListingIterator<Dir>;
  using FileIterator = ListingIterator<File>;

  using BasicPath::BasicPath;

  // True when a directory (or a link to one) is at the path.
  bool Exists() const;
  // Makes one level; an existing directory is no failure. Throws
  // dir_create_exception.
  void Create();
  // Deletes the directory with everything in it, files before
  // subdirectories. Symbolic links are removed, never followed: a Dir that
  // names a link removes only the link, and a link inside (also one swapped
  // in while the deletion runs) goes as a link. Works for trees of any depth.
  // Stops at the first failure: file_delete_exception for a file inside,
  // dir_delete_exception for a directory.
  void Delete();
  // Throws rename_dir_already_exists when the new name is taken, else
  // rename_dir.
  void Rename(const UTF16String& newName);
  // As File's, throwing dir_not_found_exception or dir_exception.
  boost::posix_time::ptime Modified() const;
  boost::posix_time::ptime Created() const;
  // True when the path has no parent ("/" or a relative single name).
  bool IsTopLevelDir() const;

  // The named places of the system (filesupport/CommonDirs.h adds the
  // application's own layout). Each is looked up again at every call, so a
  // change of the environment shows at once; only the overrides of AppDir()
  // and PackageDir() are kept, in the slots of commondirs. Any thread.
  //
  // The folder of the main executable (commondirs::MainExecutableFile()),
  // unless commondirs::SetAppDirOverride has set one.
  static Dir AppDir();
  // AppDir(), unless commondirs::SetPackageDirOverride has set one.
  static Dir PackageDir();
  // The temporary folder: $TMPDIR, else /tmp.
  static Dir TempDir();
  // Components shared between applications (kSystemFolder_CommonProgramFiles).
  static Dir CommonFilesDir();
  // The user's documents, made when missing (kSystemFolder_Documents).
  static Dir UserDocsDir();
  // Data shared by all users, made when missing (kSystemFolder_SharedDocuments).
  static Dir SharedDocsDir();
  // The user's application settings, made when missing
  // (kSystemFolder_ApplicationData: $XDG_CONFIG_HOME, else ~/.config).
  static Dir GlobalPrefDir();
  // The preferences folder of this application: three levels below
  // GlobalPrefDir(), named by config::GetCompanyName(), GetClientName() and
  // GetClientInternalVersion() (a "/" in a name becomes "_", and a name ".."
  // is "_"), each made on the way when missing. Throws dir_create_exception
  // for the first level that can't be made. Meant for use after
  // config::SetClientName.
  static Dir PrefDir();

  // Listings (DirIterators.h). Each reads the whole directory at once into
  // a snapshot shared by copies of the iterator. `abortCheck`, when given and
  // not empty, is asked after each entry and stops the listing on true; it
  // must live as long as the call. `compare` sorts the snapshot when not null.
  DirIterator BeginSubdirs(bool resolveAliases = false,
                           boost::function<bool()>* abortCheck = nullptr,
                           PathComparePtr compare = PathComparePtr()) const;
  static DirIterator EndSubdirs();
  FileIterator BeginFiles(bool resolveAliases = false,
                          boost::function<bool()>* abortCheck = nullptr,
                          bool resolvedFilesOnly = false,
                          PathComparePtr compare = PathComparePtr()) const;
  static FileIterator EndFiles();
  // The mounted volumes that hold files: fixed, removable, remote and optical
  // ones; memory and pseudo file systems are left out.
  static DirIterator BeginVolumes(PathComparePtr compare = PathComparePtr());
  static DirIterator EndVolumes();
};

// Walks a listing, giving each entry as a `Value`: Dir::DirIterator gives
// the directories as Dir, Dir::FileIterator the files as File. Copies share
// the snapshot and move independently. An end iterator has no helper or one
// at its end.
template <typename Value>
class TVXCORE_EXPORT ListingIterator {
 public:
  ListingIterator();
  explicit ListingIterator(IteratorHelper* helper);  // takes ownership
  ListingIterator(const ListingIterator& other);
  ListingIterator(ListingIterator&& other) noexcept;
  ListingIterator& operator=(const ListingIterator& other);
  ListingIterator& operator=(ListingIterator&& other) noexcept;
  ~ListingIterator();

  bool operator==(const ListingIterator& other) const;
  bool operator!=(const ListingIterator& other) const { return !(*this == other); }
  ListingIterator& operator++();
  ListingIterator operator++(int);
  Value operator*() const;
  // The path that operator* gives as a Value, without making one; empty at
  // the end. It lives as long as some iterator on the same listing does.
  PathView CurrentPath() const;

 private:
  friend class RecursiveFileIterator;  // refills spent listings
  std::unique_ptr<IteratorHelper> helper_;
};

extern template class BasicPath<FileHelper>;
extern template class BasicPath<DirHelper>;
extern template class ListingIterator<Dir>;
extern template class ListingIterator<File>;

// True when the path is exactly two units and the second is ":".
TVXCORE_EXPORT bool IsPathDriveLetter(const UTF16String& path);
// -1, 0 or 1, ignoring case, width (full-width forms) and kana type
// (katakana against hiragana); -2 when the strings can't be compared.
TVXCORE_EXPORT int CompareFileNames(const UTF16String& a, const UTF16String& b);

// Windows-form paths, for paths recorded on Windows. Pure string functions:
// they touch no file system.
//
// The Windows normal form: "/" becomes "\", a "\\?\UNC\" prefix leaves the
// "\\server" form and a "\\?\" prefix goes, runs of "\" after index 0 are cut
// to one. With `isDir` one trailing "\" is removed first.
TVXCORE_EXPORT UTF16String NormalizeWindowsPath(const UTF16String& path, bool isDir);
// The long form of a Windows path: "\\?\UNC\server\..." for a UNC path with a
// share, "\\?\" and the path for anything else.
TVXCORE_EXPORT UTF16String PrepAsLongPathName(const UTF16String& path);

}  // namespace tvxcore::filesupport
