// Copying a file: contents and permission bits under a temporary name, then
// one rename; and copying the attributes of one file to another.
#include <functional>

#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/PathQueries.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {

using filesupport::internal::ThrowCopySideError;
using filesupport::internal::ToNative;

void Copy(const UTF16String& from, const UTF16String& to) {
  if (!CopyWithProgress(from, to, nullptr, nullptr))
    filesupport::internal::ThrowCopyError(platform::kErrorRequestAborted, from, to);
}

bool CopyWithProgress(const UTF16String& from, const UTF16String& to,
                      bool (*callback)(double, void*), void* context) {
  std::string nativeFrom, nativeTo;
  if (!ToNative(from, nativeFrom))
    ThrowCopySideError(platform::kErrorFileNotFound, false, from, to);
  if (!ToNative(to, nativeTo)) ThrowCopySideError(platform::kErrorPathNotFound, true, from, to);
  std::function<bool(double)> progress;
  if (callback != nullptr) progress = [&](double fraction) { return callback(fraction, context); };
  platform::CopySide side = platform::CopySide::kSource;
  const int error = platform::CopyFileContents(nativeFrom, nativeTo, progress, side);
  if (error == platform::kErrorRequestAborted) return false;
  // The exception names the file that failed: the source for a missing,
  // unreadable or identical file, the destination for a bad path or a write.
  if (error != 0) ThrowCopySideError(error, side == platform::CopySide::kDestination, from, to);
  return true;
}

void CopyAttributes(const UTF16String& from, const UTF16String& to) {
  using filesupport::File;
  if (!FileExists(from)) throw filesupport::file_not_found_exception(File(from));
  if (!FileExists(to)) throw filesupport::file_not_found_exception(File(to));
  platform::FileAttributes attributes;
  if (filesupport::internal::AttributesOf(from, attributes) && attributes.isDirectory) return;
  const int error = platform::CopyTimesAndMode(ToNative(from), ToNative(to));
  filesupport::internal::ThrowForError(error, to);
}

}  // namespace tvxcore::utility::FileUtils
