// The ASCII fast path of WidenNative, a block of sixteen bytes at a time with
// SSE2. SSE2 is part of baseline x86-64, so every x86-64 processor runs this
// file and there is nothing to choose at run time. It is compiled with -msse2
// (src/CMakeLists.txt); on other processor families the fast path finds
// nothing and WidenNative's byte loop takes every byte.
#include "filesupport/internal/PathCodec.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tvxcore::filesupport::internal {

#if defined(__SSE2__)

static_assert(kAsciiBlock == sizeof(__m128i));

std::size_t WidenAsciiPrefix(const char* bytes, std::size_t n, UTF16Char* out) {
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  while (n - i >= kAsciiBlock) {
    const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
    // The whole block is widened; the units after its first non-ASCII byte
    // are overwritten by the caller.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(chunk, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(chunk, zero));
    const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(chunk));
    if (high != 0) return i + static_cast<unsigned>(__builtin_ctz(high));
    i += kAsciiBlock;
  }
  return i;
}

#else

std::size_t WidenAsciiPrefix(const char*, std::size_t, UTF16Char*) { return 0; }

#endif  // defined(__SSE2__)

}  // namespace tvxcore::filesupport::internal
