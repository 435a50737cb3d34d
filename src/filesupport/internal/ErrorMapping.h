// filesupport/internal/ErrorMapping.h: platform error codes to exceptions.
//
// The tables are keyed by Windows system error codes, which is what the
// platform layer answers with on every system.
#pragma once

#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport::internal {

// File::Create's table; `error` 0 returns normally.
void ThrowCreateError(int error, const File& file);
// The path utilities' mapping; 0 returns normally.
void ThrowForError(int error, const UTF16String& path);
// The copy mapping, called after a failure: it always throws.
[[noreturn]] void ThrowCopyError(int error, const UTF16String& from, const UTF16String& to);
// The copy mapping when the side that failed is known: the exception names
// that side. The source: file_not_found_exception for a missing file or
// path (2, 3), file_exception for any other failure (no "create" key: nothing
// was to be created there). The destination: create_invalidpath_exception
// (2, 3), create_accessdenied_exception (5), file_exception otherwise.
[[noreturn]] void ThrowCopySideError(int error, bool destination, const UTF16String& from,
                                     const UTF16String& to);

}  // namespace tvxcore::filesupport::internal
