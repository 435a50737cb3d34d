// filesupport/internal/PathCodec.h: paths between UTF-16 and the kernel's bytes.
//
// Linux names are byte strings, usually UTF-8. A name that isn't valid UTF-8
// must still round-trip, so each byte of a bad sequence decodes to the lone
// surrogate U+DC80..U+DCFF and encodes back to that byte. Other lone
// surrogates travel in their three-byte form.
#pragma once

#include <string>
#include <string_view>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// False when the path can't name anything: it holds a zero unit.
bool ToNative(const UTF16String& path, std::string& out);
// The native form, or an empty string when ToNative() fails.
std::string ToNative(const UTF16String& path);
UTF16String FromNative(std::string_view bytes);

}  // namespace tvxcore::filesupport::internal
