// tvxcore/utility/StringUtils.h: small helpers on UTF16String shared by the
// whole library: line endings, search and replace, "@0" to "@9" message
// parameters and "&" mnemonic marks of display strings.
//
// All functions are reentrant; none throws except for memory failure.
#pragma once

#include <cstddef>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

enum LineEndingType {
  kLineEndingCRLF = 0,  // carriage return and line feed
  kLineEndingCR = 1,    // carriage return
  kLineEndingLF = 2,    // line feed
};

// "\r\n", "\r" or "\n"; empty for any other value.
TVXCORE_EXPORT UTF16String GetLineEnding(LineEndingType type);

// Rewrites every line ending of `text` ("\r\n" counts as one, "\r" or "\n"
// alone as another) as the ending of `type`. A last line without an ending
// does not get one.
TVXCORE_EXPORT void ConvertLineEndings(LineEndingType type, UTF16String& text);

// Replaces every occurrence of `from` by `to`, searching from the start and
// continuing behind each inserted text, so inserted text is never rescanned.
// An empty `from` changes nothing.
TVXCORE_EXPORT void ReplaceAllStringInString(UTF16String& text, const UTF16String& from,
                                             const UTF16String& to);

// Copies `pattern`, replacing "@0" to "@9" by the value of that index and
// "@@" by "@". Any other "@" stays as it is, with the unit after it.
TVXCORE_EXPORT UTF16String
ReplaceInString(const UTF16String& pattern, const UTF16String& r0 = UTF16String(),
                const UTF16String& r1 = UTF16String(), const UTF16String& r2 = UTF16String(),
                const UTF16String& r3 = UTF16String(), const UTF16String& r4 = UTF16String(),
                const UTF16String& r5 = UTF16String(), const UTF16String& r6 = UTF16String(),
                const UTF16String& r7 = UTF16String(), const UTF16String& r8 = UTF16String(),
                const UTF16String& r9 = UTF16String());

// The same with the values by index; indexes beyond the vector are empty.
TVXCORE_EXPORT UTF16String ReplaceInString(const UTF16String& pattern,
                                           const std::vector<UTF16String>& values);

// The position of the first "&" that marks a mnemonic: not the last unit, not
// followed by a blank, not part of "&&" (a pair is skipped as a whole). The
// largest size_t when there is none. With `displayPosition`, the position is
// reduced by the "&&" pairs before it, giving its place in the displayed text.
TVXCORE_EXPORT std::size_t LocateSingleAmpersandInString(const UTF16String& text,
                                                         bool displayPosition);

// Turns a display string with mnemonic marks into the text shown: with
// `removeParenthesized`, first removes the first "(&x)" (four units); then
// removes every single mnemonic "&" and turns each "&&" into "&".
TVXCORE_EXPORT void StripDisplayString(UTF16String& text, bool removeParenthesized);

}  // namespace tvxcore::utility
