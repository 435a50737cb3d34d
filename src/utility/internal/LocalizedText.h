// The library's own texts, looked up by their ZString key.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::internal {

// The localised text of a key of the form "$$$/path=default text". Until a
// localizer is installed this is the default text after the first "=".
UTF16String LocalizedText(const char* key);

}  // namespace tvxcore::utility::internal
