// tvxcore/filesupport/FileExceptionText.h: the text of a file or directory
// failure, as a person reads it.
//
// The exceptions of FileExceptions.h carry a text literal, not a message:
// "@0" in it stands for the path and "@1" for the new name of a rename. These
// functions do the substitution that the literal leaves to its caller, so that
// every host shows a file failure the same way, in the user's language:
//
//   try {
//     utility::FileUtils::Copy(from, to);
//   } catch (const filesupport::file_exception& e) {
//     ShowError(filesupport::LocalizedMessage(e));  // "Could not create the file '/x/y'. ..."
//   }
#pragma once

#include <exception>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport {

// The exception's literal translated by the installed config::Localizer (with
// none installed, the literal's default text after its first "="), then "@0"
// replaced by the full path of its File and "@1" by the new name for a
// rename_file (empty for the others), as utility::ReplaceInString does: the
// path is not scanned again, so an "@1" in a path stays. Never throws for want
// of a localizer; safe on any thread once the localizer is installed.
TVXCORE_EXPORT UTF16String LocalizedMessage(const file_exception& error);
// The same for a directory: its Dir's path, and the new name of a rename_dir.
TVXCORE_EXPORT UTF16String LocalizedMessage(const dir_exception& error);
// One of the two above when `error` is a file_exception or a dir_exception
// (or derives from one): true, with the text in `outText`. Any other
// exception: false, and `outText` stays as it was.
TVXCORE_EXPORT bool LocalizedMessage(const std::exception& error, UTF16String& outText);

}  // namespace tvxcore::filesupport
