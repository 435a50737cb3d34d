// Tests and small actions on the file system: whether something is there,
// making and removing files and folders, a free name, whole-file writes.
#include <string>

#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/PathQueries.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {

using filesupport::Dir;
using filesupport::File;
using filesupport::internal::AttributesOf;
using filesupport::internal::FromNative;
using filesupport::internal::ToNative;

bool DirectoryExists(const UTF16String& path) { return Dir(path).Exists(); }

bool FileExists(const UTF16String& path) {
  platform::FileAttributes attributes;
  return AttributesOf(path, attributes);
}

bool FileOrDirExists(const UTF16String& path) { return Dir(path).Exists() || FileExists(path); }

bool IsDir(const UTF16String& path) {
  platform::FileAttributes attributes;
  if (!AttributesOf(path, attributes)) throw filesupport::create_fnf_exception(File(path));
  return attributes.isDirectory;
}

bool EnsureDirectoryExists(const UTF16String& path) {
  Dir dir(path);
  if (dir.Exists()) return true;
  if (dir.IsTopLevelDir()) return false;
  if (File(path).Exists()) return false;
  if (!EnsureDirectoryExists(dir.Parent().FullPath())) return false;
  dir.Create();
  return true;
}

bool CreateNewFile(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::CreateEmptyFile(native, false) == 0;
}

bool CreateNewDirectory(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::CreateDirectory(native) == 0;
}

bool RemoveFile(const UTF16String& path) {
  std::string native;
  return ToNative(path, native) && platform::DeleteFile(native) == 0;
}

void UpdateFileModifiedTime(const UTF16String& path) {
  if (!FileExists(path)) throw filesupport::file_not_found_exception(File(path));
  filesupport::internal::ThrowForError(platform::SetModifiedToNow(ToNative(path)), path);
}

UTF16String UniqueFileName(const UTF16String& dir, const UTF16String& base,
                           const UTF16String& extension) {
  if (!Dir(dir).Exists()) throw filesupport::dir_not_found_exception(Dir(dir));
  for (unsigned long long counter = 1;; ++counter) {
    UTF16String candidate;
    BuildPathSpec(dir, base, candidate);
    for (char digit : std::to_string(counter)) candidate.push_back(static_cast<UTF16Char>(digit));
    candidate += extension;
    // A broken link occupies its name too: ask about the link itself.
    platform::FileAttributes attributes;
    std::string native;
    if (!ToNative(candidate, native) || platform::GetLinkAttributes(native, attributes) != 0)
      return candidate;
  }
}

void SimpleWriteStringToFile(const UTF16String& path, const UTF8String& text) {
  if (FileExists(path)) RemoveFile(path);
  if (!CreateNewFile(path)) return;
  platform::WriteBytes(ToNative(path),
                       std::string_view(reinterpret_cast<const char*>(text.data()), text.size()),
                       false);
}

void SimpleAppendStringToFile(const UTF16String& path, const UTF8String& text) {
  std::string native;
  if (!ToNative(path, native)) return;
  platform::WriteBytes(
      native, std::string_view(reinterpret_cast<const char*>(text.data()), text.size()), true);
}

void ContainedFiles(const UTF16String& dir, std::vector<UTF16String>& out) {
  std::string native;
  if (!ToNative(dir, native)) return;
  platform::ListDirectory(native, [&](const platform::DirEntry& entry) {
    if (entry.name[0] == '.' || entry.isDirectory) return true;  // hidden, or a directory
    UTF16String path;
    BuildPathSpec(dir, FromNative(entry.name), path);
    out.push_back(std::move(path));
    return true;
  });
}

}  // namespace tvxcore::utility::FileUtils
