// filesupport/internal/PathQueries.h: the two questions about a UTF-16 path
// that the path utilities (utility::FileUtils) ask the platform again and
// again.
#pragma once

#include <string>

#include "platform/FileSystem.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// stat() of the path (links followed). False when nothing is there or the
// path names nothing (a zero unit); `error`, when given, receives the code.
bool AttributesOf(const UTF16String& path, platform::FileAttributes& out, int* error = nullptr);

// The mount that holds an absolute native path: the one with the longest
// matching prefix. False for a relative or Windows-form path.
bool MountOf(const UTF16String& path, platform::MountPoint& out);

// Server and share of a network mount's source: "//server/share/..." or
// "server:/export".
bool SplitNetworkSource(const std::string& source, std::string& server, std::string& share);

// The mount point of the share `share` of `server` (names compared as
// PathsEqual, leading separators of the share ignored) that is a directory
// now; false when there is none.
bool FindShareMount(const UTF16String& server, const UTF16String& share, UTF16String& mountPath);

}  // namespace tvxcore::filesupport::internal
