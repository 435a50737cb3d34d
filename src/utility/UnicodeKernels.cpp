// Portable and vector forms of the bulk UTF-8/UTF-16 loops, and the choice
// between them.
#include "utility/internal/UnicodeKernels.h"

#include <atomic>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define TVX_UNICODE_X86 1
#else
#define TVX_UNICODE_X86 0
#endif

#define TVX_ALWAYS_INLINE inline __attribute__((always_inline))

namespace tvxcore::utility::internal {
namespace {

// Trailing bytes by lead byte.
constexpr unsigned TrailingBytes(unsigned lead) {
  return lead < 0xC0   ? 0
         : lead < 0xE0 ? 1
         : lead < 0xF0 ? 2
         : lead < 0xF8 ? 3
         : lead < 0xFC ? 4
                       : 5;
}

constexpr bool IsContinuation(unsigned byte) { return (byte & 0xC0) == 0x80; }

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

constexpr bool IsHigh(unsigned u) { return (u & 0xFC00) == 0xD800; }
constexpr bool IsLow(unsigned u) { return (u & 0xFC00) == 0xDC00; }

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
// Whole-window UTF-8 decoding, shared by the vector kernels. A kernel reports
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

// Shuffles that pack the units of eight 16-bit lanes selected by a mask to
// the front of a 16-byte vector.
struct PackTable {
  alignas(16) std::uint8_t shuffle[256][16];
};
constexpr PackTable MakePackTable() {
  PackTable t{};
  for (unsigned m = 0; m < 256; ++m) {
    unsigned out = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if ((m >> lane) & 1) {
        t.shuffle[m][out++] = static_cast<std::uint8_t>(2 * lane);
        t.shuffle[m][out++] = static_cast<std::uint8_t>(2 * lane + 1);
      }
    }
    while (out < 16) t.shuffle[m][out++] = 0x80;
  }
  return t;
}
constexpr PackTable kPackUnits = MakePackTable();

// Shuffles that pack four UTF-8 sequences of one to three bytes, each held at
// the front of a 32-bit lane, into consecutive bytes. Indexed by the lanes of
// two or more bytes (low four bits) and of three bytes (high four bits).
struct EncodeTable {
  alignas(16) std::uint8_t shuffle[256][16];
  std::uint8_t length[256];
};
constexpr EncodeTable MakeEncodeTable() {
  EncodeTable t{};
  for (unsigned m = 0; m < 256; ++m) {
    unsigned out = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const unsigned n = 1 + ((m >> lane) & 1) + ((m >> (lane + 4)) & 1);
      for (unsigned i = 0; i < n; ++i)
        t.shuffle[m][out++] = static_cast<std::uint8_t>(4 * lane + i);
    }
    t.length[m] = static_cast<std::uint8_t>(out);
    while (out < 16) t.shuffle[m][out++] = 0x80;
  }
  return t;
}
constexpr EncodeTable kEncodeSequences = MakeEncodeTable();

// ---------------------------------------------------------------------------
// Portable: eight bytes at a time in a 64-bit word.
namespace portable {
#define TVX_KERNEL_TARGET

constexpr unsigned kBytesPerBlock = 8;
constexpr unsigned kUnitsPerBlock = 4;

TVX_ALWAYS_INLINE std::uint64_t Load64(const void* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}
TVX_ALWAYS_INLINE unsigned FirstNonAsciiByte(const UTF8Char* p) {
  const std::uint64_t m = Load64(p) & 0x8080808080808080ull;
  return m ? static_cast<unsigned>(__builtin_ctzll(m)) / 8 : 8;
}
TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
  for (unsigned i = 0; i < kBytesPerBlock; ++i) d[i] = p[i];
}
TVX_ALWAYS_INLINE unsigned FirstNonAsciiUnit(const UTF16Char* p) {
  const std::uint64_t m = Load64(p) & 0xFF80FF80FF80FF80ull;
  return m ? static_cast<unsigned>(__builtin_ctzll(m)) / 16 : 4;
}
TVX_ALWAYS_INLINE void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
  for (unsigned i = 0; i < kUnitsPerBlock; ++i) d[i] = static_cast<UTF8Char>(p[i]);
}
TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
  const std::uint64_t v = Load64(p);
  const std::uint64_t high = 0x8080808080808080ull;
  const std::uint64_t trailing = v & ~(v << 1) & high;
  const std::uint64_t four = v & (v << 1) & (v << 2) & (v << 3) & high;
  return 8 - static_cast<unsigned>(__builtin_popcountll(trailing)) +
         static_cast<unsigned>(__builtin_popcountll(four));
}
TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
  const std::uint64_t v = Load64(p);
  return ((v - 0x0001000100010001ull) & ~v & 0x8000800080008000ull) != 0;
}
TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
  if ((Load64(p) & 0xFF80FF80FF80FF80ull) == 0) return kUnitsPerBlock;
  std::size_t bytes = 0;
  for (unsigned i = 0; i < kUnitsPerBlock; ++i) bytes += UnitBytes(p, i, kUnitsPerBlock + 1);
  return bytes;
}

