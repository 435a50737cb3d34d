// The user's number separators, from the platform's locale settings.
#pragma once

#include <string>

namespace tvxcore::platform {

// The decimal and thousands separators of the user's default locale, as UTF-8
// text. Returns false, leaving both alone, when the locale cannot be read.
bool GetUserNumberSeparators(std::string& outDecimal, std::string& outThousands);

}  // namespace tvxcore::platform
