// The scalar UTF-8/UTF-16 rules and the bulk loops around them, shared by
// every instruction-set file of the conversion kernels
// (utility/unicode/UnicodeKernels_<isa>.cpp). Each file instantiates the loops
// with its own block operations and is compiled with its own -m flags.
//
// THE RULE FOR THIS HEADER AND THE KERNEL FILES: nothing here or in a kernel
// file has external linkage except the file's UnicodeKernelSet. Everything in
// this header sits in an anonymous namespace and the small functions are
// always inlined; the kernel files keep their helpers in an anonymous
// namespace too. An inline function with external linkage (or a function
// template, or a member of a class with external linkage) would be emitted as
// a weak symbol in every file that calls it out of line, each copy compiled
// for that file's instruction set, and the linker keeps any one of them for
// every caller: the AVX-512 copy could then run on a processor without
// AVX-512. For the same reason a kernel file calls no inline function of the
// standard library (std::min, std::string, ...); intrinsics, compiler
// builtins and C functions such as memcpy are fine. The build checks the
// objects of the kernel files for stray symbols after linking
// (cmake/TvxcoreKernelSymbols.cmake).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/UnicodeKernels.h"
#include "utility/internal/UnicodeKernelsSet.h"

namespace tvxcore::utility::internal {
namespace {

// Trailing bytes by lead byte.
TVX_ALWAYS_INLINE constexpr unsigned TrailingBytes(unsigned lead) {
  return lead < 0xC0   ? 0
         : lead < 0xE0 ? 1
         : lead < 0xF0 ? 2
         : lead < 0xF8 ? 3
         : lead < 0xFC ? 4
                       : 5;
}

TVX_ALWAYS_INLINE constexpr bool IsContinuation(unsigned byte) { return (byte & 0xC0) == 0x80; }
TVX_ALWAYS_INLINE constexpr bool IsHigh(unsigned u) { return (u & 0xFC00) == 0xD800; }
TVX_ALWAYS_INLINE constexpr bool IsLow(unsigned u) { return (u & 0xFC00) == 0xDC00; }

// Decodes the non-ASCII sequence at `s` (s < end). On success stores its units
// and returns its length; otherwise sets `error` and returns 0. Surrogates
// encoded in UTF-8 are accepted and give single units (lenient decoding).
TVX_ALWAYS_INLINE unsigned DecodeSequence(const UTF8Char* s, const UTF8Char* end, UTF16Char*& d,
                                          UnicodeErrorCode& error) {
  const unsigned lead = s[0];
  const unsigned trailing = TrailingBytes(lead);
  if (trailing >= static_cast<std::size_t>(end - s)) {
    error = kUnicodeSourceExhausted;
    return 0;
  }
  switch (trailing) {
    case 1: {
      const unsigned a = s[1];
      if (lead < 0xC2 || !IsContinuation(a)) break;
      *d++ = static_cast<UTF16Char>(((lead & 0x1F) << 6) | (a & 0x3F));
      return 2;
    }
    case 2: {
      const unsigned a = s[1], b = s[2];
      if (!IsContinuation(a) || !IsContinuation(b) || (lead == 0xE0 && a < 0xA0)) break;
      *d++ = static_cast<UTF16Char>(((lead & 0x0F) << 12) | ((a & 0x3F) << 6) | (b & 0x3F));
      return 3;
    }
    case 3: {
      const unsigned a = s[1], b = s[2], c = s[3];
      if (!IsContinuation(a) || !IsContinuation(b) || !IsContinuation(c) || lead > 0xF4 ||
          (lead == 0xF0 && a < 0x90) || (lead == 0xF4 && a >= 0x90))
        break;
      const std::uint32_t cp =
          (((lead & 0x07) << 18) | ((a & 0x3F) << 12) | ((b & 0x3F) << 6) | (c & 0x3F)) - 0x10000;
      d[0] = static_cast<UTF16Char>(0xD800 + (cp >> 10));
      d[1] = static_cast<UTF16Char>(0xDC00 + (cp & 0x3FF));
      d += 2;
      return 4;
    }
    default:  // a stray continuation byte, or a lead of five or six bytes
      break;
  }
  error = kUnicodeSourceIllegal;
  return 0;
}

// Eight bytes as a little-endian word.
TVX_ALWAYS_INLINE std::uint64_t LoadWord(const void* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  v = __builtin_bswap64(v);
#endif
  return v;
}

// UTF-8 bytes of unit i, counting a surrogate pair as 4 at its high unit and
// 0 at its low unit.
TVX_ALWAYS_INLINE std::size_t UnitBytes(const UTF16Char* s, std::size_t i, std::size_t count) {
  const unsigned u = s[i];
  if (u < 0x80) return 1;
  if (u < 0x800) return 2;
  if (IsHigh(u) && i + 1 < count && IsLow(s[i + 1])) return 1;  // 4 - 3 for the low unit
  return 3;
}

// Encodes the non-ASCII unit at `s` (with its low surrogate when it forms a pair).
TVX_ALWAYS_INLINE const UTF16Char* EncodeUnit(const UTF16Char* s, const UTF16Char* end,
                                              UTF8Char*& d) {
  const unsigned u = s[0];
  if (u < 0x800) {
    d[0] = static_cast<UTF8Char>(0xC0 | (u >> 6));
    d[1] = static_cast<UTF8Char>(0x80 | (u & 0x3F));
    d += 2;
    return s + 1;
  }
  if (IsHigh(u) && s + 1 < end && IsLow(s[1])) {
    const std::uint32_t cp = 0x10000 + ((u - 0xD800) << 10) + (s[1] - 0xDC00u);
    d[0] = static_cast<UTF8Char>(0xF0 | (cp >> 18));
    d[1] = static_cast<UTF8Char>(0x80 | ((cp >> 12) & 0x3F));
    d[2] = static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F));
    d[3] = static_cast<UTF8Char>(0x80 | (cp & 0x3F));
    d += 4;
    return s + 2;
  }
  d[0] = static_cast<UTF8Char>(0xE0 | (u >> 12));
  d[1] = static_cast<UTF8Char>(0x80 | ((u >> 6) & 0x3F));
  d[2] = static_cast<UTF8Char>(0x80 | (u & 0x3F));
  d += 3;
  return s + 1;
}

