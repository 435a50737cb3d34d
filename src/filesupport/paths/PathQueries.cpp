#include "filesupport/internal/PathQueries.h"

#include <string>

#include "filesupport/internal/PathCodec.h"

namespace tvxcore::filesupport::internal {

bool AttributesOf(const UTF16String& path, platform::FileAttributes& out, int* error) {
  std::string native;
  const int code = ToNative(path, native) ? platform::GetAttributes(native, out)
                                          : static_cast<int>(platform::kErrorInvalidName);
  if (error != nullptr) *error = code;
  return code == 0;
}

bool MountOf(const UTF16String& path, platform::MountPoint& out) {
  std::string native;
  return !path.empty() && path[0] == u'/' && ToNative(path, native) &&
         platform::FindMount(native, out);
}

}  // namespace tvxcore::filesupport::internal
