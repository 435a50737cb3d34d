// tvxcore/filesupport/Aliases.h: the platform's own aliases, as File and Dir.
//
// On Linux an alias is a symbolic link; a name that ends in ".lnk" (in any
// case) is asked about as one, as a shortcut file is on Windows. The File and
// Dir constructors with `resolveAlias` (File.h) resolve through the same rule.
// All functions are reentrant.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport {

// When `file` is named "*.lnk" and its target exists: the target in `outDir`
// (a directory) or `outFile` (anything else), `isDir` saying which, and true.
// Otherwise false, and the three outputs are left alone.
TVXCORE_EXPORT bool ResolveIfAlias(const File& file, File& outFile, Dir& outDir, bool& isDir);

// Replaces `file` by the target of the alias it names when that target is a
// file; any other `file` (a directory target included) stays as it is.
TVXCORE_EXPORT void ResolveIfAliasFileOnly(File& file);

// Makes `link` an alias of `target`. A failure (`link` taken, its folder
// missing) is not reported: nothing is made and nothing is replaced.
TVXCORE_EXPORT void CreateShortCut(const File& target, const File& link);
TVXCORE_EXPORT void CreateShortCut(const File& target, const Dir& link);

}  // namespace tvxcore::filesupport