#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_KERNEL_TARGET
}  // namespace portable

#if TVX_UNICODE_X86
// ---------------------------------------------------------------------------
// SSE2, always present on x86-64.
namespace sse2 {
#define TVX_KERNEL_TARGET

constexpr unsigned kBytesPerBlock = 16;
constexpr unsigned kUnitsPerBlock = 16;

TVX_ALWAYS_INLINE unsigned FirstNonAsciiByte(const UTF8Char* p) {
  const unsigned m = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
  return m ? static_cast<unsigned>(__builtin_ctz(m)) : 16;
}
TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(v, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 8), _mm_unpackhi_epi8(v, zero));
}
// One bit per unit (16 units) where `test(unit)` holds.
TVX_ALWAYS_INLINE unsigned UnitMask(__m128i a, __m128i b) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(a, b)));
}
TVX_ALWAYS_INLINE __m128i Load(const UTF16Char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
TVX_ALWAYS_INLINE __m128i NonAscii(__m128i v) {
  const __m128i ascii =
      _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(-0x80)), _mm_setzero_si128());
  return _mm_xor_si128(ascii, _mm_set1_epi16(-1));
}
TVX_ALWAYS_INLINE unsigned FirstNonAsciiUnit(const UTF16Char* p) {
  const unsigned m = UnitMask(NonAscii(Load(p)), NonAscii(Load(p + 8)));
  return m ? static_cast<unsigned>(__builtin_ctz(m)) : 16;
}
TVX_ALWAYS_INLINE void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(Load(p), Load(p + 8)));
}
TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  // Signed bytes: trailing bytes are -128..-65, four-byte and longer leads -16..-1.
  const unsigned trailing =
      static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, _mm_set1_epi8(-64))));
  const unsigned four = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-17)), v)));
  return 16 - static_cast<unsigned>(__builtin_popcount(trailing)) +
         static_cast<unsigned>(__builtin_popcount(four));
}
TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
  const __m128i zero = _mm_setzero_si128();
  return UnitMask(_mm_cmpeq_epi16(Load(p), zero), _mm_cmpeq_epi16(Load(p + 8), zero)) != 0;
}
TVX_ALWAYS_INLINE unsigned CountMask(__m128i a, __m128i b) {
  return static_cast<unsigned>(__builtin_popcount(UnitMask(a, b)));
}
TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
  const __m128i a = Load(p), b = Load(p + 8);
  const __m128i zero = _mm_setzero_si128();
  const __m128i any = _mm_and_si128(_mm_or_si128(a, b), _mm_set1_epi16(-0x80));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, zero)) == 0xFFFF) return 16;
  const __m128i hiMask = _mm_set1_epi16(-0x800);
  const __m128i ge800a =
      _mm_xor_si128(_mm_cmpeq_epi16(_mm_and_si128(a, hiMask), zero), _mm_set1_epi16(-1));
  const __m128i ge800b =
      _mm_xor_si128(_mm_cmpeq_epi16(_mm_and_si128(b, hiMask), zero), _mm_set1_epi16(-1));
  const __m128i sMask = _mm_set1_epi16(static_cast<short>(0xFC00));
  const __m128i highA =
      _mm_cmpeq_epi16(_mm_and_si128(a, sMask), _mm_set1_epi16(static_cast<short>(0xD800)));
  const __m128i highB =
      _mm_cmpeq_epi16(_mm_and_si128(b, sMask), _mm_set1_epi16(static_cast<short>(0xD800)));
  const __m128i lowA = _mm_cmpeq_epi16(_mm_and_si128(Load(p + 1), sMask),
                                       _mm_set1_epi16(static_cast<short>(0xDC00)));
  const __m128i lowB = _mm_cmpeq_epi16(_mm_and_si128(Load(p + 9), sMask),
                                       _mm_set1_epi16(static_cast<short>(0xDC00)));
  return 16 + CountMask(NonAscii(a), NonAscii(b)) + CountMask(ge800a, ge800b) -
         2 * CountMask(_mm_and_si128(highA, lowA), _mm_and_si128(highB, lowB));
}

#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_KERNEL_TARGET
}  // namespace sse2

