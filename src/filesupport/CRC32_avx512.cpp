// CRC-32 by folding four 128-bit lanes at once with the 512-bit carry-less
// multiply (VPCLMULQDQ with AVX-512F). Built with -mavx512f -mvpclmulqdq
// -mpclmul; called only on processors that have them and systems that save
// their registers.
//
// The folding is that of CRC32_pclmul.cpp, lane by lane: four 64-byte
// registers fold onto the 256 bytes that follow them, then onto each other,
// then the four lanes of the last register onto its top lane. What is left
// (below 64 bytes) goes to the end of the 128-bit kernel.
#include "filesupport/internal/CRC32.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace tvxcore::filesupport::internal {

namespace {

// Below this many bytes the 128-bit kernel is as fast.
constexpr std::size_t kWideMinimum = 256;

// The constants that fold every lane forward by `kBits`: in each lane the
// low half multiplies the lane's low half, the high half its high half.
template <unsigned kBits>
struct FoldConstants {
  static constexpr std::uint64_t kLow = CRC32FoldConstant(kBits + 63);
  static constexpr std::uint64_t kHigh = CRC32FoldConstant(kBits - 1);
  alignas(64) static constexpr std::uint64_t kLanes[8] = {kLow, kHigh, kLow, kHigh,
                                                          kLow, kHigh, kLow, kHigh};
};

template <unsigned kBits>
inline __m512i FoldBy() {
  return _mm512_load_si512(FoldConstants<kBits>::kLanes);
}

// Constants that fold lanes 0, 1 and 2 onto lane 3, which lies 48, 32 and 16
// bytes after them; lane 3 itself gets zeros.
alignas(64) constexpr std::uint64_t kLanesToTop[8] = {FoldConstants<384>::kLow,
                                                      FoldConstants<384>::kHigh,
                                                      FoldConstants<256>::kLow,
                                                      FoldConstants<256>::kHigh,
                                                      FoldConstants<128>::kLow,
                                                      FoldConstants<128>::kHigh,
                                                      0,
                                                      0};

inline __m512i Load(const unsigned char* p) { return _mm512_loadu_si512(p); }

// Lane `kLane` of `x`.
template <int kLane>
inline __m128i Lane(__m512i x) {
  return _mm512_maskz_extracti32x4_epi32(0xFF, x, kLane);
}

// Each lane of `x` folded forward onto the same lane of `y`.
inline __m512i Fold(__m512i x, __m512i constants, __m512i y) {
  return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, constants, 0x00),
                                   _mm512_clmulepi64_epi128(x, constants, 0x11), y, 0x96);
}

}  // namespace

std::uint32_t UpdateCRC32VPCLMUL(std::uint32_t state, const unsigned char* data,
                                 std::size_t count) {
  if (count < kWideMinimum) return UpdateCRC32PCLMUL(state, data, count);

  const __m512i initial = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(state)));
  __m512i x0 = _mm512_xor_si512(Load(data), initial);
  __m512i x1 = Load(data + 64);
  __m512i x2 = Load(data + 128);
  __m512i x3 = Load(data + 192);
  data += 256;
  count -= 256;
  const __m512i fold2048 = FoldBy<2048>();
  for (; count >= 256; data += 256, count -= 256) {
    x0 = Fold(x0, fold2048, Load(data));
    x1 = Fold(x1, fold2048, Load(data + 64));
    x2 = Fold(x2, fold2048, Load(data + 128));
    x3 = Fold(x3, fold2048, Load(data + 192));
  }
  const __m512i fold512 = FoldBy<512>();
  __m512i x = _mm512_xor_si512(Fold(x0, FoldBy<1536>(), Fold(x1, FoldBy<1024>(), x3)),
                               Fold(x2, fold512, _mm512_setzero_si512()));
  for (; count >= 64; data += 64, count -= 64) x = Fold(x, fold512, Load(data));

  const __m512i moved = Fold(x, _mm512_load_si512(kLanesToTop), _mm512_setzero_si512());
  const __m128i top = _mm_xor_si128(_mm_xor_si128(Lane<3>(x), Lane<0>(moved)),
                                    _mm_xor_si128(Lane<1>(moved), Lane<2>(moved)));
  alignas(16) unsigned char folded[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(folded), top);
  return FinishCRC32PCLMUL(folded, data, count);
}

}  // namespace tvxcore::filesupport::internal

#else  // not x86: never chosen, defined for the dispatcher's table

namespace tvxcore::filesupport::internal {

std::uint32_t UpdateCRC32VPCLMUL(std::uint32_t state, const unsigned char* data,
                                 std::size_t count) {
  return UpdateCRC32SliceBy8(state, data, count);
}

}  // namespace tvxcore::filesupport::internal

#endif
