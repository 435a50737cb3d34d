// The named places of the system (the statics of Dir, DirHelper::SystemDir)
// and the application's layout on top of them (commondirs).
#include "tvxcore/filesupport/CommonDirs.h"

#include <array>

#include "base/NoDestructor.h"
#include "filesupport/internal/PathCodec.h"
#include "platform/SystemFolders.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::filesupport {
namespace {

using internal::FromNative;

constexpr char kDirUserDocs[] =
    "$$$/tvxcore/filesupport/DirUserDocs=Could not find the user documents directory.";
constexpr char kDirDesktopDocs[] =
    "$$$/tvxcore/filesupport/DirDesktopDocs=Could not find the user desktop directory.";

// One slot per name; an empty path holds no value.
enum class Slot : std::size_t {
  kMainExecutable,
  kAppDir,
  kPackageDir,
  kExecutableDir,
  kResourcesDir,
  kPluginsDir,
  kRequiredPluginsDir,
  kUserDocumentsDir,
  kUserDesktopDir,
  kAllUsersDocumentsDir,
  kAllUserPluginsDir,
  kUserPluginsDir,
  kCount,
};

class Slots {
 public:
  UTF16String Get(Slot slot) {
    threads::CheckedLock lock(mutex_);
    return paths_[Index(slot)];
  }
  void Set(Slot slot, const UTF16String& path) {
    threads::CheckedLock lock(mutex_);
    paths_[Index(slot)] = path;
  }
  // The slot's value, or `compute()`'s answer stored in it. The answer is
  // worked out without the lock (it may need other slots); when two threads
  // race, the first to store wins and both answer its value.
  template <typename Compute>
  UTF16String Cached(Slot slot, Compute compute) {
    UTF16String held = Get(slot);
    if (!held.empty()) return held;
    UTF16String value = compute();
    threads::CheckedLock lock(mutex_);
    UTF16String& stored = paths_[Index(slot)];
    if (stored.empty()) stored = std::move(value);
    return stored;
  }

 private:
  static std::size_t Index(Slot slot) { return static_cast<std::size_t>(slot); }

  threads::BoostMutex mutex_;
  std::array<UTF16String, static_cast<std::size_t>(Slot::kCount)> paths_ TVX_GUARDED_BY(mutex_);
};

Slots& TheSlots() {
  static base::NoDestructor<Slots> slots;
  return *slots;
}

platform::SystemFolder FolderOf(unsigned long id, bool& known) {
  known = true;
  switch (id & ~static_cast<unsigned long>(kSystemFolder_FlagCreate)) {
    case kSystemFolder_Documents:
      return platform::SystemFolder::kDocuments;
    case kSystemFolder_Desktop:
      return platform::SystemFolder::kDesktop;
    case kSystemFolder_ApplicationData:
      return platform::SystemFolder::kApplicationData;
    case kSystemFolder_ProgramFiles:
      return platform::SystemFolder::kProgramFiles;
    case kSystemFolder_CommonProgramFiles:
      return platform::SystemFolder::kCommonProgramFiles;
    case kSystemFolder_SharedDocuments:
      return platform::SystemFolder::kSharedDocuments;
    default:
      known = false;
      return platform::SystemFolder::kApplicationData;
  }
}

// The folder's path, or empty when the system has no answer.
UTF16String SystemFolderPath(unsigned long id) {
  bool known = false;
  const platform::SystemFolder folder = FolderOf(id, known);
  if (!known) return UTF16String();
  return FromNative(platform::SystemFolderPath(folder, (id & kSystemFolder_FlagCreate) != 0));
}

// A level of the preferences folder named by a text of the client identity:
// one name, never a way out of its parent.
UTF16String LevelName(UTF16String name) {
  for (UTF16Char& unit : name) {
    if (unit == u'/') unit = u'_';
  }
  if (name == u"..") name.assign(1, u'_');
  return name;
}

UTF16String FolderOfMainExecutable() {
  UTF16String parent;
  utility::FileUtils::SplitLongPath(commondirs::MainExecutableFile().FullPath(), &parent, nullptr,
                                    nullptr);
  return parent;
}

// A user folder of commondirs: made when missing, or `key` thrown.
UTF16String RequiredUserFolder(unsigned long id, const char* key) {
  UTF16String path = SystemFolderPath(id | kSystemFolder_FlagCreate);
  if (path.empty()) throw dir_exception(Dir(), key);
  return path;
}

}  // namespace

// --- Dir and DirHelper ---

DirHelper DirHelper::SystemDir(unsigned long folderId) {
  const UTF16String path = SystemFolderPath(folderId);
  if (path.empty()) return Dir::AppDir().Helper();
  return DirHelper(path);
}

Dir Dir::AppDir() {
  const UTF16String held = TheSlots().Get(Slot::kAppDir);
  return Dir(held.empty() ? FolderOfMainExecutable() : held);
}

