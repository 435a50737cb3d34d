// tvxcore/filesupport/CommonDirs.h: the application's own layout on top of
// the named places of the system (the statics of Dir in File.h).
//
// Each function keeps its answer in one slot per name, filled at first use
// and kept until the process ends. An override is simply a value put into
// that slot: a setter replaces what the slot holds at once, before or after
// first use, and a slot set to an empty Dir (or File) is looked up again at
// its next use. CurrentUserDir() alone keeps nothing.
//
// Thread-safety: every function may be called from any thread; the slots are
// locked, so two first uses on two threads keep one answer. Overrides belong
// to start-up: a value derived from another one (PluginsDir() from AppDir())
// is worked out once, so SetAppDirOverride must come before the first
// PluginsDir() or RequiredPluginsDir() to reach them.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport::commondirs {

// The process's main executable (/proc/self/exe on Linux); an empty File when
// the system can't tell.
TVXCORE_EXPORT File MainExecutableFile();
// Dir::AppDir().
TVXCORE_EXPORT Dir ExecutableDir();
// Dir::AppDir().
TVXCORE_EXPORT Dir ResourcesDir();
// "Plug-ins" below Dir::AppDir().
TVXCORE_EXPORT Dir PluginsDir();
// "Required" below Dir::AppDir().
TVXCORE_EXPORT Dir RequiredPluginsDir();
// The user's documents, made when missing. Throws dir_exception with the key
// "$$$/tvxcore/filesupport/DirUserDocs=Could not find the user documents
// directory." when there is no answer or the folder can't be made.
TVXCORE_EXPORT Dir UserDocumentsDir();
// The user's desktop, made when missing. Throws dir_exception with the key
// "$$$/tvxcore/filesupport/DirDesktopDocs=Could not find the user desktop
// directory." when there is no answer or the folder can't be made.
TVXCORE_EXPORT Dir UserDesktopDir();
// Data shared by all users (DirHelper::SystemDir(kSystemFolder_SharedDocuments)).
TVXCORE_EXPORT Dir AllUsersDocumentsDir();
// The parent of UserDocumentsDir(), asked again at every call; throws as that.
TVXCORE_EXPORT Dir CurrentUserDir();
// "Ostra/Common/Plug-ins" below the folder of add-on applications
// (kSystemFolder_ProgramFiles: /opt on Linux); an empty Dir when the system
// has no such folder.
TVXCORE_EXPORT Dir AllUserPluginsDir();
// AllUserPluginsDir().
TVXCORE_EXPORT Dir UserPluginsDir();

TVXCORE_EXPORT void SetMainExecutableOverride(const File& inFile);
// Also what Dir::AppDir() answers.
TVXCORE_EXPORT void SetAppDirOverride(const Dir& inDir);
TVXCORE_EXPORT void SetExecutableDirOverride(const Dir& inDir);
TVXCORE_EXPORT void SetResourcesDirOverride(const Dir& inDir);
// Also what Dir::PackageDir() answers.
TVXCORE_EXPORT void SetPackageDirOverride(const Dir& inDir);
TVXCORE_EXPORT void SetPluginsDirOverride(const Dir& inDir);
TVXCORE_EXPORT void SetRequiredPluginsDirOverride(const Dir& inDir);

}  // namespace tvxcore::filesupport::commondirs
