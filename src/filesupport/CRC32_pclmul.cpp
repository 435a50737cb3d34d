// CRC-32 by folding with the 128-bit carry-less multiply (PCLMULQDQ, with
// SSSE3 and SSE4.1). Built with -msse4.1 -mpclmul; called only on processors
// that have them.
//
// The message is loaded 16 bytes to a register, the first byte in the low
// byte, so bit i of a register stands for x^(127 - i) counted from the end of
// its 16 bytes. A register X = H x^64 + L (H its low half, L its high half)
// that lies D bits before another is added into that one as
//   H * (x^(D + 64) mod P) + L * (x^D mod P),
// a number below 2^96 that doesn't change the message modulo P. At the end one
// register stands for the whole message, and two more multiplies and four
// table look-ups reduce it to the 32-bit state.
#include "filesupport/internal/CRC32.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace tvxcore::filesupport::internal {

namespace {

// The pair of constants that folds a register forward by `bits`: the low half
// multiplies H, the high half L.
struct FoldPair {
  std::uint64_t low;
  std::uint64_t high;
};

constexpr FoldPair FoldBy(unsigned bits) {
  return {CRC32FoldConstant(bits + 63), CRC32FoldConstant(bits - 1)};
}

constexpr FoldPair kFold512 = FoldBy(512);
constexpr FoldPair kFold384 = FoldBy(384);
constexpr FoldPair kFold256 = FoldBy(256);
constexpr FoldPair kFold128 = FoldBy(128);
// For the last reduction: x^96 for the low half, then x^64.
constexpr FoldPair kReduce = {CRC32FoldConstant(95), CRC32FoldConstant(63)};

// pshufb masks: 16 bytes from offset 16 + n shift a register down by n bytes,
// from offset n up by 16 - n bytes; 0x80 clears a byte.
alignas(16) constexpr unsigned char kShiftMasks[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

inline __m128i Constants(FoldPair pair) {
  return _mm_set_epi64x(static_cast<long long>(pair.high), static_cast<long long>(pair.low));
}

inline __m128i Load(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// `x` folded forward onto `y` by the distance its constants are for.
inline __m128i Fold(__m128i x, __m128i constants, __m128i y) {
  const __m128i high = _mm_clmulepi64_si128(x, constants, 0x00);
  const __m128i low = _mm_clmulepi64_si128(x, constants, 0x11);
  return _mm_xor_si128(_mm_xor_si128(high, low), y);
}

// The state after a message that `x` stands for: the message times x^32,
// modulo P.
inline std::uint32_t Reduce(__m128i x) {
  const __m128i constants = Constants(kReduce);
  // X x^32 = H x^96 + L x^32, below 2^96 after the first multiply...
  const __m128i shiftedLow = _mm_slli_si128(_mm_srli_si128(x, 8), 4);
  const __m128i z = _mm_xor_si128(_mm_clmulepi64_si128(x, constants, 0x00), shiftedLow);
  // ...and below 2^64 after the second, which folds its top 32 bits.
  const __m128i w = _mm_xor_si128(_mm_clmulepi64_si128(z, constants, 0x10), z);
  const auto rest = static_cast<std::uint64_t>(_mm_extract_epi64(w, 1));
  // The low 32 bits of that are below P already; the high 32 bits are four
  // bytes whose remainder the tables give.
  return static_cast<std::uint32_t>(rest >> 32) ^
         CRC32AfterFourZeroBytes(static_cast<std::uint32_t>(rest));
}

// Folds the whole 16-byte blocks of `count` bytes at `rest` into `x`, then
// the last `count` % 16 bytes, and reduces. 16 bytes before `rest` are
// readable.
inline std::uint32_t Finish(__m128i x, const unsigned char* rest, std::size_t count) {
  const __m128i fold128 = Constants(kFold128);
  for (; count >= 16; rest += 16, count -= 16) x = Fold(x, fold128, Load(rest));
  if (count > 0) {
    // The message ends with X and `count` more bytes. Its last 16 bytes are
    // the top of X and those bytes; the bottom `count` bytes of X become a
    // register that lies 16 bytes before them.
    const __m128i down = Load(kShiftMasks + 16 + count);
    const __m128i up = Load(kShiftMasks + count);
    const __m128i tail = Load(rest + count - 16);
    const __m128i last = _mm_blendv_epi8(_mm_shuffle_epi8(x, down), tail, down);
    x = Fold(_mm_shuffle_epi8(x, up), fold128, last);
  }
  return Reduce(x);
}

}  // namespace

std::uint32_t UpdateCRC32PCLMUL(std::uint32_t state, const unsigned char* data, std::size_t count) {
  if (count < 32) return UpdateCRC32SliceBy8(state, data, count);
  const __m128i initial = _mm_cvtsi32_si128(static_cast<int>(state));
  if (count < 64) return Finish(_mm_xor_si128(Load(data), initial), data + 16, count - 16);

  // Four registers 64 bytes apart, each folded onto the next 64 bytes.
  __m128i x0 = _mm_xor_si128(Load(data), initial);
  __m128i x1 = Load(data + 16);
  __m128i x2 = Load(data + 32);
  __m128i x3 = Load(data + 48);
  data += 64;
  count -= 64;
  const __m128i fold512 = Constants(kFold512);
  for (; count >= 64; data += 64, count -= 64) {
    x0 = Fold(x0, fold512, Load(data));
    x1 = Fold(x1, fold512, Load(data + 16));
    x2 = Fold(x2, fold512, Load(data + 32));
    x3 = Fold(x3, fold512, Load(data + 48));
  }
  const __m128i x = _mm_xor_si128(Fold(x0, Constants(kFold384), Fold(x1, Constants(kFold256), x3)),
                                  Fold(x2, Constants(kFold128), _mm_setzero_si128()));
  return Finish(x, data, count);
}

std::uint32_t FinishCRC32PCLMUL(const unsigned char* folded, const unsigned char* rest,
                                std::size_t count) {
  return Finish(Load(folded), rest, count);
}

}  // namespace tvxcore::filesupport::internal

#else  // not x86: never chosen, defined for the dispatcher's table

namespace tvxcore::filesupport::internal {

std::uint32_t UpdateCRC32PCLMUL(std::uint32_t state, const unsigned char* data, std::size_t count) {
  return UpdateCRC32SliceBy8(state, data, count);
}

std::uint32_t FinishCRC32PCLMUL(const unsigned char*, const unsigned char*, std::size_t) {
  return 0;
}

}  // namespace tvxcore::filesupport::internal

#endif
