// The character facets that let the library's UTF-16 and UTF-8 streams format
// and parse: the standard library carries them only for char and wchar_t.
#pragma once

#include <locale>

namespace tvxcore::utility::internal {

// `base` with ctype, numpunct, num_put and num_get for UTF16Char and UTF8Char
// added. Characters outside ASCII are classified as nothing and narrow to the
// default; numbers use "." and no grouping, like the classic locale.
std::locale WithTextFacets(const std::locale& base);

// The locale every text stream of the library is imbued with on construction.
// The classic locale with the text facets until the library's default locale
// is wired in.
const std::locale& DefaultStreamLocale();

}  // namespace tvxcore::utility::internal
