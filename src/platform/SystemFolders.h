// platform/SystemFolders.h: where the system keeps the named folders of the
// user and of the machine, the temporary folder and the running program.
//
// Linux answers by the XDG base-directory and user-directory rules (see
// docs/PORTING.md, "Common directories"). Paths are native bytes without a
// trailing "/" (except the root itself). Nothing here throws.
#pragma once

#include <string>

namespace tvxcore::platform {

// The kinds of named folder the library asks for.
enum class SystemFolder {
  kApplicationData,     // the user's application settings: $XDG_CONFIG_HOME
  kDocuments,           // the user's documents: XDG_DOCUMENTS_DIR
  kDesktop,             // the user's desktop: XDG_DESKTOP_DIR
  kSharedDocuments,     // data shared by all users: first of $XDG_DATA_DIRS
  kProgramFiles,        // add-on applications of the machine: /opt
  kCommonProgramFiles,  // components shared between applications: /usr/local/lib
};

// The folder's path, or empty when the system has no answer for it (no home
// folder known for a folder of the user's). With `create` a missing folder is
// made, missing parents included (0700 for the application-data folder, as
// the XDG rules ask; 0777 less the umask for the others), and the answer is
// empty when that fails or something other than a directory stands there.
std::string SystemFolderPath(SystemFolder folder, bool create);

// $TMPDIR when it is set and not empty, else "/tmp". Neither is checked.
std::string TemporaryFolderPath();

// The full path of the process's main executable (/proc/self/exe); empty
// when /proc can't tell.
std::string MainExecutablePath();

}  // namespace tvxcore::platform
