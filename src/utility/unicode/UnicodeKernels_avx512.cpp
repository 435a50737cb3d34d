// The AVX-512 kernel (F, BW, VBMI and VBMI2): whole windows of 64 bytes of
// every sequence width, packed with the compress instructions, and encoding
// 32 units at a time through one multishift per lane. Built with the -m flags
// of those extensions, AVX2, BMI and POPCNT (src/CMakeLists.txt): the
// dispatcher runs it only on a processor with all of them. Without them
// (another processor family) the set is empty. Keep to the rule at the top of
// UnicodeKernelsLoops.h: nothing in this file but kAVX512Kernels has
// external linkage.
#include "utility/internal/UnicodeKernelsSet.h"

#if defined(__AVX512F__) && defined(__AVX512BW__) && defined(__AVX512VBMI__) && \
    defined(__AVX512VBMI2__) && defined(__AVX2__) && defined(__BMI__) && defined(__POPCNT__)

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/UnicodeKernelsLoops.h"

// GCC 12's AVX-512 header fills the unused source of its shift, widening and
// extraction intrinsics from a self-initialised variable, which its own
// -Wmaybe-uninitialized then reports once they are inlined here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace tvxcore::utility::internal {
namespace {

struct AVX512Blocks {
  static constexpr bool kWindows = true;

  static constexpr unsigned kBytesPerBlock = 64;
  static constexpr unsigned kUnitsPerBlock = 64;

  static TVX_ALWAYS_INLINE __m512i Load(const void* p) { return _mm512_loadu_si512(p); }
  static TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
    const __m256i* half = reinterpret_cast<const __m256i*>(p);
    _mm512_storeu_si512(d, _mm512_cvtepu8_epi16(_mm256_loadu_si256(half)));
    _mm512_storeu_si512(d + 32, _mm512_cvtepu8_epi16(_mm256_loadu_si256(half + 1)));
  }
  // Masks of 32 units each. They are kept 32 bits wide: GCC 12 may spill a
  // mask register with a 32-bit store and reload it with a 64-bit load, so a
  // mask is never widened to 64 bits.
  static TVX_ALWAYS_INLINE unsigned Test(const UTF16Char* p, short bits) {
    return _mm512_test_epi16_mask(Load(p), _mm512_set1_epi16(bits));
  }
  static TVX_ALWAYS_INLINE unsigned Is(const UTF16Char* p, short mask, short value) {
    return _mm512_cmpeq_epi16_mask(_mm512_and_si512(Load(p), _mm512_set1_epi16(mask)),
                                   _mm512_set1_epi16(value));
  }
  static TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
    const __m512i v = Load(p);
    const std::uint64_t trailing = _mm512_cmplt_epi8_mask(v, _mm512_set1_epi8(-64));
    const std::uint64_t four = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(-16));
    return 64 - static_cast<unsigned>(__builtin_popcountll(trailing)) +
           static_cast<unsigned>(__builtin_popcountll(four));
  }
  static TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
    const __m512i zero = _mm512_setzero_si512();
    return (_mm512_cmpeq_epi16_mask(Load(p), zero) | _mm512_cmpeq_epi16_mask(Load(p + 32), zero)) !=
           0;
  }
  // UTF-8 bytes of 32 units, counting a pair as 4 at its high unit (p[32] is read).
  static TVX_ALWAYS_INLINE unsigned HalfBytes(const UTF16Char* p) {
    const unsigned nonAscii = Test(p, -0x80);
    if (nonAscii == 0) return 32;
    const short kHigh = static_cast<short>(0xD800), kLow = static_cast<short>(0xDC00);
    const short kSurrogate = static_cast<short>(0xFC00);
    const unsigned pairs = Is(p, kSurrogate, kHigh) & Is(p + 1, kSurrogate, kLow);
    return 32 + static_cast<unsigned>(__builtin_popcount(nonAscii)) +
           static_cast<unsigned>(__builtin_popcount(Test(p, -0x800))) -
           2 * static_cast<unsigned>(__builtin_popcount(pairs));
  }
  static TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
    return HalfBytes(p) + HalfBytes(p + 32);
  }

  // Whole windows of 64 bytes, packed with the VBMI2 compress instructions.
  // With fewer than 66 bytes left the loads and stores are masked to the text.
  static constexpr unsigned kDecodeWindow = 64;
  static constexpr std::size_t kDecodeReach = 66;

  static TVX_ALWAYS_INLINE __m512i LoadBytes(const UTF8Char* p, std::size_t n) {
    if (n >= 64) return Load(p);
    return _mm512_maskz_loadu_epi8((std::uint64_t{1} << n) - 1, p);
  }
  static TVX_ALWAYS_INLINE __m512i Set16(int x) { return _mm512_set1_epi16(static_cast<short>(x)); }
  // Units of the 32 bytes in byte0 (byte1 and byte2: the same moved by one and
  // two bytes); shift is their first bit in the plan.
  static TVX_ALWAYS_INLINE void DecodeHalf(__m256i byte0, __m256i byte1, __m256i byte2,
                                           const WindowPlan& plan, unsigned shift, bool whole,
                                           UTF16Char*& d) {
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
  static TVX_ALWAYS_INLINE unsigned DecodeWindow(const UTF8Char* s, std::size_t avail,
                                                 UTF16Char*& d) {
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
  static TVX_ALWAYS_INLINE __m512i Set32(int x) { return _mm512_set1_epi32(x); }
  static TVX_ALWAYS_INLINE __m512i Set64(std::uint64_t x) {
    return _mm512_set1_epi64(static_cast<long long>(x));
  }
  // Each lane's bytes are cut from its code point by one multishift: the
  // control gives the bit offset of every byte (per 64 bits, so the odd lane's
  // offsets start at 32), then the payload bits are masked and the marks set.
  // A byte whose payload mask is zero is not part of the sequence.
  static TVX_ALWAYS_INLINE void EncodeHalf(__m256i units, __m256i next, unsigned pairs,
                                           unsigned lows, unsigned n, UTF8Char*& d) {
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
      const __m512i cp =
          _mm512_add_epi32(_mm512_slli_epi32(u, 10),
                           _mm512_sub_epi32(_mm512_cvtepu16_epi32(next), Set32(0x35FDC00)));
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
    _mm512_mask_storeu_epi8(d, (std::uint64_t{1} << length) - 1,
                            _mm512_maskz_compress_epi8(keep, r));
    d += length;
  }
  static TVX_ALWAYS_INLINE unsigned EncodeWindow(const UTF16Char* s, std::size_t avail,
                                                 UTF8Char*& d) {
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
    EncodeHalf(_mm512_castsi512_si256(w), _mm512_castsi512_si256(x), pairs & 0xFFFF, lows & 0xFFFF,
               n, d);
    if (n > 16)
      EncodeHalf(_mm512_extracti64x4_epi64(w, 1), _mm512_extracti64x4_epi64(x, 1),
                 (pairs >> 16) & 0x7FFF, lows >> 16, n - 16, d);
    return n;
  }
};

}  // namespace

constinit const UnicodeKernelSet kAVX512Kernels = MakeKernelSet<AVX512Blocks>();

}  // namespace tvxcore::utility::internal

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#else

namespace tvxcore::utility::internal {
constinit const UnicodeKernelSet kAVX512Kernels{};
}  // namespace tvxcore::utility::internal

#endif  // AVX-512 F, BW, VBMI, VBMI2, AVX2, BMI and POPCNT
