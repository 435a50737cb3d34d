// tvxcore/utility/NumberText.h: numbers as user-visible text and back: the
// user's decimal and thousands separators, full-width and Arabic-Indic digit
// folding, formatting with padding, grouping and signs, lenient parsing, hex
// input and the arithmetic evaluator of numeric entry fields.
//
// Nothing here throws for bad text: a text that does not parse gives 0. The
// separators are read once from the user's locale (a benign lazy cache); all
// functions are otherwise reentrant.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/utility/Flags.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

using NumberFlags = Flags<unsigned short>;

// NumberToString: the result is not passed through InternationalizeNum.
constexpr unsigned short kNumberRawOutput = 0x0001;
// NumberToString: pad with blanks instead of zeros. StringToNumber: skip
// DeInternationalizeNum. HasNumericChars: only ASCII digits count.
constexpr unsigned short kNumberPlainInput = 0x0002;
// NumberToString: trim trailing fraction zeros. StringToNumber: keep commas
// (otherwise every "," is removed before parsing).
constexpr unsigned short kNumberKeepCommas = 0x0004;
// NumberToString: "," between groups of three integer digits.
constexpr unsigned short kNumberGroupThousands = 0x0008;
// NumberToString: positive numbers get "+".
constexpr unsigned short kNumberForcePlus = 0x0010;
// NumberToString: without kNumberForcePlus, positive numbers get " ".
constexpr unsigned short kNumberLeadingBlank = 0x0020;
// NumberToString: with kNumberForcePlus, a value that counts as zero gets no sign.
constexpr unsigned short kNumberNoPlusOnZero = 0x0040;

// Moves full-width U+FF01 to U+FF1F to their ASCII forms; true if any moved.
TVXCORE_EXPORT bool ToNumericCase(UTF16Char& unit);
TVXCORE_EXPORT bool ToNumericCase(UTF16String& text);

// In place: U+2212 to "-", U+3000 to " ", U+3001 to ",", U+3002 to ".",
// U+FF01 to U+FF5E to ASCII, Arabic-Indic digits U+0660 to U+0669 to ASCII.
TVXCORE_EXPORT void ConvertFullWidthAndIdeographicCharacters(UTF16String& text);

// True when the text holds an ASCII digit, after the folding above unless
// kNumberPlainInput is set. The text is not modified.
TVXCORE_EXPORT bool HasNumericChars(UTF16String& text, NumberFlags flags);

// Folds the text as above, then maps the user's decimal character to "." and
// the user's thousands character to ",".
TVXCORE_EXPORT void DeInternationalizeNum(UTF16String& text);

// Maps "." to the user's decimal character and "," to the user's thousands
// character, each only where the next unit is a digit (the last unit never
// changes).
TVXCORE_EXPORT void InternationalizeNum(UTF16String& text);

// Formats `value` with `fractionDigits` digits after the point, at least
// `minimumIntegerDigits` before it (padded with zeros, or blanks with
// kNumberPlainInput), in exponent form when longer than `maximumLength` - 1.
// A value that rounds to zero never shows a minus sign. NaN gives the
// localised text "nan". Padding beyond 1,048,576 digits and more than 400
// fraction digits are not produced: both are clamped to those bounds.
TVXCORE_EXPORT UTF16String NumberToString(double value, std::uint64_t minimumIntegerDigits,
                                          std::uint64_t fractionDigits, NumberFlags flags,
                                          std::int32_t maximumLength);

// Parses the longest leading part of the text that is a number, after
// DeInternationalizeNum (unless kNumberPlainInput) and removing commas (unless
// kNumberKeepCommas). A text that does not parse gives 0; never throws. A value
// out of the type's range gives the nearest limit.
TVXCORE_EXPORT double StringToNumber(const UTF16String& text, NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(double& result, const UTF16String& text, NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(float& result, const UTF16String& text, NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(std::int64_t& result, const UTF16String& text,
                                   NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(std::uint64_t& result, const UTF16String& text,
                                   NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(std::int32_t& result, const UTF16String& text,
                                   NumberFlags flags);
TVXCORE_EXPORT void StringToNumber(std::uint32_t& result, const UTF16String& text,
                                   NumberFlags flags);

// Parses hexadecimal text like the C library's strtol/strtoul with base 16
// on 32-bit values: leading white space, at most one sign right before the
// digits (so "- 5" and "--5" give 0), an optional "0x", stopping at the first
// other character. Out-of-range values give the nearest limit; for the
// unsigned form a minus sign negates modulo 2^32 ("-1" is 0xFFFFFFFF) and a
// magnitude beyond 32 bits gives 0xFFFFFFFF whatever the sign.
TVXCORE_EXPORT void HexStringToNumber(std::int32_t& result, const UTF16String& text);
TVXCORE_EXPORT void HexStringToNumber(std::uint32_t& result, const UTF16String& text);

// Upper-cases the text and keeps only "0" to "9" and "A" to "F".
TVXCORE_EXPORT void ValidateForHex(UTF16String& text);

// Evaluates arithmetic typed into a numeric field: + - * / ^ (power), e or E
// (times ten to the power), parentheses. Every other character is ignored.
// The operators split in a fixed order rather than by the usual precedence:
// "e" binds loosest (1+2e3 is 3000), then the last "+" or "-", then "*", "/"
// and "^" (2*3/4 is 2*(3/4); chains of "^" go left to right). A leading sign
// works as 0 minus the rest; dividing by zero gives the left operand.
// Texts of any length and nesting give their exact value: the evaluation
// keeps its work on the heap, not on the thread's stack, and takes time in
// proportion to the length of the text. Never throws, except std::bad_alloc.
TVXCORE_EXPORT double Calculate(UTF16String text, NumberFlags flags);

}  // namespace tvxcore::utility
