#include "filesupport/internal/ErrorMapping.h"

#include "tvxcore/filesupport/FileExceptions.h"

namespace tvxcore::filesupport::internal {

void ThrowCreateError(int error, const File& file) {
  switch (error) {
    case 0:
      return;
    // 6, 18 and 107 count as "not found" and 999 as "denied": kept so.
    case 2:
    case 6:
    case 18:
    case 107:
      throw create_fnf_exception(file);
    case 3:
      throw create_invalidpath_exception(file);
    case 19:
      throw create_locked_exception(file);
    case 5:
    case 12:
    case 29:
    case 54:
    case 58:
    case 64:
    case 65:
    case 71:
    case 80:
    case 82:
    case 86:
    case 170:
    case 183:
    case 999:
      throw create_accessdenied_exception(file);
    default:
      throw create_exception(file);
  }
}

void ThrowForError(int error, const UTF16String& path) {
  switch (error) {
    case 0:
      return;
    case 2:
      throw file_not_found_exception(File(path));
    case 3:
      throw create_invalidpath_exception(File(path));
    case 5:
      throw create_accessdenied_exception(File(path));
    default:
      throw file_exception(File(path));
  }
}

void ThrowCopyError(int error, const UTF16String& from, const UTF16String& to) {
  switch (error) {
    case 2:
      throw file_not_found_exception(File(from));
    case 3:
      throw create_invalidpath_exception(File(to));
    case 5:
      throw create_accessdenied_exception(File(to));
    default:
      throw file_exception(File(from));
  }
}

void ThrowCopySideError(int error, bool destination, const UTF16String& from,
                        const UTF16String& to) {
  if (!destination) {
    if (error == 2 || error == 3) throw file_not_found_exception(File(from));
    throw file_exception(File(from));
  }
  switch (error) {
    case 2:
    case 3:
      throw create_invalidpath_exception(File(to));
    case 5:
      throw create_accessdenied_exception(File(to));
    default:
      throw file_exception(File(to));
  }
}

}  // namespace tvxcore::filesupport::internal