// Encodes a unit that is not a surrogate, ASCII included.
TVX_ALWAYS_INLINE void EncodeBMP(unsigned u, UTF8Char*& d) {
  if (u < 0x80) {
    *d++ = static_cast<UTF8Char>(u);
  } else if (u < 0x800) {
    d[0] = static_cast<UTF8Char>(0xC0 | (u >> 6));
    d[1] = static_cast<UTF8Char>(0x80 | (u & 0x3F));
    d += 2;
  } else {
    d[0] = static_cast<UTF8Char>(0xE0 | (u >> 12));
    d[1] = static_cast<UTF8Char>(0x80 | ((u >> 6) & 0x3F));
    d[2] = static_cast<UTF8Char>(0x80 | (u & 0x3F));
    d += 3;
  }
}

// ---------------------------------------------------------------------------
// Whole-window UTF-8 decoding, for the kernels with windows. A kernel reports
// the bytes of a window by class, one bit per byte (bit i for byte i), and
// PlanWindow decides whether the window is well formed under the lenient
// rules and which positions give units. The rules are those of
// DecodeSequence: trailing bytes in 0x80..0xBF exactly where the leads ask
// for them, no lead 0xC0, 0xC1 or 0xF5..0xFF, at least 0xA0 after 0xE0, at
// least 0x90 after 0xF0, below 0x90 after 0xF4, and nothing checked after
// 0xED. A window that breaks any of them is left to the scalar code, which
// then finds the same first bad sequence on every kernel.

struct WindowClasses {
  std::uint64_t nonAscii;  // bytes >= 0x80
  std::uint64_t c0, c2, e0, f0, f5;
  std::uint64_t a0, x90;           // bytes >= 0xA0, >= 0x90
  std::uint64_t isE0, isF0, isF4;  // bytes equal to these leads
};

struct WindowPlan {
  unsigned bytes;                  // complete sequences end here
  std::uint64_t emit;              // positions that give a unit
  std::uint64_t two, three, four;  // leads of two, three and four bytes
  std::uint64_t low;               // where a four-byte sequence gives its low surrogate
};

