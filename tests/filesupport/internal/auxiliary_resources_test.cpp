#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "filesupport/internal/AuxiliaryResources.h"
#include "platform/HostInfo.h"

using namespace tvxcore;

namespace {

void Here() {}

// Resource folders are looked for beside the module, in the share folder
// next to it and beside the executable; the first that exists wins, and its
// path must name the folder on disk even when that name isn't UTF-8.
TEST(AuxiliaryResources, ShareFolderIsFoundEvenWhenItsNameIsNotUTF8) {
  const std::string module = platform::ModuleDirectoryOf(reinterpret_cast<const void*>(&Here));
  ASSERT_FALSE(module.empty());
  const std::filesystem::path share = std::filesystem::path(module) / ".." / "share";
  // A Latin-1 byte on disk, which the library's paths carry as U+DCE9.
  const std::filesystem::path folder = share / "tvxcore" / "tvx-aux-dict\xE9";
  std::filesystem::create_directories(folder);
  const UTF16String path = filesupport::internal::GetAuxiliaryResourcesPath(
      reinterpret_cast<const void*>(&Here), u"de.dict", u"tvx-aux-dict\xDCE9");
  std::error_code ignored;
  std::filesystem::remove(folder, ignored);
  std::filesystem::remove(share / "tvxcore", ignored);  // only when empty
  std::filesystem::remove(share, ignored);

  const std::string dir = module + "/../share/tvxcore/";  // the build folder is ASCII
  EXPECT_EQ(path, UTF16String(dir.begin(), dir.end()) + u"tvx-aux-dict\xDCE9/de.dict");
}

}  // namespace