// ---------------------------------------------------------------------------
// AVX2, chosen at run time.
namespace avx2 {
#define TVX_KERNEL_TARGET __attribute__((target("avx2,bmi,popcnt")))
#define TVX_OP TVX_KERNEL_TARGET TVX_ALWAYS_INLINE

constexpr unsigned kBytesPerBlock = 32;
constexpr unsigned kUnitsPerBlock = 32;

TVX_OP __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
TVX_OP void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
TVX_OP void WidenBlock(const UTF8Char* p, UTF16Char* d) {
  const __m256i v = Load(p);
  Store(d, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
  Store(d + 16, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
}
// One bit per unit of two 16-unit vectors of 0/-1 lanes.
TVX_OP unsigned UnitMask(__m256i a, __m256i b) {
  return static_cast<unsigned>(
      _mm256_movemask_epi8(_mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8)));
}
TVX_OP __m256i Test(__m256i v, short bits) {
  return _mm256_xor_si256(
      _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(bits)), _mm256_setzero_si256()),
      _mm256_set1_epi16(-1));
}
TVX_OP __m256i Is(__m256i v, short mask, short value) {
  return _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(mask)), _mm256_set1_epi16(value));
}
TVX_OP unsigned FirstNonAsciiUnit(const UTF16Char* p) {
  const __m256i a = Load(p), b = Load(p + 16);
  if (_mm256_testz_si256(_mm256_or_si256(a, b), _mm256_set1_epi16(-0x80))) return 32;
  return static_cast<unsigned>(__builtin_ctz(UnitMask(Test(a, -0x80), Test(b, -0x80))));
}
TVX_OP void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
  Store(d, _mm256_permute4x64_epi64(_mm256_packus_epi16(Load(p), Load(p + 16)), 0xD8));
}
TVX_OP unsigned BlockUnitBound(const UTF8Char* p) {
  const __m256i v = Load(p);
  const unsigned trailing =
      static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(_mm256_set1_epi8(-64), v)));
  const unsigned four = static_cast<unsigned>(
      _mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(-17)), v)));
  return 32 - static_cast<unsigned>(__builtin_popcount(trailing)) +
         static_cast<unsigned>(__builtin_popcount(four));
}
TVX_OP bool BlockHasZero(const UTF16Char* p) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i z =
      _mm256_or_si256(_mm256_cmpeq_epi16(Load(p), zero), _mm256_cmpeq_epi16(Load(p + 16), zero));
  return !_mm256_testz_si256(z, z);
}
TVX_OP std::size_t BlockBytes(const UTF16Char* p) {
  const __m256i a = Load(p), b = Load(p + 16);
  if (_mm256_testz_si256(_mm256_or_si256(a, b), _mm256_set1_epi16(-0x80))) return 32;
  const short kHigh = static_cast<short>(0xD800), kLow = static_cast<short>(0xDC00);
  const short kSurrogate = static_cast<short>(0xFC00);
  const __m256i la = Load(p + 1), lb = Load(p + 17);
  const unsigned nonAscii = UnitMask(Test(a, -0x80), Test(b, -0x80));
  const unsigned ge800 = UnitMask(Test(a, -0x800), Test(b, -0x800));
  const unsigned pairs =
      UnitMask(_mm256_and_si256(Is(a, kSurrogate, kHigh), Is(la, kSurrogate, kLow)),
               _mm256_and_si256(Is(b, kSurrogate, kHigh), Is(lb, kSurrogate, kLow)));
  return 32 + static_cast<unsigned>(__builtin_popcount(nonAscii)) +
         static_cast<unsigned>(__builtin_popcount(ge800)) -
         2 * static_cast<unsigned>(__builtin_popcount(pairs));
}

// Whole windows of 32 bytes; the unit values are computed from three
// overlapping loads, so a window reads 34 bytes.
constexpr unsigned kDecodeWindow = 32;
constexpr std::size_t kDecodeReach = 34;

