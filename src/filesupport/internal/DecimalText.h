// Decimal text of floating values in the byte stream encoding: formatting as a
// standard stream does with precision 36, and reading back as a standard
// stream's extraction does, without regard to any locale.
#pragma once

#include <cstddef>
#include <string_view>

namespace tvxcore::filesupport::internal {

// 36 significant digits, the shorter of fixed and scientific form, trailing
// zeros dropped: "1.5", "-0", "1e+36", "inf", "-nan".
// The text goes into `buffer`, unterminated; returns its length.
struct DecimalBuffer {
  char text[64];
};
std::size_t FormatDecimal(double value, DecimalBuffer& buffer);
std::size_t FormatDecimal(long double value, DecimalBuffer& buffer);

// Skips leading blanks, converts the longest prefix of the form
// [+-]digits[.digits][(e|E)[+-]digits] and ignores the rest. Gives 0 when that
// prefix does not convert, the largest finite value with its sign when the
// value is too large, and the nearest subnormal or zero when it is too small.
float ParseDecimalFloat(std::string_view text);
double ParseDecimalDouble(std::string_view text);
long double ParseDecimalLongDouble(std::string_view text);

}  // namespace tvxcore::filesupport::internal
