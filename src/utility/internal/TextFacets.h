// The number facets that let the library's UTF-16 and UTF-8 streams format
// and parse numbers: the standard library's own need character facets it
// carries only for char and wchar_t.
#pragma once

#include <locale>

namespace tvxcore::utility::internal {

// `base` with num_put and num_get for UTF16Char and UTF8Char added: numbers as
// a narrow stream in the classic locale writes and reads them, widened or
// narrowed one unit at a time (units outside ASCII end a number). Parsing
// skips white space before a number itself, so streams using these facets
// keep skipws clear. No ctype or numpunct facet is added for those types.
std::locale WithTextFacets(const std::locale& base);

// The locale every text stream of the library is imbued with on construction.
const std::locale& DefaultStreamLocale();

}  // namespace tvxcore::utility::internal
