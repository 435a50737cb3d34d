// Number text of property lists, with exactly the results of the standard
// streams in the "C" locale: writing as `<<` does with precision 8 for float
// and 16 for double in the default floating format; reading as `>>` does,
// whitespace skipped, the longest leading part that parses taken, the rest
// ignored. Plain forms take a fast path; anything else goes through a stream.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist::internal {

template <typename T>
void AppendNumber(UTF8String& out, T value) {
  char buffer[64];
  std::to_chars_result result;
  if constexpr (std::is_same_v<T, float>) {
    result = std::to_chars(buffer, buffer + sizeof buffer, static_cast<double>(value),
                           std::chars_format::general, 8);
  } else if constexpr (std::is_same_v<T, double>) {
    result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 16);
  } else {
    result = std::to_chars(buffer, buffer + sizeof buffer, value);
  }
  out.append(reinterpret_cast<const UTF8Char*>(buffer),
             static_cast<std::size_t>(result.ptr - buffer));
}

// Reads `value` from text as `std::istringstream(text) >> value` does. With
// nothing but whitespace the value is left alone, like the stream does.
template <typename T>
void ReadNumber(const UTF8Char* text, std::size_t size, T& value) {
  const char* p = reinterpret_cast<const char*>(text);
  const char* end = p + size;
  // The fast path covers the texts a writer produces: a digit first, or for
  // signed and floating types "-" and a digit, and then exactly what
  // from_chars takes (digits; for floating types the plain decimal and
  // exponent forms), consumed completely and in range. Everything else,
  // "+", a leading ".", whitespace, "inf" and the like included, takes the
  // stream.
  const char* digits = p;
  if constexpr (std::is_signed_v<T>) {
    if (digits != end && *digits == '-') ++digits;
  }
  if (digits != end && *digits >= '0' && *digits <= '9') {
    T parsed{};
    auto [ptr, ec] = std::from_chars(p, end, parsed);
    if (ec == std::errc() && ptr == end) {
      value = parsed;
      return;
    }
  }
  std::istringstream stream(std::string(p, end));
  stream.imbue(std::locale::classic());
  stream >> value;
}

}  // namespace tvxcore::proplist::internal