TVX_OP std::uint64_t Bits(__m256i v) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(v)); }
TVX_OP std::uint64_t AtLeast(__m256i v, int x) {
  return Bits(_mm256_cmpeq_epi8(_mm256_max_epu8(v, _mm256_set1_epi8(static_cast<char>(x))), v));
}
TVX_OP std::uint64_t Equal(__m256i v, int x) {
  return Bits(_mm256_cmpeq_epi8(v, _mm256_set1_epi8(static_cast<char>(x))));
}
// 0/-1 in each 16-bit lane for the matching bit of m.
TVX_OP __m256i LaneMask(unsigned m) {
  const __m256i bits = _mm256_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096,
                                         8192, 16384, static_cast<short>(0x8000));
  return _mm256_cmpeq_epi16(_mm256_and_si256(_mm256_set1_epi16(static_cast<short>(m)), bits), bits);
}
TVX_OP void PackStore(__m128i v, unsigned m, UTF16Char*& d) {
  const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kPackUnits.shuffle[m]));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_shuffle_epi8(v, shuffle));
  d += __builtin_popcount(m);
}
// Units of the 16 bytes at p (shift: their first bit in the plan).
TVX_OP void DecodeHalf(const UTF8Char* p, const WindowPlan& plan, unsigned shift, UTF16Char*& d) {
  const unsigned emit = static_cast<unsigned>(plan.emit >> shift) & 0xFFFF;
  const __m256i b0 = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
  __m256i r = b0;
  if (emit != 0) {
    const __m256i low6 = _mm256_set1_epi16(0x3F);
    const __m256i b1 = _mm256_and_si256(
        _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1))), low6);
    const __m256i b2 = _mm256_and_si256(
        _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2))), low6);
    const __m256i v2 =
        _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b0, _mm256_set1_epi16(0x1F)), 6), b1);
    const unsigned two = static_cast<unsigned>(plan.two >> shift) & 0xFFFF;
    const unsigned three = static_cast<unsigned>(plan.three >> shift) & 0xFFFF;
    const unsigned four = static_cast<unsigned>(plan.four >> shift) & 0xFFFF;
    const unsigned low = static_cast<unsigned>(plan.low >> shift) & 0xFFFF;
    if (two != 0) r = _mm256_blendv_epi8(r, v2, LaneMask(two));
    if ((three | four) != 0) {
      const __m256i v3 =
          _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(b0, 12), _mm256_slli_epi16(b1, 6)), b2);
      if (three != 0) r = _mm256_blendv_epi8(r, v3, LaneMask(three));
      if (four != 0) {
        const __m256i high = _mm256_add_epi16(_mm256_srli_epi16(v3, 4),
                                              _mm256_set1_epi16(static_cast<short>(0xD7C0)));
        r = _mm256_blendv_epi8(r, high, LaneMask(four));
      }
    }
    if (low != 0) {
      const __m256i lowUnit = _mm256_or_si256(_mm256_and_si256(v2, _mm256_set1_epi16(0x3FF)),
                                              _mm256_set1_epi16(static_cast<short>(0xDC00)));
      r = _mm256_blendv_epi8(r, lowUnit, LaneMask(low));
    }
  }
  PackStore(_mm256_castsi256_si128(r), emit & 0xFF, d);
  PackStore(_mm256_extracti128_si256(r, 1), emit >> 8, d);
}
TVX_OP unsigned DecodeWindow(const UTF8Char* s, std::size_t avail, UTF16Char*& d) {
  if (avail < kDecodeReach) return 0;
  // Runs of three-byte sequences go faster through the scalar loop, which
  // takes two at a time.
  const std::uint64_t head = LoadWord(s);
  if ((head & 0xC0C0F0C0C0F0ull) == 0x8080E08080E0ull) return 0;
  const __m256i v = Load(s);
  WindowClasses c;
  c.nonAscii = Bits(v);
  if (c.nonAscii == 0) {
    WidenBlock(s, d);
    d += 32;
    return 32;
  }
  c.c0 = AtLeast(v, 0xC0);
  c.c2 = AtLeast(v, 0xC2);
  c.e0 = AtLeast(v, 0xE0);
  c.f0 = AtLeast(v, 0xF0);
  c.f5 = AtLeast(v, 0xF5);
  c.a0 = AtLeast(v, 0xA0);
  c.x90 = AtLeast(v, 0x90);
  c.isE0 = Equal(v, 0xE0);
  c.isF0 = Equal(v, 0xF0);
  c.isF4 = Equal(v, 0xF4);
  WindowPlan plan;
  if (!PlanWindow<32>(c, plan)) return 0;
  DecodeHalf(s, plan, 0, d);
  DecodeHalf(s + 16, plan, 16, d);
  return plan.bytes;
}

