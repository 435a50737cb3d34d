// The portable kernel: eight bytes (four units) at a time in a 64-bit word.
// Compiled with the library's baseline flags; every processor runs it.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tvxcore/base/ThreadAnnotations.h"
#include "utility/internal/UnicodeKernelsLoops.h"
#include "utility/internal/UnicodeKernelsSet.h"

namespace tvxcore::utility::internal {
namespace {

TVX_ALWAYS_INLINE std::uint64_t Load64(const void* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

struct PortableBlocks {
  static constexpr bool kWindows = false;
  static constexpr unsigned kBytesPerBlock = 8;
  static constexpr unsigned kUnitsPerBlock = 4;

  static TVX_ALWAYS_INLINE unsigned FirstNonAsciiByte(const UTF8Char* p) {
    const std::uint64_t m = Load64(p) & 0x8080808080808080ull;
    return m ? static_cast<unsigned>(__builtin_ctzll(m)) / 8 : 8;
  }
  static TVX_ALWAYS_INLINE void WidenBlock(const UTF8Char* p, UTF16Char* d) {
    for (unsigned i = 0; i < kBytesPerBlock; ++i) d[i] = p[i];
  }
  static TVX_ALWAYS_INLINE unsigned FirstNonAsciiUnit(const UTF16Char* p) {
    const std::uint64_t m = Load64(p) & 0xFF80FF80FF80FF80ull;
    return m ? static_cast<unsigned>(__builtin_ctzll(m)) / 16 : 4;
  }
  static TVX_ALWAYS_INLINE void NarrowBlock(const UTF16Char* p, UTF8Char* d) {
    for (unsigned i = 0; i < kUnitsPerBlock; ++i) d[i] = static_cast<UTF8Char>(p[i]);
  }
  static TVX_ALWAYS_INLINE unsigned BlockUnitBound(const UTF8Char* p) {
    const std::uint64_t v = Load64(p);
    const std::uint64_t high = 0x8080808080808080ull;
    const std::uint64_t trailing = v & ~(v << 1) & high;
    const std::uint64_t four = v & (v << 1) & (v << 2) & (v << 3) & high;
    return 8 - static_cast<unsigned>(__builtin_popcountll(trailing)) +
           static_cast<unsigned>(__builtin_popcountll(four));
  }
  static TVX_ALWAYS_INLINE bool BlockHasZero(const UTF16Char* p) {
    const std::uint64_t v = Load64(p);
    return ((v - 0x0001000100010001ull) & ~v & 0x8000800080008000ull) != 0;
  }
  static TVX_ALWAYS_INLINE std::size_t BlockBytes(const UTF16Char* p) {
    if ((Load64(p) & 0xFF80FF80FF80FF80ull) == 0) return kUnitsPerBlock;
    std::size_t bytes = 0;
    for (unsigned i = 0; i < kUnitsPerBlock; ++i) bytes += UnitBytes(p, i, kUnitsPerBlock + 1);
    return bytes;
  }
};

}  // namespace

constinit const UnicodeKernelSet kPortableKernels = MakeKernelSet<PortableBlocks>();

}  // namespace tvxcore::utility::internal
