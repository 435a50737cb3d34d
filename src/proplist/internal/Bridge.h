// The property list code's two links to the rest of the library: the error
// road and the library's UTF-16 to UTF-8 conversion, each behind one function.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist::internal {

// Reports a property list failure at level 1 (non-fatal), module 104, on the
// library's error road. May return, as that road may.
void ReportError(const char* key, long errorNumber);

// The library's UTF16to8, with its rules for lone surrogates and zero units.
UTF8String ToUTF8(const UTF16String& text);

}  // namespace tvxcore::proplist::internal
