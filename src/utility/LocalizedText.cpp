#include "utility/internal/LocalizedText.h"

#include <cstring>

#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility::internal {

UTF16String LocalizedText(const char* key) {
  if (key == nullptr) return UTF16String();
  const char* equals = std::strchr(key, '=');
  const char* text = equals != nullptr ? equals + 1 : key;
  return UTF8to16(UTF8String(AsciiToUTF8Impl(text)));
}

}  // namespace tvxcore::utility::internal
