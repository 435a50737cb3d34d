// Volumes: the mount that holds a path, its label, kind and space.
#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/PathQueries.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"
#include "utility/internal/LocalizedText.h"

namespace tvxcore::utility::FileUtils {
namespace {

using filesupport::File;
using filesupport::internal::FromNative;
using filesupport::internal::MountOf;

UTF16String DriveTypeName(platform::DriveType type) {
  using utility::internal::LocalizedText;
  switch (type) {
    case platform::kDriveNoRootDir:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/Invalid=Invalid");
    case platform::kDriveRemovable:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/Removable=Removable");
    case platform::kDriveFixed:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/Fixed=Local Disk");
    case platform::kDriveRemote:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/Network=Network");
    case platform::kDriveCdRom:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/CDROM=CD-ROM");
    case platform::kDriveRamDisk:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/RAMDisk=RAM Disk");
    default:
      return LocalizedText("$$$/tvxcore/utility/FileUtils_WIN/Unknown=Unknown");
  }
}

unsigned long long VolumeSpace(const UTF16String& path, bool wantFree) {
  UTF16String target;
  if (!GetParentPath(path, target)) target = path;
  if (target.empty() || target.back() != u'/') target.push_back(u'/');
  std::string native;
  std::uint64_t freeBytes = 0, total = 0;
  const int error = filesupport::internal::ToNative(target, native)
                        ? platform::GetVolumeSpace(native, freeBytes, total)
                        : static_cast<int>(platform::kErrorInvalidName);
  filesupport::internal::ThrowForError(error, path);
  return wantFree ? freeBytes : total;
}

}  // namespace

bool GetVolumePath(const UTF16String& path, UTF16String& out) {
  platform::MountPoint mount;
  if (!path.empty() && path[0] == u'/') {
    out.clear();
    if (MountOf(path, mount)) out = FromNative(mount.path);
    return !out.empty();
  }
  return GetWindowsVolumePath(path, out);
}

bool IsRoot(const UTF16String& path) {
  UTF16String volume;
  if (!GetVolumePath(path, volume)) throw filesupport::create_fnf_exception(File(path));
  return volume == path;
}

bool OnSameVolume(const UTF16String& a, const UTF16String& b) {
  UTF16String volumeA, volumeB;
  if (!GetVolumePath(a, volumeA)) throw filesupport::create_fnf_exception(File(a));
  if (!GetVolumePath(b, volumeB)) throw filesupport::create_fnf_exception(File(b));
  return volumeA == volumeB;
}

bool IsFloppyDrive(UTF16Char) { return false; }

UTF16String GetVolumeNameForPath(const UTF16String& path) {
  platform::MountPoint mount;
  if (!MountOf(path, mount)) return UTF16String();
  std::string label;
  if (platform::GetVolumeLabel(mount, label)) return FromNative(label);
  return DriveTypeName(platform::GetDriveType(mount));
}

UTF16String GetDriveLetterForDriveName(const UTF16String& name) {
  for (auto it = filesupport::Dir::BeginVolumes(); it != filesupport::Dir::EndVolumes(); ++it) {
    platform::MountPoint mount;
    std::string label;
    const UTF16String volume = (*it).FullPath();
    if (MountOf(volume, mount) && platform::GetVolumeLabel(mount, label) &&
        PathsEqual(FromNative(label), name))
      return volume;
  }
  return UTF16String();
}

unsigned long long GetVolumeFreeSpace(const UTF16String& path) { return VolumeSpace(path, true); }
unsigned long long GetVolumeSize(const UTF16String& path) { return VolumeSpace(path, false); }

}  // namespace tvxcore::utility::FileUtils
