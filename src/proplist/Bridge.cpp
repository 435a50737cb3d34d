#include "proplist/internal/Bridge.h"

#include <stdexcept>
#include <string>

#include "xml/internal/Utf.h"

namespace tvxcore::proplist::internal {

void ReportError(const char* key, long /*errorNumber*/) {
  // Stand-in until the error manager is part of the library.
  throw std::runtime_error(key);
}

UTF8String ToUTF8(const UTF16String& text) {
  // A text of four units or more ends at its first zero unit; a shorter one
  // keeps all of its units.
  std::size_t size = text.size();
  if (size >= 4) size = std::char_traits<UTF16Char>::length(text.c_str());
  UTF8String out;
  xml::internal::AppendUTF16AsUTF8(text.data(), size, out);
  return out;
}

}  // namespace tvxcore::proplist::internal
