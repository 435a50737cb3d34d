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

}  // namespace tvxcore::filesupport::internal
