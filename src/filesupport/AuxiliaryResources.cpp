#include "filesupport/internal/AuxiliaryResources.h"

#include <string>

#include "filesupport/internal/PathCodec.h"
#include "platform/HostInfo.h"

namespace tvxcore::filesupport::internal {

UTF16String GetAuxiliaryResourcesPath(const void* inModuleAddress, const UTF16String& inName,
                                      const UTF16String& inFolder) {
  // Paths go between UTF-16 and the kernel's bytes as every path of the
  // library does, so that a folder whose name isn't UTF-8 is still found.
  const std::string folder = ToNative(inFolder);
  const std::string moduleDirectory = platform::ModuleDirectoryOf(inModuleAddress);
  std::string candidates[3];
  int count = 0;
  if (!moduleDirectory.empty()) {
    candidates[count++] = moduleDirectory + "/" + folder;
    candidates[count++] = moduleDirectory + "/../share/tvxcore/" + folder;
  }
  const std::string executableDirectory = platform::ExecutableDirectory();
  if (!executableDirectory.empty()) candidates[count++] = executableDirectory + "/" + folder;

  std::string chosen = count ? candidates[0] : folder;
  for (int i = 0; i < count; ++i) {
    if (platform::IsDirectory(candidates[i])) {
      chosen = candidates[i];
      break;
    }
  }
  UTF16String path = FromNative(chosen);
  path += u'/';
  path += inName;
  return path;
}

}  // namespace tvxcore::filesupport::internal
