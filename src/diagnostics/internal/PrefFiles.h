// diagnostics/internal/PrefFiles.h: reading and saving the small text files
// that diagnostics keep in the preferences folder.
//
// Neither function reports a failure through the error road: diagnostics
// must not depend on the failure path they are used to observe. Only
// std::bad_alloc leaves them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tvxcore/filesupport/File.h"

namespace tvxcore::debug::internal {

enum class FileReading {
  kRead,        // the file's bytes are in the text
  kMissing,     // nothing at the path: an empty database
  kUnreadable,  // something there that could not be read: never save over it
};

// Files above this size are read only this far (and count as damaged).
inline constexpr std::size_t kMaxDatabaseBytes = 16 * 1024 * 1024;

// Reads the whole file through an input platform stream. `outCut` is set
// when the file was longer than kMaxDatabaseBytes.
FileReading ReadWholeFile(const filesupport::File& file, std::string& outText, bool& outCut);

// Makes `text` the file's whole new content by a safe save, so the file
// holds its old content or the new one, never a part. With `keepOld`, the
// file as it is goes first to "<name>.old" (replacing an older one), and
// nothing is saved when that copy fails. False on any failure.
bool SaveWholeFile(const filesupport::File& file, std::string_view text, bool keepOld);

}  // namespace tvxcore::debug::internal
