#include "proplist/internal/Bridge.h"

#include "tvxcore/config/Errors.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::proplist::internal {

void ReportError(const char* key, long errorNumber) {
  config::ThrowError(config::kErrorLevel_NonFatal, key, 104, static_cast<std::int32_t>(errorNumber),
                     true, config::ReplacementValue(), config::ReplacementValue(),
                     config::ReplacementValue(), config::ReplacementValue());
}

UTF8String ToUTF8(const UTF16String& text) { return utility::UTF16to8(text); }

}  // namespace tvxcore::proplist::internal
