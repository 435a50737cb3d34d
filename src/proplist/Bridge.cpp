#include "proplist/internal/Bridge.h"

#include <stdexcept>

#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::proplist::internal {

void ReportError(const char* key, long /*errorNumber*/) {
  // Stand-in until the error manager is part of the library.
  throw std::runtime_error(key);
}

UTF8String ToUTF8(const UTF16String& text) { return utility::UTF16to8(text); }

}  // namespace tvxcore::proplist::internal
