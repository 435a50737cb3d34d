// The user's decimal and thousands characters, fetched once.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::internal {

struct NumberSeparators {
  UTF16Char decimal;
  UTF16Char thousands;
};

// The first UTF-16 unit of the user's decimal and thousands separators; "."
// and "," when the locale cannot be read or gives an empty separator.
NumberSeparators GetNumberSeparators();

// Test hook: replaces the cached separators.
void SetNumberSeparators(NumberSeparators separators);

}  // namespace tvxcore::utility::internal