// W: the window's width in bytes, 32 or 64.
template <unsigned W>
TVX_ALWAYS_INLINE bool PlanWindow(const WindowClasses& c, WindowPlan& plan) {
  constexpr std::uint64_t kAll = W == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << W) - 1;
  constexpr std::uint64_t kTop = std::uint64_t{1} << (W - 1);
  const std::uint64_t trailing = c.nonAscii & ~c.c0;
  const std::uint64_t two = c.c0 & ~c.e0, three = c.e0 & ~c.f0, four = c.f0;
  const std::uint64_t bad = (c.c0 & ~c.c2) | c.f5 | ((c.isE0 << 1) & ~c.a0) |
                            ((c.isF0 << 1) & ~c.x90) | ((c.isF4 << 1) & c.x90);
  const std::uint64_t lead = two | three | four;
  const std::uint64_t longer = three | four;
  const std::uint64_t expected = ((lead << 1) | (longer << 2) | (four << 3)) & kAll;
  if (((expected ^ trailing) | (bad & kAll)) != 0) return false;
  // A sequence cut by the end of the window is left for the next one.
  const std::uint64_t open = (lead & kTop) | (longer & (kTop >> 1)) | (four & (kTop >> 2));
  plan.bytes = open != 0 ? static_cast<unsigned>(__builtin_ctzll(open)) : W;
  const std::uint64_t below =
      plan.bytes == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << plan.bytes) - 1;
  // A four-byte sequence gives its high surrogate at the lead and its low one
  // at its third byte.
  plan.low = four << 2;
  plan.emit = (~trailing | plan.low) & below;
  plan.two = two;
  plan.three = three;
  plan.four = four;
  return true;
}

// ---------------------------------------------------------------------------
// The bulk loops. `K` is a kernel file's block operations, a class of static
// functions and constants:
//   kBytesPerBlock, BlockUnitBound(p): bytes of the block that are not
//                   trailing bytes, plus those at or above 0xF0
//   kUnitsPerBlock, BlockHasZero(p), BlockBytes(p) (may read one unit past
//                   the block)
//   kWindows:       false for block-at-a-time ASCII runs:
//     FirstNonAsciiByte(p), WidenBlock(p, d)
//     FirstNonAsciiUnit(p), NarrowBlock(p, d)
//   Block operations may store a whole block even when only part of it is
//   used; the callers guarantee room for that.
//   kWindows:       true for whole-window coding of every sequence width:
//     kDecodeWindow, DecodeWindow(s, avail, d)
//       decodes the complete sequences of the kDecodeWindow bytes at s when
//       all of them are well formed, and returns the bytes consumed; returns
//       0 and stores nothing when the window holds anything irregular.
//       `avail` is the input left from s; the window may read a few bytes
//       beyond kDecodeWindow when that many are there, and stores at most
//       one unit per byte left.
//     EncodeWindow(s, avail, d)
//       encodes at least one and up to a window of the `avail` units at s
//       (never half of a surrogate pair) and returns how many. The target has
//       room for exactly the bytes of the `avail` units.

// Decodes non-ASCII sequences from s until an ASCII byte, the end, or a bad
// sequence (then returns false with `error` set).
TVX_ALWAYS_INLINE bool DecodeRun(const UTF8Char*& s, const UTF8Char* end, UTF16Char*& d,
                                 UnicodeErrorCode& error) {
  do {
    // Runs of three-byte sequences (CJK and most of the BMP), two at a time.
    while (end - s >= 8) {
      const std::uint64_t v = LoadWord(s);
      if ((v & 0xC0C0F0C0C0F0ull) != 0x8080E08080E0ull || (v & 0x0F) == 0 ||
          (v & 0x0F000000ull) == 0)
        break;  // not two three-byte sequences, or a lead 0xE0 with its own rule
      d[0] = static_cast<UTF16Char>(((v & 0x0F) << 12) | ((v >> 2) & 0x0FC0) | ((v >> 16) & 0x3F));
      d[1] =
          static_cast<UTF16Char>(((v >> 12) & 0xF000) | ((v >> 26) & 0x0FC0) | ((v >> 40) & 0x3F));
      d += 2;
      s += 6;
    }
    if (s == end || *s < 0x80) return true;
    const unsigned used = DecodeSequence(s, end, d, error);
    if (used == 0) return false;
    s += used;
  } while (s < end && *s >= 0x80);
  return true;
}