// Eight units a time, packed through a shuffle table; the stores need 20
// units of room (a shorter rest is encoded unit by unit). Surrogates take the
// scalar path.
TVX_OP unsigned EncodeWindow(const UTF16Char* s, std::size_t avail, UTF8Char*& d) {
  const UTF16Char* const end = s + avail;
  if (s[0] < 0x80 && avail >= 32) {
    const unsigned k = FirstNonAsciiUnit(s);
    if (k >= 8) {
      NarrowBlock(s, d);
      d += k;
      return k;
    }
  }
  if (avail < 20) {
    const UTF16Char* p = s;
    while (p < end) {
      if ((p[0] & 0xF800) == 0xD800) {
        p = EncodeUnit(p, end, d);
      } else {
        EncodeBMP(*p++, d);
      }
    }
    return static_cast<unsigned>(avail);
  }
  const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const unsigned surrogates = static_cast<unsigned>(_mm_movemask_epi8(
      _mm_cmpeq_epi16(_mm_and_si128(w, _mm_set1_epi16(static_cast<short>(0xF800))),
                      _mm_set1_epi16(static_cast<short>(0xD800)))));
  const unsigned n = surrogates != 0 ? static_cast<unsigned>(__builtin_ctz(surrogates)) / 2 : 8;
  if (n < 4) {
    for (unsigned i = 0; i < n; ++i) EncodeBMP(s[i], d);
    return static_cast<unsigned>(EncodeUnit(s + n, end, d) - s);
  }
  const __m256i u = _mm256_cvtepu16_epi32(w);
  const __m256i last =
      _mm256_or_si256(_mm256_and_si256(u, _mm256_set1_epi32(0x3F)), _mm256_set1_epi32(0x80));
  const __m256i middle = _mm256_or_si256(
      _mm256_and_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0x3F)), _mm256_set1_epi32(0x80));
  const __m256i three =
      _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 12), _mm256_set1_epi32(0xE0)),
                      _mm256_or_si256(_mm256_slli_epi32(middle, 8), _mm256_slli_epi32(last, 16)));
  const __m256i two =
      _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0xC0)),
                      _mm256_slli_epi32(last, 8));
  const __m256i ge80 = _mm256_cmpgt_epi32(u, _mm256_set1_epi32(0x7F));
  const __m256i ge800 = _mm256_cmpgt_epi32(u, _mm256_set1_epi32(0x7FF));
  const __m256i r = _mm256_blendv_epi8(_mm256_blendv_epi8(u, two, ge80), three, ge800);
  const unsigned m80 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(ge80)));
  const unsigned m800 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(ge800)));
  const unsigned i0 = (m80 & 0xF) | ((m800 & 0xF) << 4);
  const unsigned i1 = (m80 >> 4) | ((m800 >> 4) << 4);
  const __m256i shuffle = _mm256_setr_m128i(
      _mm_load_si128(reinterpret_cast<const __m128i*>(kEncodeSequences.shuffle[i0])),
      _mm_load_si128(reinterpret_cast<const __m128i*>(kEncodeSequences.shuffle[i1])));
  const __m256i packed = _mm256_shuffle_epi8(r, shuffle);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
  d += kEncodeSequences.length[i0];
  if (n < 8) return 4;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_extracti128_si256(packed, 1));
  d += kEncodeSequences.length[i1];
  return 8;
}

#define TVX_KERNEL_WINDOWS 1
#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_KERNEL_WINDOWS
#undef TVX_OP
#undef TVX_KERNEL_TARGET
}  // namespace avx2

// ---------------------------------------------------------------------------
// AVX-512 (F and BW), chosen at run time.
namespace avx512 {
#define TVX_KERNEL_TARGET \
  __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,avx2,bmi,popcnt")))
#define TVX_OP TVX_KERNEL_TARGET TVX_ALWAYS_INLINE

constexpr unsigned kBytesPerBlock = 64;
constexpr unsigned kUnitsPerBlock = 64;

TVX_OP __m512i Load(const void* p) { return _mm512_loadu_si512(p); }
TVX_OP void WidenBlock(const UTF8Char* p, UTF16Char* d) {
  const __m256i* half = reinterpret_cast<const __m256i*>(p);
  _mm512_storeu_si512(d, _mm512_cvtepu8_epi16(_mm256_loadu_si256(half)));
  _mm512_storeu_si512(d + 32, _mm512_cvtepu8_epi16(_mm256_loadu_si256(half + 1)));
}
// Masks of 32 units each. They are kept 32 bits wide: GCC 12 may spill a
// mask register with a 32-bit store and reload it with a 64-bit load, so a
// mask is never widened to 64 bits.
TVX_OP unsigned Test(const UTF16Char* p, short bits) {
  return _mm512_test_epi16_mask(Load(p), _mm512_set1_epi16(bits));
}
TVX_OP unsigned Is(const UTF16Char* p, short mask, short value) {
  return _mm512_cmpeq_epi16_mask(_mm512_and_si512(Load(p), _mm512_set1_epi16(mask)),
                                 _mm512_set1_epi16(value));
}
TVX_OP unsigned BlockUnitBound(const UTF8Char* p) {
  const __m512i v = Load(p);
  const std::uint64_t trailing = _mm512_cmplt_epi8_mask(v, _mm512_set1_epi8(-64));
  const std::uint64_t four = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(-16));
  return 64 - static_cast<unsigned>(__builtin_popcountll(trailing)) +
         static_cast<unsigned>(__builtin_popcountll(four));
}
TVX_OP bool BlockHasZero(const UTF16Char* p) {
  const __m512i zero = _mm512_setzero_si512();
  return (_mm512_cmpeq_epi16_mask(Load(p), zero) | _mm512_cmpeq_epi16_mask(Load(p + 32), zero)) !=
         0;
}
// UTF-8 bytes of 32 units, counting a pair as 4 at its high unit (p[32] is read).
TVX_OP unsigned HalfBytes(const UTF16Char* p) {
  const unsigned nonAscii = Test(p, -0x80);
  if (nonAscii == 0) return 32;
  const short kHigh = static_cast<short>(0xD800), kLow = static_cast<short>(0xDC00);
  const short kSurrogate = static_cast<short>(0xFC00);
  const unsigned pairs = Is(p, kSurrogate, kHigh) & Is(p + 1, kSurrogate, kLow);
  return 32 + static_cast<unsigned>(__builtin_popcount(nonAscii)) +
         static_cast<unsigned>(__builtin_popcount(Test(p, -0x800))) -
         2 * static_cast<unsigned>(__builtin_popcount(pairs));
}
TVX_OP std::size_t BlockBytes(const UTF16Char* p) { return HalfBytes(p) + HalfBytes(p + 32); }

