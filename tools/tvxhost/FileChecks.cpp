#include "FileChecks.h"

#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;
using tvxcore::filesupport::Dir;
using tvxcore::filesupport::File;
namespace fu = tvxcore::utility::FileUtils;

constexpr char kNoAccess[] =
    "$$$/tvxhost/fs/NoAccess=Could not reach '@0'. Access to the directory '@1' was denied.";
constexpr char kNotADirectory[] =
    "$$$/tvxhost/fs/NotADirectory=Could not reach '@0'. '@1' is not a directory.";
constexpr char kIsADirectory[] = "$$$/tvxhost/fs/IsADirectory='@0' is a directory, not a file.";

}  // namespace

// "<dir>/." can only be examined by a process that may search the directory.
bool Searchable(const UTF16String& dir) {
  UTF16String self;
  fu::BuildPathSpec(dir, u".", self);
  return File(self).Exists();
}

void RequireReachable(const UTF16String& path) {
  if (File(path).Exists()) return;
  // The nearest directory above the path that exists tells the cause.
  UTF16String child = path, parent;
  while (child.size() > 1) {
    if (!fu::GetParentPath(child, parent)) parent.assign(1, u'.');  // a relative name
    if (Dir(parent).Exists()) {
      if (!Searchable(parent)) throw Failure(Localized(kNoAccess, path, parent));
      if (child != path && File(child).Exists())
        throw Failure(Localized(kNotADirectory, path, child));
      break;
    }
    if (parent.size() >= child.size()) break;  // "." or the root
    child = parent;
  }
  throw tvxcore::filesupport::file_not_found_exception(File(path));
}

void RequireFile(const UTF16String& path) {
  RequireReachable(path);
  if (Dir(path).Exists()) throw Failure(Localized(kIsADirectory, path));
}

}  // namespace tvxhost
