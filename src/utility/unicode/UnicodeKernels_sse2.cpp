// The SSE2 kernel: sixteen bytes (sixteen units) at a time for runs of ASCII
// and for the counting loops; other sequences take the shared scalar rules.
// SSE2 is part of baseline x86-64, so every x86-64 processor runs it. Built
// with -msse2 (src/CMakeLists.txt); without SSE2 (another processor family)
// the set is empty and the dispatcher never offers it. Keep to the rule at
// the top of UnicodeKernelsLoops.h.
#include "utility/internal/UnicodeKernelsSet.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstddef>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/UnicodeKernelsLoops.h"

namespace tvxcore::utility::internal {
namespace {

TVX_ALWAYS_INLINE __m128i Load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
// One bit per unit of two vectors of eight 16-bit lanes of 0 or -1.
TVX_ALWAYS_INLINE unsigned UnitMask(__m128i a, __m128i b) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(a, b)));
}
TVX_ALWAYS_INLINE unsigned CountMask(__m128i a, __m128i b) {
  return static_cast<unsigned>(__builtin_popcount(UnitMask(a, b)));
}
// -1 in each lane that has any of `bits` set.
TVX_ALWAYS_INLINE __m128i Test(__m128i v, short bits) {
  const __m128i clear =
      _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(bits)), _mm_setzero_si128());
  return _mm_xor_si128(clear, _mm_set1_epi16(-1));
}
// -1 in each lane whose bits under `mask` equal `value`.
TVX_ALWAYS_INLINE __m128i Is(__m128i v, short mask, short value) {
  return _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(mask)), _mm_set1_epi16(value));
}

struct SSE2Blocks {
  static constexpr bool kWindows = false;
  static constexpr unsigned kBytesPerBlock = 16;
  static constexpr unsigned kUnitsPerBlock = 16;

  static TVX_ALWAYS_INLINE unsigned FirstNonAsciiByte(const UTF8Char* p) {
    const unsigned m = static_cast<unsigned>(_mm_movemask_epi8(Load(p)));
    return m ? static_cast<unsigned>(__builtin_ctz(m)) : 16;
  }
  static TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
    const __m128i v = Load(p);
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 8), _mm_unpackhi_epi8(v, zero));
  }
  static TVX_ALWAYS_INLINE unsigned FirstNonAsciiUnit(const UTF16Char* p) {
    const unsigned m = UnitMask(Test(Load(p), -0x80), Test(Load(p + 8), -0x80));
    return m ? static_cast<unsigned>(__builtin_ctz(m)) : 16;
  }
  static TVX_ALWAYS_INLINE void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(Load(p), Load(p + 8)));
  }
  static TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
    const __m128i v = Load(p);
    // Signed bytes: trailing bytes are -128..-65, four-byte and longer leads -16..-1.
    const unsigned trailing =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, _mm_set1_epi8(-64))));
    const unsigned four = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-17)), v)));
    return 16 - static_cast<unsigned>(__builtin_popcount(trailing)) +
           static_cast<unsigned>(__builtin_popcount(four));
  }
  static TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
    const __m128i zero = _mm_setzero_si128();
    return UnitMask(_mm_cmpeq_epi16(Load(p), zero), _mm_cmpeq_epi16(Load(p + 8), zero)) != 0;
  }
  static TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
    const __m128i a = Load(p), b = Load(p + 8);
    const __m128i any = _mm_and_si128(_mm_or_si128(a, b), _mm_set1_epi16(-0x80));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, _mm_setzero_si128())) == 0xFFFF) return 16;
    const short kHigh = static_cast<short>(0xD800), kLow = static_cast<short>(0xDC00);
    const short kSurrogate = static_cast<short>(0xFC00);
    const __m128i pairsA =
        _mm_and_si128(Is(a, kSurrogate, kHigh), Is(Load(p + 1), kSurrogate, kLow));
    const __m128i pairsB =
        _mm_and_si128(Is(b, kSurrogate, kHigh), Is(Load(p + 9), kSurrogate, kLow));
    return 16 + CountMask(Test(a, -0x80), Test(b, -0x80)) +
           CountMask(Test(a, -0x800), Test(b, -0x800)) - 2 * CountMask(pairsA, pairsB);
  }
};

}  // namespace

constinit const UnicodeKernelSet kSSE2Kernels = MakeKernelSet<SSE2Blocks>();

}  // namespace tvxcore::utility::internal

#else

namespace tvxcore::utility::internal {
constinit const UnicodeKernelSet kSSE2Kernels{};
}  // namespace tvxcore::utility::internal

#endif  // defined(__SSE2__)
