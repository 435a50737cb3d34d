// filesupport/internal/PathCodec.h: paths between UTF-16 and the kernel's bytes.
//
// Linux names are byte strings, usually UTF-8. A name that isn't valid UTF-8
// must still round-trip, so each byte of a bad sequence decodes to the lone
// surrogate U+DC80..U+DCFF and encodes back to that byte. Other lone
// surrogates go to the kernel in their three-byte form, which reads back as
// three escaped bytes: bytes on disk always round-trip.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// False when the path can't name anything: it holds a zero unit.
bool ToNative(const UTF16String& path, std::string& out);
// The native form, or an empty string when ToNative() fails.
std::string ToNative(const UTF16String& path);
UTF16String FromNative(std::string_view bytes);
// FromNative(bytes) appended to `out`.
void AppendFromNative(std::string_view bytes, UTF16String& out);
// Decodes `bytes` as FromNative() does into `out`, which must have room for
// bytes.size() units: a name never widens to more units than it has bytes.
// Returns the number of units written.
std::size_t WidenNative(std::string_view bytes, UTF16Char* out);

// WidenNative's fast path (PathCodec_sse2.cpp, the one file of the path codec
// compiled for an instruction set): widens the ASCII bytes at the front of the
// n bytes at `bytes` while a whole block of kAsciiBlock remains, and returns
// how many. May store up to a block of units beyond them; `out` has room for
// n units. Returns 0 on processors without SSE2, where WidenNative's byte loop
// takes ASCII as well.
inline constexpr std::size_t kAsciiBlock = 16;
std::size_t WidenAsciiPrefix(const char* bytes, std::size_t n, UTF16Char* out);

}  // namespace tvxcore::filesupport::internal