// GCC 12's AVX-512 header fills the unused source of its shift, widening and
// extraction intrinsics from a self-initialised variable, which its own
// -Wmaybe-uninitialized then reports once they are inlined here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

// Whole windows of 64 bytes, packed with the VBMI2 compress instructions.
// With fewer than 66 bytes left the loads and stores are masked to the text.
constexpr unsigned kDecodeWindow = 64;
constexpr std::size_t kDecodeReach = 66;

TVX_OP __m512i LoadBytes(const UTF8Char* p, std::size_t n) {
  if (n >= 64) return Load(p);
  return _mm512_maskz_loadu_epi8((std::uint64_t{1} << n) - 1, p);
}
TVX_OP __m512i Set16(int x) { return _mm512_set1_epi16(static_cast<short>(x)); }
// Units of the 32 bytes in byte0 (byte1 and byte2: the same moved by one and
// two bytes); shift is their first bit in the plan.
TVX_OP void DecodeHalf(__m256i byte0, __m256i byte1, __m256i byte2, const WindowPlan& plan,
                       unsigned shift, bool whole, UTF16Char*& d) {
  const __mmask32 emit = static_cast<__mmask32>(plan.emit >> shift);
  const __m512i low6 = Set16(0x3F);
  const __m512i b0 = _mm512_cvtepu8_epi16(byte0);
  const __m512i b1 = _mm512_and_si512(_mm512_cvtepu8_epi16(byte1), low6);
  const __m512i b2 = _mm512_and_si512(_mm512_cvtepu8_epi16(byte2), low6);
  const __m512i v2 = _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(b0, Set16(0x1F)), 6), b1);
  const __m512i v3 =
      _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(b0, 12), _mm512_slli_epi16(b1, 6)), b2);
  __m512i r = _mm512_mask_mov_epi16(b0, static_cast<__mmask32>(plan.two >> shift), v2);
  r = _mm512_mask_mov_epi16(r, static_cast<__mmask32>(plan.three >> shift), v3);
  r = _mm512_mask_mov_epi16(r, static_cast<__mmask32>(plan.four >> shift),
                            _mm512_add_epi16(_mm512_srli_epi16(v3, 4), Set16(0xD7C0)));
  r = _mm512_mask_mov_epi16(r, static_cast<__mmask32>(plan.low >> shift),
                            _mm512_or_si512(_mm512_and_si512(v2, Set16(0x3FF)), Set16(0xDC00)));
  const __m512i packed = _mm512_maskz_compress_epi16(emit, r);
  const unsigned n = static_cast<unsigned>(__builtin_popcount(emit));
  if (whole) {
    _mm512_storeu_si512(d, packed);
  } else {
    _mm512_mask_storeu_epi16(d, static_cast<__mmask32>(n == 32 ? ~0u : (1u << n) - 1), packed);
  }
  d += n;
}
TVX_OP unsigned DecodeWindow(const UTF8Char* s, std::size_t avail, UTF16Char*& d) {
  const bool whole = avail >= kDecodeReach;
  const __m512i v = LoadBytes(s, avail);
  WindowClasses c;
  c.nonAscii = _mm512_movepi8_mask(v);
  if (c.nonAscii == 0 && avail >= 64) {
    WidenBlock(s, d);
    d += 64;
    return 64;
  }
  c.c0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xC0)));
  c.c2 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xC2)));
  c.e0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
  c.f0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
  c.f5 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF5)));
  c.a0 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xA0)));
  c.x90 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0x90)));
  c.isE0 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
  c.isF0 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
  c.isF4 = _mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF4)));
  WindowPlan plan;
  if (!PlanWindow<64>(c, plan)) return 0;
  if (plan.bytes > avail) {
    // Zeros past the end of the text read as ASCII; they give no units.
    plan.bytes = static_cast<unsigned>(avail);
    plan.emit &= (std::uint64_t{1} << avail) - 1;
  }
  const __m512i v1 = LoadBytes(s + 1, avail - 1);
  const __m512i v2 = avail > 2 ? LoadBytes(s + 2, avail - 2) : _mm512_setzero_si512();
  DecodeHalf(_mm512_castsi512_si256(v), _mm512_castsi512_si256(v1), _mm512_castsi512_si256(v2),
             plan, 0, whole, d);
  DecodeHalf(_mm512_extracti64x4_epi64(v, 1), _mm512_extracti64x4_epi64(v1, 1),
             _mm512_extracti64x4_epi64(v2, 1), plan, 32, whole, d);
  return plan.bytes;
}

