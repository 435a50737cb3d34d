// Aliases: on Linux, symbolic links. Results are HRESULT-style codes.
#include <cstdint>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileSystem.h"
#include "tvxcore/filesupport/Aliases.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {
namespace {

using filesupport::internal::FromNative;
using filesupport::internal::ToNative;

constexpr long kE_FAIL = static_cast<long>(static_cast<std::int32_t>(0x80004005u));
long HresultFromError(int error) {
  return static_cast<long>(static_cast<std::int32_t>(0x80070000u | (error & 0xFFFF)));
}

}  // namespace

long ResolveIT(UTF16String& path, bool& isDir) {
  std::string native, target;
  if (!ToNative(path, native)) return HresultFromError(platform::kErrorInvalidName);
  const int error = platform::ReadSymbolicLink(native, target);
  if (error == platform::kErrorInvalidParameter) return kE_FAIL;  // not a link
  if (error != 0) return HresultFromError(error);
  platform::FileAttributes attributes;
  const int missing = platform::GetAttributes(target, attributes);
  if (missing != 0) return HresultFromError(missing);  // a broken link
  path = FromNative(target);
  isDir = attributes.isDirectory;
  return 0;
}

long CreateLink(const UTF16String& target, const UTF16String& link) {
  std::string nativeTarget, nativeLink;
  if (!ToNative(target, nativeTarget) || !ToNative(link, nativeLink))
    return HresultFromError(platform::kErrorInvalidName);
  const int error = platform::CreateSymbolicLink(nativeTarget, nativeLink);
  return error == 0 ? 0 : HresultFromError(error);
}

}  // namespace tvxcore::utility::FileUtils

namespace tvxcore::filesupport {

bool ResolveIfAlias(const File& file, File& outFile, Dir& outDir, bool& isDir) {
  if (file.GetExtension(true) != u".lnk" || !file.Exists()) return false;
  UTF16String target = file.FullPath();
  bool targetIsDir = false;
  if (utility::FileUtils::ResolveIT(target, targetIsDir) != 0) return false;
  // Both constructors give the normal form; Dir drops a trailing separator.
  if (targetIsDir)
    outDir = Dir(target);
  else
    outFile = File(target);
  isDir = targetIsDir;
  return true;
}

void ResolveIfAliasFileOnly(File& file) {
  File target;
  Dir targetDir;
  bool isDir = false;
  if (ResolveIfAlias(file, target, targetDir, isDir) && !isDir) file = target;
}

void CreateShortCut(const File& target, const File& link) {
  (void)utility::FileUtils::CreateLink(target.FullPath(), link.FullPath());
}

void CreateShortCut(const File& target, const Dir& link) {
  (void)utility::FileUtils::CreateLink(target.FullPath(), link.FullPath());
}

}  // namespace tvxcore::filesupport
