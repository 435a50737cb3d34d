// Why a path given on the command line can't be used, found out with the
// library's File and Dir before an operation starts, so that the message
// names the real cause.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxhost {

// Whether a process may look into the directory.
bool Searchable(const tvxcore::UTF16String& dir);

// Returns when something is at `path`. Otherwise throws what keeps it from
// being seen: a Failure for a directory on the way that may not be searched
// or that is a file, else file_not_found_exception.
void RequireReachable(const tvxcore::UTF16String& path);

// As RequireReachable, and a Failure when `path` is a directory.
void RequireFile(const tvxcore::UTF16String& path);

}  // namespace tvxhost
