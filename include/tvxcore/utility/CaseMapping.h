// tvxcore/utility/CaseMapping.h: the library's own case conversion of UTF-16
// text, the same on every platform and in every locale. Paths are compared by
// their FoldCase form; user-visible text is changed with the other functions.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

// All functions read one process-wide case table that gives every code unit of
// the Basic Multilingual Plane its lower, upper and folded form, following one
// fixed version of the Unicode Character Database (full mappings, so a form may
// be longer than one unit: the upper form of U+00DF is "SS"). A unit without a
// case mapping is not in the table and is copied as it is.
//
// The mapping works unit by unit and looks at no context: no final-sigma rule,
// no rule by language, and a surrogate (paired or not) passes unchanged, so
// characters beyond the Basic Multilingual Plane have no case here.
//
// None of the functions throws except std::bad_alloc; all are thread-safe on
// distinct strings, and the table needs no initialisation.

TVXCORE_EXPORT UTF16String LowerCase(const UTF16String& inText);
TVXCORE_EXPORT UTF16String UpperCase(const UTF16String& inText);
TVXCORE_EXPORT UTF16String FoldCase(const UTF16String& inText);

// Capitalises the first unit of each word and lowers the rest. A unit in the
// table continues a word; any other unit (a blank, a digit, punctuation) ends
// it, except that an apostrophe right behind a unit of the table does not
// ("don't" -> "Don't", "'tis" -> "'Tis"). The length of the input is read once
// and the index moves by one unit per step, so when a form longer than one
// unit is inserted the later text shifts: a unit of the inserted form is then
// visited and as many units at the end of the string are left as they were.
TVXCORE_EXPORT UTF16String TitleCase(const UTF16String& inText);

// Each replaces its argument by the result of the function above.
TVXCORE_EXPORT void ToLowerCase(UTF16String& ioText);
TVXCORE_EXPORT void ToUpperCase(UTF16String& ioText);
TVXCORE_EXPORT void ToFoldCase(UTF16String& ioText);
TVXCORE_EXPORT void ToTitleCase(UTF16String& ioText);

}  // namespace tvxcore::utility