// Up to 32 units (two halves of 16), each spread over a 32-bit lane as its
// UTF-8 bytes, and the bytes in use compressed together. A high surrogate
// followed by a low one gives the four bytes of the pair in its lane and the
// low one's lane gives none; any other surrogate gives its three bytes like
// the units around it.
TVX_OP __m512i Set32(int x) { return _mm512_set1_epi32(x); }
TVX_OP __m512i Set64(std::uint64_t x) { return _mm512_set1_epi64(static_cast<long long>(x)); }
// Each lane's bytes are cut from its code point by one multishift: the
// control gives the bit offset of every byte (per 64 bits, so the odd lane's
// offsets start at 32), then the payload bits are masked and the marks set.
// A byte whose payload mask is zero is not part of the sequence.
TVX_OP void EncodeHalf(__m256i units, __m256i next, unsigned pairs, unsigned lows, unsigned n,
                       UTF8Char*& d) {
  __m512i u = _mm512_cvtepu16_epi32(units);
  const __mmask16 ge80 = _mm512_cmpge_epu32_mask(u, Set32(0x80));
  const __mmask16 ge800 = _mm512_cmpge_epu32_mask(u, Set32(0x800));
  __m512i control = Set64(0x0000002000000000ull);
  control = _mm512_mask_mov_epi32(control, ge80, Set64(0x0000202600000006ull));
  control = _mm512_mask_mov_epi32(control, ge800, Set64(0x0020262C0000060Cull));
  __m512i payload = _mm512_mask_mov_epi32(Set32(0x7F), ge80, Set32(0x3F1F));
  payload = _mm512_mask_mov_epi32(payload, ge800, Set32(0x3F3F0F));
  __m512i marks = _mm512_maskz_mov_epi32(ge80, Set32(0x80C0));
  marks = _mm512_mask_mov_epi32(marks, ge800, Set32(0x8080E0));
  if ((pairs | lows) != 0) {
    // 0x10000 + (high - 0xD800) * 0x400 + (low - 0xDC00)
    const __m512i cp = _mm512_add_epi32(
        _mm512_slli_epi32(u, 10), _mm512_sub_epi32(_mm512_cvtepu16_epi32(next), Set32(0x35FDC00)));
    const __mmask16 p = static_cast<__mmask16>(pairs), l = static_cast<__mmask16>(lows);
    u = _mm512_mask_mov_epi32(u, p, cp);
    control = _mm512_mask_mov_epi32(control, p, Set64(0x20262C3200060C12ull));
    payload = _mm512_mask_mov_epi32(payload, p, Set32(0x3F3F3F07));
    marks = _mm512_mask_mov_epi32(marks, p, Set32(static_cast<int>(0x808080F0u)));
    payload = _mm512_mask_mov_epi32(payload, l, _mm512_setzero_si512());
    marks = _mm512_mask_mov_epi32(marks, l, _mm512_setzero_si512());
  }
  const __m512i r =
      _mm512_ternarylogic_epi32(_mm512_multishift_epi64_epi8(control, u), payload, marks, 0xEA);
  std::uint64_t keep = _mm512_test_epi8_mask(payload, payload);
  if (n < 16) keep &= (std::uint64_t{1} << (4 * n)) - 1;
  const unsigned length = static_cast<unsigned>(__builtin_popcountll(keep));
  _mm512_mask_storeu_epi8(d, (std::uint64_t{1} << length) - 1, _mm512_maskz_compress_epi8(keep, r));
  d += length;
}
TVX_OP unsigned EncodeWindow(const UTF16Char* s, std::size_t avail, UTF8Char*& d) {
  const unsigned inside = avail >= 32 ? ~0u : (1u << avail) - 1;
  const __m512i w = avail >= 32 ? Load(s) : _mm512_maskz_loadu_epi16(inside, s);
  if (avail >= 32 && _mm512_test_epi16_mask(w, Set16(0xFF80)) == 0) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm512_cvtepi16_epi8(w));
    d += 32;
    return 32;
  }
  // The unit after each one, where the text has it.
  const unsigned following = static_cast<unsigned>(avail > 32 ? ~0u : inside >> 1);
  const __m512i x = avail > 32 ? Load(s + 1) : _mm512_maskz_loadu_epi16(following, s + 1);
  const unsigned pairs =
      _mm512_cmpeq_epi16_mask(_mm512_and_si512(w, Set16(0xFC00)), Set16(0xD800)) &
      _mm512_cmpeq_epi16_mask(_mm512_and_si512(x, Set16(0xFC00)), Set16(0xDC00)) & following;
  unsigned n = avail >= 32 ? 32 : static_cast<unsigned>(avail);
  if (pairs >> 31) --n;  // a pair across the end of the window waits for the next one
  const unsigned lows = pairs << 1;
  EncodeHalf(_mm512_castsi512_si256(w), _mm512_castsi512_si256(x), pairs & 0xFFFF, lows & 0xFFFF, n,
             d);
  if (n > 16)
    EncodeHalf(_mm512_extracti64x4_epi64(w, 1), _mm512_extracti64x4_epi64(x, 1),
               (pairs >> 16) & 0x7FFF, lows >> 16, n - 16, d);
  return n;
}