template <class K>
UTF8DecodeResult DecodeLoop(const UTF8Char* source, std::size_t count, UTF16Char* target) {
  const UTF8Char* s = source;
  const UTF8Char* const end = source + count;
  UTF16Char* d = target;
  UnicodeErrorCode error = kUnicodeNoError;
  if constexpr (K::kWindows) {
    while (s < end) {
      const std::size_t avail = static_cast<std::size_t>(end - s);
      const unsigned used = K::DecodeWindow(s, avail, d);
      if (used != 0) {
        s += used;
        continue;
      }
      // Something irregular in this window: the scalar rules take it, and
      // stop at the bad sequence if there is one.
      const UTF8Char* const stop = avail > K::kDecodeWindow ? s + K::kDecodeWindow : end;
      while (s < stop) {
        if (*s < 0x80) {
          *d++ = *s++;
        } else if (!DecodeRun(s, end, d, error)) {
          goto done;
        }
      }
    }
  } else {
    for (;;) {
      // ASCII runs a block at a time. The block is widened whole: the target
      // has room for one unit per remaining input byte.
      while (static_cast<std::size_t>(end - s) >= K::kBytesPerBlock) {
        const unsigned k = K::FirstNonAsciiByte(s);
        K::WidenBlock(s, d);
        s += k;
        d += k;
        if (k != K::kBytesPerBlock) break;
      }
      while (s < end && *s < 0x80) *d++ = *s++;
      if (s == end) break;
      if (!DecodeRun(s, end, d, error)) goto done;
      if (s == end) break;
    }
  }
done:
  return {static_cast<std::size_t>(s - source), static_cast<std::size_t>(d - target), error};
}

template <class K>
std::size_t CountLoop(const UTF8Char* source, std::size_t count) {
  std::size_t i = 0;
  std::size_t units = 0;
  for (; count - i >= K::kBytesPerBlock; i += K::kBytesPerBlock)
    units += K::BlockUnitBound(source + i);
  for (; i < count; ++i) units += ((source[i] & 0xC0) != 0x80) + (source[i] >= 0xF0);
  return units;
}

template <class K>
UTF16Measure MeasureLoop(const UTF16Char* source, std::size_t count) {
  std::size_t i = 0;
  std::size_t bytes = 0;
  // Strictly more than a block left, so that the look-ahead unit exists.
  while (count - i > K::kUnitsPerBlock) {
    if (K::BlockHasZero(source + i)) break;
    bytes += K::BlockBytes(source + i);
    i += K::kUnitsPerBlock;
  }
  for (; i < count && source[i] != 0; ++i) bytes += UnitBytes(source, i, count);
  return {i, bytes, bytes == i};
}

template <class K>
std::size_t EncodeLoop(const UTF16Char* source, std::size_t count, UTF8Char* target) {
  const UTF16Char* s = source;
  const UTF16Char* const end = source + count;
  UTF8Char* d = target;
  if constexpr (K::kWindows) {
    while (s < end) s += K::EncodeWindow(s, static_cast<std::size_t>(end - s), d);
  } else {
    for (;;) {
      // The target has room for at least one byte per remaining unit.
      while (static_cast<std::size_t>(end - s) >= K::kUnitsPerBlock) {
        const unsigned k = K::FirstNonAsciiUnit(s);
        K::NarrowBlock(s, d);
        s += k;
        d += k;
        if (k != K::kUnitsPerBlock) break;
      }
      while (s < end && *s < 0x80) *d++ = static_cast<UTF8Char>(*s++);
      if (s == end) break;
      do {
        s = EncodeUnit(s, end, d);
      } while (s < end && *s >= 0x80);
      if (s == end) break;
    }
  }
  return static_cast<std::size_t>(d - target);
}

// The set of a kernel file, made of the loops above and its block operations.
template <class K>
constexpr UnicodeKernelSet MakeKernelSet() {
  return {DecodeLoop<K>, CountLoop<K>, MeasureLoop<K>, EncodeLoop<K>};
}

}  // namespace
}  // namespace tvxcore::utility::internal
