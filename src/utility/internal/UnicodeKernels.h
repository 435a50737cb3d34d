// The bulk UTF-8/UTF-16 loops behind UTF8to16 and UTF16to8, in a portable form
// and in vector forms chosen once at run time from the processor's features
// (one file per instruction set in src/utility/unicode/).
// Vector code is used only for runs of ASCII and for blocks it has validated;
// every other sequence goes through the same scalar rules, so all forms give
// identical results.
#pragma once

#include <cstddef>

#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility::internal {

enum class UnicodeKernel { kPortable, kSSE2, kAVX2, kAVX512, kBest };

struct UTF8DecodeResult {
  std::size_t read;     // input bytes consumed
  std::size_t written;  // units stored
  UnicodeErrorCode error;
};

struct UTF16Measure {
  std::size_t limit;  // units before the first zero unit (or all of them)
  std::size_t bytes;  // UTF-8 bytes needed for those units
  bool ascii;         // every unit before `limit` is below 0x80
};

// Units that DecodeUTF8 may store beyond the last one it writes.
constexpr std::size_t kDecodeOverrun = 64;

// Decodes `count` bytes leniently, stopping at the first bad sequence.
// `target` must have room for `count` units, or for CountUTF16Units of the
// same bytes plus kDecodeOverrun units; either is always enough.
UTF8DecodeResult DecodeUTF8(const UTF8Char* source, std::size_t count, UTF16Char* target);

// Bytes that are not trailing bytes (0x80..0xBF), plus those at or above
// 0xF0: the units of well-formed text, and never fewer than DecodeUTF8
// writes for any text.
std::size_t CountUTF16Units(const UTF8Char* source, std::size_t count);

// Measures `count` units up to the first zero unit.
UTF16Measure MeasureUTF16(const UTF16Char* source, std::size_t count);

// Encodes `count` units, none of them zero; `target` has room for exactly the
// bytes MeasureUTF16 gave. Returns the bytes written.
std::size_t EncodeUTF16(const UTF16Char* source, std::size_t count, UTF8Char* target);

// Test and benchmark hooks. ForceUnicodeKernel restricts the conversions to
// one kernel (kBest lets the library choose again); asking for a kernel the
// processor lacks falls back to the best one it has. Not thread-safe against
// running conversions. A kernel is compiled into every build for its
// processor family (the vector ones on x86-64) and supported where it is
// compiled and the processor has its instructions.
void ForceUnicodeKernel(UnicodeKernel kernel);
bool UnicodeKernelCompiled(UnicodeKernel kernel);
bool UnicodeKernelSupported(UnicodeKernel kernel);
UnicodeKernel ActiveUnicodeKernel();

}  // namespace tvxcore::utility::internal
