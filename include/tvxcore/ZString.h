// tvxcore/ZString.h: a translated text literal with its "@0".."@9" filled in.
//
// This is the road of the texts carried by exception classes (file and
// directory errors); error keys passed to config::ThrowError use "^1".."^4".
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore {

// Translates `inKey` through the installed config::Localizer, then replaces
// every "@n" by the n-th string ("@@" gives "@"; a value is not scanned again).
// Throws std::logic_error as config::Localizer::Get does when none is installed.
TVXCORE_EXPORT UTF16String
ZString(const char* inKey, const UTF16String& in0 = UTF16String(),
        const UTF16String& in1 = UTF16String(), const UTF16String& in2 = UTF16String(),
        const UTF16String& in3 = UTF16String(), const UTF16String& in4 = UTF16String(),
        const UTF16String& in5 = UTF16String(), const UTF16String& in6 = UTF16String(),
        const UTF16String& in7 = UTF16String(), const UTF16String& in8 = UTF16String(),
        const UTF16String& in9 = UTF16String());

}  // namespace tvxcore
