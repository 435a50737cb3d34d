// The AVX2 kernel: whole windows of 32 bytes of every sequence width for
// decoding, eight units at a time through shuffle tables for encoding, and
// the counting loops 32 at a time. Built with -mavx2 -mbmi -mpopcnt
// (src/CMakeLists.txt): the dispatcher runs it only on a processor with all
// three. Without them (another processor family) the set is empty. Keep to
// the rule at the top of UnicodeKernelsLoops.h: nothing in this file but
// kAVX2Kernels has external linkage.
#include "utility/internal/UnicodeKernelsSet.h"

#if defined(__AVX2__) && defined(__BMI__) && defined(__POPCNT__)

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/UnicodeKernelsLoops.h"

namespace tvxcore::utility::internal {
namespace {

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

struct AVX2Blocks {
  static constexpr bool kWindows = true;
  static constexpr unsigned kBytesPerBlock = 32;
  static constexpr unsigned kUnitsPerBlock = 32;

  static TVX_ALWAYS_INLINE __m256i Load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
  }
  static TVX_ALWAYS_INLINE void Store(void* p, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i*>(p), v);
  }
  static TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
    const __m256i v = Load(p);
    Store(d, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
    Store(d + 16, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
  }
  // One bit per unit of two 16-unit vectors of 0/-1 lanes.
  static TVX_ALWAYS_INLINE unsigned UnitMask(__m256i a, __m256i b) {
    return static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8)));
  }
  static TVX_ALWAYS_INLINE __m256i Test(__m256i v, short bits) {
    return _mm256_xor_si256(
        _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(bits)), _mm256_setzero_si256()),
        _mm256_set1_epi16(-1));
  }
  static TVX_ALWAYS_INLINE __m256i Is(__m256i v, short mask, short value) {
    return _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(mask)),
                              _mm256_set1_epi16(value));
  }
  static TVX_ALWAYS_INLINE unsigned FirstNonAsciiUnit(const UTF16Char* p) {
    const __m256i a = Load(p), b = Load(p + 16);
    if (_mm256_testz_si256(_mm256_or_si256(a, b), _mm256_set1_epi16(-0x80))) return 32;
    return static_cast<unsigned>(__builtin_ctz(UnitMask(Test(a, -0x80), Test(b, -0x80))));
  }
  static TVX_ALWAYS_INLINE void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
    Store(d, _mm256_permute4x64_epi64(_mm256_packus_epi16(Load(p), Load(p + 16)), 0xD8));
  }
  static TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
    const __m256i v = Load(p);
    const unsigned trailing =
        static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(_mm256_set1_epi8(-64), v)));
    const unsigned four = static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(-17)), v)));
    return 32 - static_cast<unsigned>(__builtin_popcount(trailing)) +
           static_cast<unsigned>(__builtin_popcount(four));
  }
  static TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i z =
        _mm256_or_si256(_mm256_cmpeq_epi16(Load(p), zero), _mm256_cmpeq_epi16(Load(p + 16), zero));
    return !_mm256_testz_si256(z, z);
  }
  static TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
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
  static constexpr unsigned kDecodeWindow = 32;
  static constexpr std::size_t kDecodeReach = 34;

  static TVX_ALWAYS_INLINE std::uint64_t Bits(__m256i v) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(v));
  }
  static TVX_ALWAYS_INLINE std::uint64_t AtLeast(__m256i v, int x) {
    return Bits(_mm256_cmpeq_epi8(_mm256_max_epu8(v, _mm256_set1_epi8(static_cast<char>(x))), v));
  }
  static TVX_ALWAYS_INLINE std::uint64_t Equal(__m256i v, int x) {
    return Bits(_mm256_cmpeq_epi8(v, _mm256_set1_epi8(static_cast<char>(x))));
  }
  // 0/-1 in each 16-bit lane for the matching bit of m.
  static TVX_ALWAYS_INLINE __m256i LaneMask(unsigned m) {
    const __m256i bits = _mm256_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096,
                                           8192, 16384, static_cast<short>(0x8000));
    return _mm256_cmpeq_epi16(_mm256_and_si256(_mm256_set1_epi16(static_cast<short>(m)), bits),
                              bits);
  }
  static TVX_ALWAYS_INLINE void PackStore(__m128i v, unsigned m, UTF16Char*& d) {
    const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kPackUnits.shuffle[m]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_shuffle_epi8(v, shuffle));
    d += __builtin_popcount(m);
  }
  // Units of the 16 bytes at p (shift: their first bit in the plan).
  static TVX_ALWAYS_INLINE void DecodeHalf(const UTF8Char* p, const WindowPlan& plan,
                                           unsigned shift, UTF16Char*& d) {
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
        const __m256i v3 = _mm256_or_si256(
            _mm256_or_si256(_mm256_slli_epi16(b0, 12), _mm256_slli_epi16(b1, 6)), b2);
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
  static TVX_ALWAYS_INLINE unsigned DecodeWindow(const UTF8Char* s, std::size_t avail,
                                                 UTF16Char*& d) {
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
  static TVX_ALWAYS_INLINE unsigned EncodeWindow(const UTF16Char* s, std::size_t avail,
                                                 UTF8Char*& d) {
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
    const __m256i middle =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(u, 6), _mm256_set1_epi32(0x3F)),
                        _mm256_set1_epi32(0x80));
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
};

}  // namespace

constinit const UnicodeKernelSet kAVX2Kernels = MakeKernelSet<AVX2Blocks>();

}  // namespace tvxcore::utility::internal

#else

namespace tvxcore::utility::internal {
constinit const UnicodeKernelSet kAVX2Kernels{};
}  // namespace tvxcore::utility::internal

#endif  // AVX2, BMI and POPCNT
