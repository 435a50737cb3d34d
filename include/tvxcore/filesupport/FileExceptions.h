// tvxcore/filesupport/FileExceptions.h: how File and Dir operations fail.
//
// Every exception carries a copy of the File or Dir concerned (and the new
// name for a rename) and a localisable key that what() returns as it stands:
// "@0" in the key stands for the path, "@1" for the new name. Filling them in
// is the caller's work, through the localizer. Keys are static strings, never
// owned. All classes are copyable and assignable.
#pragma once

#include <exception>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport {

class TVXCORE_EXPORT file_exception : public std::exception {
 public:
  explicit file_exception(const File& file);
  file_exception(const File& file, const char* key);
  const char* what() const noexcept override { return key_; }
  const File& GetFile() const { return file_; }

 private:
  File file_;
  const char* key_;
};

class TVXCORE_EXPORT file_not_found_exception : public file_exception {
 public:
  explicit file_not_found_exception(const File& file);
};

class TVXCORE_EXPORT file_delete_exception : public file_exception {
 public:
  explicit file_delete_exception(const File& file);
};

class TVXCORE_EXPORT create_exception : public file_exception {
 public:
  explicit create_exception(const File& file);

 protected:
  create_exception(const File& file, const char* key);
};

class TVXCORE_EXPORT create_fnf_exception : public create_exception {
 public:
  explicit create_fnf_exception(const File& file);
};

class TVXCORE_EXPORT create_locked_exception : public create_exception {
 public:
  explicit create_locked_exception(const File& file);
};

class TVXCORE_EXPORT create_accessdenied_exception : public create_exception {
 public:
  explicit create_accessdenied_exception(const File& file);
};

class TVXCORE_EXPORT create_invalidpath_exception : public create_exception {
 public:
  explicit create_invalidpath_exception(const File& file);
};

class TVXCORE_EXPORT rename_file : public file_exception {
 public:
  rename_file(const File& file, const UTF16String& newName);
  rename_file(const File& file, const UTF16String& newName, const char* key);
  const UTF16String& GetNewName() const { return newName_; }

 private:
  UTF16String newName_;
};

class TVXCORE_EXPORT dir_exception : public std::exception {
 public:
  explicit dir_exception(const Dir& dir);
  dir_exception(const Dir& dir, const char* key);
  const char* what() const noexcept override { return key_; }
  const Dir& GetDir() const { return dir_; }

 private:
  Dir dir_;
  const char* key_;
};

class TVXCORE_EXPORT dir_not_found_exception : public dir_exception {
 public:
  explicit dir_not_found_exception(const Dir& dir);
};

class TVXCORE_EXPORT dir_create_exception : public dir_exception {
 public:
  explicit dir_create_exception(const Dir& dir);
};

class TVXCORE_EXPORT dir_delete_exception : public dir_exception {
 public:
  explicit dir_delete_exception(const Dir& dir);
  dir_delete_exception(const Dir& dir, const char* key);
};

class TVXCORE_EXPORT rename_dir : public dir_exception {
 public:
  rename_dir(const Dir& dir, const UTF16String& newName);
  rename_dir(const Dir& dir, const UTF16String& newName, const char* key);
  const UTF16String& GetNewName() const { return newName_; }

 private:
  UTF16String newName_;
};

class TVXCORE_EXPORT rename_dir_already_exists : public rename_dir {
 public:
  rename_dir_already_exists(const Dir& dir, const UTF16String& newName);
};

}  // namespace tvxcore::filesupport
