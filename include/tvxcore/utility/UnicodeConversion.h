// tvxcore/utility/UnicodeConversion.h: conversions between UTF-8, UTF-16 and
// 8-bit ASCII literals, UTF-8 counting, surrogate classification and Unicode
// normalisation. These are the most-called text functions of the library.
//
// None of the conversions throws on bad text: UTF-8 decoding stops at the first
// bad sequence and keeps what came before it, and lone surrogates pass through
// both directions unchanged. All functions are reentrant and thread-safe.
#pragma once

#include <cstddef>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

// The outcome of a UTF-8 decode.
enum UnicodeErrorCode {
  kUnicodeNoError = 0,
  kUnicodeSourceExhausted = 1,  // a sequence is cut off by the end of the input
  kUnicodeTargetExhausted = 2,  // the output had no room left
  kUnicodeSourceIllegal = 3,    // a byte that cannot start or continue a sequence
};

// What kind of surrogate a UTF-16 unit is.
enum UnicodeSurrogateT {
  kUnicodeNotSurrogate = 0,
  kUnicodeHighSurrogate = 1,  // U+D800 to U+DBFF
  kUnicodeLowSurrogate = 2,   // U+DC00 to U+DFFF
};

// Normalisation forms. Any value not listed here means composed.
enum UnicodeNormalizationForm {
  kUnicodeNormalizationComposed = 0,                // NFC
  kUnicodeNormalizationDecomposed = 1,              // NFD
  kUnicodeNormalizationCompatibilityComposed = 2,   // NFKC
  kUnicodeNormalizationCompatibilityDecomposed = 3  // NFKD
};

// Returns `text` reinterpreted as UTF-8, without copying or checking, so that a
// literal can be passed where UTF-8 is asked for.
inline const UTF8Char* AsciiToUTF8Impl(const char* text) noexcept {
  return reinterpret_cast<const UTF8Char*>(text);
}

// Widens `count` bytes of `text` to UTF-16. Meant for 7-bit literals: each byte
// is sign-extended, so byte 0xE9 becomes U+FFE9, not U+00E9.
TVXCORE_EXPORT UTF16String AsciiToUTF16(const char* text, std::size_t count);

// The number of units before the first zero unit; 0 for a null pointer.
TVXCORE_EXPORT int UTF16StrLen(const UTF16Char* text) noexcept;

// Counts the characters of zero-terminated UTF-8 `text` in its first
// `byteLimit` bytes, judging each sequence by its lead byte alone (a stray
// continuation byte counts as a character, and the last sequence may run past
// the limit). A zero byte ends the count, also inside a sequence, which then
// counts as one character: the text is never read past its terminator. A lead
// byte of a sequence longer than four bytes gives -1; a null pointer or a limit
// below 1 gives 0.
TVXCORE_EXPORT int GetUTF8CharacterCount(const UTF8Char* text, int byteLimit) noexcept;

// The number of bytes of the first `characterCount` characters of
// zero-terminated UTF-8 `text`, judged by lead bytes as above; a zero byte ends
// the walk early, also inside a sequence (whose bytes before it count), so a
// negative count measures the whole text. A lead byte of a
// sequence longer than four bytes gives -1; null or a count of 0 gives 0.
TVXCORE_EXPORT int GetUTF8ByteCount(const UTF8Char* text, int characterCount) noexcept;

// Decodes UTF-8 leniently. Decoding stops at the first bad sequence; the units
// decoded before it are the result, `*error` says why it stopped and
// `*unitCount` how many units were produced (either pointer may be null).
// Embedded zero bytes are kept. UTF-8-encoded surrogates (ED A0 80 to ED BF BF)
// are accepted and give single units U+D800 to U+DFFF, so that UTF-16 holding
// lone surrogates survives a trip through UTF-8. Inputs of up to 256 bytes
// allocate nothing but the result.
TVXCORE_EXPORT UTF16String UTF8to16(const UTF8String& text, UnicodeErrorCode* error = nullptr,
                                    std::size_t* unitCount = nullptr);

// Encodes UTF-16 as UTF-8; never fails. A valid surrogate pair becomes one
// four-byte sequence, and any other surrogate is encoded by itself in three
// bytes. Embedded zero units: a text of four or more units ends at its first
// zero unit; a shorter text is encoded up to its first zero unit and then padded
// with zero bytes so that the result keeps the units that were not encoded as
// zero bytes (so {'A', 0, 'B'} gives the bytes 'A', 0, 0).
TVXCORE_EXPORT UTF8String UTF16to8(const UTF16String& text);

// Encodes zero-terminated UTF-16; a null pointer gives an empty result.
TVXCORE_EXPORT UTF8String UTF16to8(const UTF16Char* text);

// Returns `text` in the normalisation form `form`; on any failure of the
// normaliser the input is returned unchanged.
TVXCORE_EXPORT UTF16String NormalizedString(const UTF16String& text, UnicodeNormalizationForm form);

// Classifies one UTF-16 unit.
constexpr UnicodeSurrogateT UnicodeSurrogate(UTF16Char unit) noexcept {
  return unit >= 0xD800 && unit <= 0xDBFF   ? kUnicodeHighSurrogate
         : unit >= 0xDC00 && unit <= 0xDFFF ? kUnicodeLowSurrogate
                                            : kUnicodeNotSurrogate;
}

}  // namespace tvxcore::utility
