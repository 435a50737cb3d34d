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
TVX_OP unsigned FirstNonAsciiByte(const UTF8Char* p) {
  const unsigned m = static_cast<unsigned>(_mm256_movemask_epi8(Load(p)));
  return m ? static_cast<unsigned>(__builtin_ctz(m)) : 32;
}
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

#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_OP
#undef TVX_KERNEL_TARGET
}  // namespace avx2

// ---------------------------------------------------------------------------
// AVX-512 (F and BW), chosen at run time.
namespace avx512 {
#define TVX_KERNEL_TARGET __attribute__((target("avx512f,avx512bw,avx2,bmi,popcnt")))
#define TVX_OP TVX_KERNEL_TARGET TVX_ALWAYS_INLINE

constexpr unsigned kBytesPerBlock = 64;
constexpr unsigned kUnitsPerBlock = 64;

TVX_OP __m512i Load(const void* p) { return _mm512_loadu_si512(p); }
TVX_OP unsigned FirstNonAsciiByte(const UTF8Char* p) {
  const std::uint64_t m = _mm512_movepi8_mask(Load(p));
  return m ? static_cast<unsigned>(__builtin_ctzll(m)) : 64;
}
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
TVX_OP unsigned FirstNonAsciiUnit(const UTF16Char* p) {
  const unsigned low = Test(p, -0x80);
  if (low != 0) return static_cast<unsigned>(__builtin_ctz(low));
  const unsigned high = Test(p + 32, -0x80);
  return high != 0 ? 32 + static_cast<unsigned>(__builtin_ctz(high)) : 64;
}
TVX_OP void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                      _mm512_maskz_cvtepi16_epi8(~__mmask32{0}, Load(p)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32),
                      _mm512_maskz_cvtepi16_epi8(~__mmask32{0}, Load(p + 32)));
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

#include "utility/internal/UnicodeKernelsLoops.inc"
#undef TVX_OP
#undef TVX_KERNEL_TARGET
}  // namespace avx512
#endif  // TVX_UNICODE_X86

struct Kernels {
  UTF8DecodeResult (*decode)(const UTF8Char*, std::size_t, UTF16Char*);
  UTF16Measure (*measure)(const UTF16Char*, std::size_t);
  std::size_t (*encode)(const UTF16Char*, std::size_t, UTF8Char*);
};

constexpr Kernels kPortable{portable::Decode, portable::Measure, portable::Encode};
#if TVX_UNICODE_X86
constexpr Kernels kSSE2{sse2::Decode, sse2::Measure, sse2::Encode};
constexpr Kernels kAVX2{avx2::Decode, avx2::Measure, avx2::Encode};
constexpr Kernels kAVX512{avx512::Decode, avx512::Measure, avx512::Encode};
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
             __builtin_cpu_supports("avx512bw");
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
