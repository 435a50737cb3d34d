// The text of keys and string values in the property list format.
//
// Besides the five reserved characters (&quot; &amp; &apos; &lt; &gt;), the
// writer maps everything that XML 1.0 cannot carry, so that the library never
// writes a file its own reader refuses:
//  - a carriage return becomes the reference "&#13;" (a raw one would be read
//    back as a line feed);
//  - a unit XML forbids even as a reference (U+0000 to U+0008, U+000B, U+000C,
//    U+000E to U+001F, U+FFFE, U+FFFF, a lone surrogate) becomes the escape
//    U+E01B followed by the unit as four upper-case hexadecimal digits; so
//    does U+E01B itself, so that the escape is never ambiguous;
//  - in UTF-8 text, a byte that starts no valid sequence becomes the escape of
//    "00" and the byte (0080 to 00FF), and the three bytes the library's UTF-16
//    converter writes for a lone surrogate become the surrogate's escape.
// The reader undoes exactly these escapes (DecodeText), so every value and key
// reads back unit for unit; any other reader sees a private-use character and
// four digits. U+E01B followed by anything but four hexadecimal digits is
// text as it stands.
#pragma once

#include <cstddef>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist::internal {

// Appends `text` (bytes, normally UTF-8) in its written form.
void AppendText(const UTF8Char* text, std::size_t size, UTF8String& out);
// Appends UTF-16 `text` in its written form, converted to UTF-8.
void AppendText(const UTF16Char* text, std::size_t size, UTF8String& out);

// `text` with the escapes of the writer undone: `text` itself when it holds
// none (the usual case, found by one scan), otherwise the decoded text, built
// in `scratch`.
const UTF8String& DecodeText(const UTF8String& text, UTF8String& scratch);
const UTF16String& DecodeText(const UTF16String& text, UTF16String& scratch);

}  // namespace tvxcore::proplist::internal
