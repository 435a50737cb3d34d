#include "utility/internal/AuxiliaryResources.h"

#include <string>

#include "platform/HostInfo.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility {

UTF16String GetAuxiliaryResourcesPath(const void* inModuleAddress, const UTF16String& inName,
                                      const UTF16String& inFolder) {
  const UTF8String folder8 = UTF16to8(inFolder);
  const std::string folder(folder8.begin(), folder8.end());
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
  UTF16String path = UTF8to16(UTF8String(chosen.begin(), chosen.end()));
  path += u'/';
  path += inName;
  return path;
}

}  // namespace tvxcore::utility