Dir Dir::PackageDir() {
  const UTF16String held = TheSlots().Get(Slot::kPackageDir);
  return held.empty() ? AppDir() : Dir(held);
}

Dir Dir::TempDir() { return Dir(FromNative(platform::TemporaryFolderPath())); }

Dir Dir::CommonFilesDir() { return DirHelper::SystemDir(kSystemFolder_CommonProgramFiles); }

Dir Dir::UserDocsDir() {
  return DirHelper::SystemDir(kSystemFolder_Documents | kSystemFolder_FlagCreate);
}

Dir Dir::SharedDocsDir() {
  return DirHelper::SystemDir(kSystemFolder_SharedDocuments | kSystemFolder_FlagCreate);
}

Dir Dir::GlobalPrefDir() {
  return DirHelper::SystemDir(kSystemFolder_ApplicationData | kSystemFolder_FlagCreate);
}

Dir Dir::PrefDir() {
  Dir dir = GlobalPrefDir();
  for (const UTF16String* name :
       {&config::GetCompanyName(), &config::GetClientName(), &config::GetClientInternalVersion()}) {
    dir = Dir(dir, LevelName(*name));
    dir.Create();
  }
  return dir;
}

// --- commondirs ---

namespace commondirs {

File MainExecutableFile() {
  const UTF16String path = TheSlots().Cached(
      Slot::kMainExecutable, [] { return FromNative(platform::MainExecutablePath()); });
  return path.empty() ? File() : File(path);
}

Dir ExecutableDir() {
  return Dir(TheSlots().Cached(Slot::kExecutableDir, [] { return Dir::AppDir().FullPath(); }));
}

Dir ResourcesDir() {
  return Dir(TheSlots().Cached(Slot::kResourcesDir, [] { return Dir::AppDir().FullPath(); }));
}

Dir PluginsDir() {
  return Dir(TheSlots().Cached(Slot::kPluginsDir,
                               [] { return Dir(Dir::AppDir(), u"Plug-ins").FullPath(); }));
}

Dir RequiredPluginsDir() {
  return Dir(TheSlots().Cached(Slot::kRequiredPluginsDir,
                               [] { return Dir(Dir::AppDir(), u"Required").FullPath(); }));
}

Dir UserDocumentsDir() {
  return Dir(TheSlots().Cached(Slot::kUserDocumentsDir, [] {
    return RequiredUserFolder(kSystemFolder_Documents, kDirUserDocs);
  }));
}

Dir UserDesktopDir() {
  return Dir(TheSlots().Cached(Slot::kUserDesktopDir, [] {
    return RequiredUserFolder(kSystemFolder_Desktop, kDirDesktopDocs);
  }));
}

Dir AllUsersDocumentsDir() {
  return Dir(TheSlots().Cached(Slot::kAllUsersDocumentsDir, [] {
    return Dir(DirHelper::SystemDir(kSystemFolder_SharedDocuments)).FullPath();
  }));
}

Dir CurrentUserDir() { return UserDocumentsDir().Parent(); }

Dir AllUserPluginsDir() {
  const UTF16String path = TheSlots().Cached(Slot::kAllUserPluginsDir, [] {
    const UTF16String programs = SystemFolderPath(kSystemFolder_ProgramFiles);
    return programs.empty() ? programs : programs + u"/Ostra/Common/Plug-ins";
  });
  return path.empty() ? Dir() : Dir(path);
}

Dir UserPluginsDir() {
  const UTF16String path =
      TheSlots().Cached(Slot::kUserPluginsDir, [] { return AllUserPluginsDir().FullPath(); });
  return path.empty() ? Dir() : Dir(path);
}

void SetMainExecutableOverride(const File& inFile) {
  TheSlots().Set(Slot::kMainExecutable, inFile.FullPath());
}
void SetAppDirOverride(const Dir& inDir) { TheSlots().Set(Slot::kAppDir, inDir.FullPath()); }
void SetExecutableDirOverride(const Dir& inDir) {
  TheSlots().Set(Slot::kExecutableDir, inDir.FullPath());
}
void SetResourcesDirOverride(const Dir& inDir) {
  TheSlots().Set(Slot::kResourcesDir, inDir.FullPath());
}
void SetPackageDirOverride(const Dir& inDir) {
  TheSlots().Set(Slot::kPackageDir, inDir.FullPath());
}
void SetPluginsDirOverride(const Dir& inDir) {
  TheSlots().Set(Slot::kPluginsDir, inDir.FullPath());
}
void SetRequiredPluginsDirOverride(const Dir& inDir) {
  TheSlots().Set(Slot::kRequiredPluginsDir, inDir.FullPath());
}

}  // namespace commondirs
}  // namespace tvxcore::filesupport
