// Small helpers for writing string literals of the library's string types.
#pragma once

#include <string>
#include <string_view>

#include "tvxcore/utility/StringTypes.h"

namespace tvxtest {

inline tvxcore::UTF8String U8(std::string_view text) {
  return tvxcore::UTF8String(reinterpret_cast<const tvxcore::UTF8Char*>(text.data()), text.size());
}
inline tvxcore::UTF16String U16(std::u16string_view text) {
  return tvxcore::UTF16String(text.data(), text.size());
}
inline std::string Str(const tvxcore::UTF8String& text) {
  return std::string(text.begin(), text.end());
}

}  // namespace tvxtest