#define TVX_KERNEL_WINDOWS 1

#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_KERNEL_WINDOWS
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#undef TVX_OP
#undef TVX_KERNEL_TARGET
}  // namespace avx512
#endif  // TVX_UNICODE_X86

struct Kernels {
  UTF8DecodeResult (*decode)(const UTF8Char*, std::size_t, UTF16Char*);
  std::size_t (*count)(const UTF8Char*, std::size_t);
  UTF16Measure (*measure)(const UTF16Char*, std::size_t);
  std::size_t (*encode)(const UTF16Char*, std::size_t, UTF8Char*);
};

constexpr Kernels kPortable{portable::Decode, portable::CountUnits, portable::Measure,
                            portable::Encode};
#if TVX_UNICODE_X86
constexpr Kernels kSSE2{sse2::Decode, sse2::CountUnits, sse2::Measure, sse2::Encode};
constexpr Kernels kAVX2{avx2::Decode, avx2::CountUnits, avx2::Measure, avx2::Encode};
constexpr Kernels kAVX512{avx512::Decode, avx512::CountUnits, avx512::Measure, avx512::Encode};
#endif

bool Supported(UnicodeKernel kernel) {
  switch (kernel) {
    case UnicodeKernel::kPortable:
    case UnicodeKernel::kBest:
      return true;
#if TVX_UNICODE_X86
    case UnicodeKernel::kSSE2:
      return true;
    case UnicodeKernel::kAVX2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
             __builtin_cpu_supports("popcnt");
    case UnicodeKernel::kAVX512:
      return Supported(UnicodeKernel::kAVX2) && __builtin_cpu_supports("avx512f") &&
             __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi") &&
             __builtin_cpu_supports("avx512vbmi2");
#endif
    default:
      return false;
  }
}

UnicodeKernel BestKernel() {
#if TVX_UNICODE_X86
  if (Supported(UnicodeKernel::kAVX512)) return UnicodeKernel::kAVX512;
  if (Supported(UnicodeKernel::kAVX2)) return UnicodeKernel::kAVX2;
  return UnicodeKernel::kSSE2;
#else
  return UnicodeKernel::kPortable;
#endif
}

const Kernels* KernelsFor(UnicodeKernel kernel) {
  if (kernel == UnicodeKernel::kBest || !Supported(kernel)) kernel = BestKernel();
  switch (kernel) {
#if TVX_UNICODE_X86
    case UnicodeKernel::kSSE2:
      return &kSSE2;
    case UnicodeKernel::kAVX2:
      return &kAVX2;
    case UnicodeKernel::kAVX512:
      return &kAVX512;
#endif
    default:
      return &kPortable;
  }
}

struct Active {
  std::atomic<const Kernels*> kernels{KernelsFor(UnicodeKernel::kBest)};
  std::atomic<UnicodeKernel> kind{BestKernel()};
};
Active& GetActive() {
  static Active active;
  return active;
}

}  // namespace

UTF8DecodeResult DecodeUTF8(const UTF8Char* source, std::size_t count, UTF16Char* target) {
  return GetActive().kernels.load(std::memory_order_relaxed)->decode(source, count, target);
}
std::size_t CountUTF16Units(const UTF8Char* source, std::size_t count) {
  return GetActive().kernels.load(std::memory_order_relaxed)->count(source, count);
}
UTF16Measure MeasureUTF16(const UTF16Char* source, std::size_t count) {
  return GetActive().kernels.load(std::memory_order_relaxed)->measure(source, count);
}
std::size_t EncodeUTF16(const UTF16Char* source, std::size_t count, UTF8Char* target) {
  return GetActive().kernels.load(std::memory_order_relaxed)->encode(source, count, target);
}

void ForceUnicodeKernel(UnicodeKernel kernel) {
  const UnicodeKernel kind =
      (kernel == UnicodeKernel::kBest || !Supported(kernel)) ? BestKernel() : kernel;
  GetActive().kernels.store(KernelsFor(kind), std::memory_order_relaxed);
  GetActive().kind.store(kind, std::memory_order_relaxed);
}
bool UnicodeKernelSupported(UnicodeKernel kernel) { return Supported(kernel); }
UnicodeKernel ActiveUnicodeKernel() { return GetActive().kind.load(std::memory_order_relaxed); }

}  // namespace tvxcore::utility::internal
