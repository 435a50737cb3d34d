// filesupport/internal/PathQueries.h: the two questions about a UTF-16 path
// that the path utilities (utility::FileUtils) ask the platform again and
// again.
#pragma once

#include "platform/FileSystem.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// stat() of the path (links followed). False when nothing is there or the
// path names nothing (a zero unit); `error`, when given, receives the code.
bool AttributesOf(const UTF16String& path, platform::FileAttributes& out, int* error = nullptr);

// The mount that holds an absolute native path: the one with the longest
// matching prefix. False for a relative or Windows-form path.
bool MountOf(const UTF16String& path, platform::MountPoint& out);

}  // namespace tvxcore::filesupport::internal
