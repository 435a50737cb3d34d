#include "tvxcore/filesupport/FileExceptions.h"

namespace tvxcore::filesupport {

file_exception::file_exception(const File& file)
    : file_exception(file, "$$$/tvxcore/filesupport/error=Error with file: '@0'.") {}
file_exception::file_exception(const File& file, const char* key) : file_(file), key_(key) {}

file_not_found_exception::file_not_found_exception(const File& file)
    : file_exception(file,
                     "$$$/tvxcore/filesupport/FileNotFound=The file '@0' could not be found.") {}

file_delete_exception::file_delete_exception(const File& file)
    : file_exception(file, "$$$/tvxcore/filesupport/Delete=Could not delete the file '@0'.") {}

create_exception::create_exception(const File& file)
    : file_exception(file, "$$$/tvxcore/filesupport/Create=Could not create the file '@0'.") {}
create_exception::create_exception(const File& file, const char* key) : file_exception(file, key) {}

create_fnf_exception::create_fnf_exception(const File& file)
    : create_exception(
          file,
          "$$$/tvxcore/filesupport/Create/fnf=Could not create the file '@0'. The file "
          "could not be found.") {}

create_locked_exception::create_locked_exception(const File& file)
    : create_exception(file,
                       "$$$/tvxcore/filesupport/Create/locked=Could not create the file '@0'. The "
                       "disk is locked.") {}

create_accessdenied_exception::create_accessdenied_exception(const File& file)
    : create_exception(
          file,
          "$$$/tvxcore/filesupport/Create/accessdenied=Could not create the file '@0'. "
          "Access was denied.") {}

create_invalidpath_exception::create_invalidpath_exception(const File& file)
    : create_exception(file,
                       "$$$/tvxcore/filesupport/Create/invalidpath=Could not create the file '@0'. "
                       "The path is not valid.") {}

rename_file::rename_file(const File& file, const UTF16String& newName)
    : rename_file(file, newName,
                  "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.") {}
rename_file::rename_file(const File& file, const UTF16String& newName, const char* key)
    : file_exception(file, key), newName_(newName) {}

dir_exception::dir_exception(const Dir& dir)
    : dir_exception(dir, "$$$/tvxcore/filesupport/Dir/error=Error with Directory: '@0'.") {}
dir_exception::dir_exception(const Dir& dir, const char* key) : dir_(dir), key_(key) {}

dir_not_found_exception::dir_not_found_exception(const Dir& dir)
    : dir_exception(dir,
                    "$$$/tvxcore/filesupport/DirNotFound=The directory '@0' could not be found.") {}

dir_create_exception::dir_create_exception(const Dir& dir)
    : dir_exception(dir,
                    "$$$/tvxcore/filesupport/DirCreate=The directory '@0' could not be created. "
                    "Please check the parent directory protection or permission rights.") {}

dir_delete_exception::dir_delete_exception(const Dir& dir)
    : dir_exception(dir, "$$$/tvxcore/filesupport/DirDelete=Could not delete the directory '@0'.") {
}
dir_delete_exception::dir_delete_exception(const Dir& dir, const char* key)
    : dir_exception(dir, key) {}

rename_dir::rename_dir(const Dir& dir, const UTF16String& newName)
    : rename_dir(dir, newName,
                 "$$$/tvxcore/filesupport/DirRename=Could not rename the directory '@0' to '@1'.") {
}
rename_dir::rename_dir(const Dir& dir, const UTF16String& newName, const char* key)
    : dir_exception(dir, key), newName_(newName) {}

rename_dir_already_exists::rename_dir_already_exists(const Dir& dir, const UTF16String& newName)
    : rename_dir(dir, newName,
                 "$$$/tvxcore/filesupport/DirRename/exists=Could not rename the directory '@0' to "
                 "'@1'. The directory already exists.") {}

}  // namespace tvxcore::filesupport
