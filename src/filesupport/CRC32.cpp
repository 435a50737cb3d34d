// The portable CRC-32 kernels and the choice among all kernels, made once from
// what the processor reports through cpuid.
#include "filesupport/internal/CRC32.h"

#if defined(__x86_64__)
#include <cpuid.h>
#define TVX_CRC32_X86 1
#endif

namespace tvxcore::filesupport::internal {

constinit const CRC32SliceTables kCRC32SliceTables = MakeCRC32SliceTables();

namespace {

// Four bytes as a little-endian number, on any host.
inline std::uint32_t LoadLittle32(const unsigned char* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 |
         std::uint32_t{p[3]} << 24;
}

struct ProcessorFeatures {
  bool pclmul = false;   // PCLMULQDQ, SSSE3 and SSE4.1
  bool vpclmul = false;  // VPCLMULQDQ and AVX-512F, with the system saving ZMM state
};

ProcessorFeatures DetectFeatures() {
  ProcessorFeatures features;
#ifdef TVX_CRC32_X86
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return features;
  const bool ssse3 = (ecx & (1u << 9)) != 0;
  const bool sse41 = (ecx & (1u << 19)) != 0;
  const bool pclmul = (ecx & (1u << 1)) != 0;
  const bool osxsave = (ecx & (1u << 27)) != 0;
  features.pclmul = ssse3 && sse41 && pclmul;
  if (!features.pclmul || !osxsave) return features;
  // The system must save the SSE, AVX and all three AVX-512 parts of the
  // register state (XCR0 bits 1, 2, 5, 6, 7).
  unsigned xcr0Low = 0, xcr0High = 0;
  __asm__ volatile("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0));
  if ((xcr0Low & 0xE6u) != 0xE6u) return features;
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return features;
  const bool avx512f = (ebx & (1u << 16)) != 0;
  const bool vpclmulqdq = (ecx & (1u << 10)) != 0;
  features.vpclmul = avx512f && vpclmulqdq;
#endif
  return features;
}

const ProcessorFeatures& Features() {
  static const ProcessorFeatures features = DetectFeatures();
  return features;
}

using Kernel = std::uint32_t (*)(std::uint32_t, const unsigned char*, std::size_t);

Kernel KernelFunction(CRC32Kernel kernel) {
  switch (kernel) {
    case CRC32Kernel::kTable:
      return UpdateCRC32Table;
    case CRC32Kernel::kSliceBy8:
      return UpdateCRC32SliceBy8;
    case CRC32Kernel::kPCLMUL:
      return UpdateCRC32PCLMUL;
    case CRC32Kernel::kVPCLMUL:
      return UpdateCRC32VPCLMUL;
  }
  return UpdateCRC32Table;
}

}  // namespace

std::uint32_t UpdateCRC32Table(std::uint32_t state, const unsigned char* data, std::size_t count) {
  const CRC32Table& table = kCRC32SliceTables[0];
  for (std::size_t i = 0; i < count; ++i) state = table[(state ^ data[i]) & 0xFF] ^ (state >> 8);
  return state;
}

std::uint32_t CRC32AfterFourZeroBytes(std::uint32_t state) {
  const CRC32SliceTables& t = kCRC32SliceTables;
  return t[3][state & 0xFF] ^ t[2][(state >> 8) & 0xFF] ^ t[1][(state >> 16) & 0xFF] ^
         t[0][state >> 24];
}

std::uint32_t UpdateCRC32SliceBy8(std::uint32_t state, const unsigned char* data,
                                  std::size_t count) {
  const CRC32SliceTables& t = kCRC32SliceTables;
  for (; count >= 8; data += 8, count -= 8) {
    // The state is folded into the first four bytes; each byte then looks up
    // its contribution with as many bytes after it as the table's index.
    const std::uint32_t low = LoadLittle32(data) ^ state;
    const std::uint32_t high = LoadLittle32(data + 4);
    state = t[7][low & 0xFF] ^ t[6][(low >> 8) & 0xFF] ^ t[5][(low >> 16) & 0xFF] ^
            t[4][low >> 24] ^ t[3][high & 0xFF] ^ t[2][(high >> 8) & 0xFF] ^
            t[1][(high >> 16) & 0xFF] ^ t[0][high >> 24];
  }
  return UpdateCRC32Table(state, data, count);
}

bool CRC32KernelSupported(CRC32Kernel kernel) {
  switch (kernel) {
    case CRC32Kernel::kTable:
    case CRC32Kernel::kSliceBy8:
      return true;
    case CRC32Kernel::kPCLMUL:
      return Features().pclmul;
    case CRC32Kernel::kVPCLMUL:
      return Features().vpclmul;
  }
  return false;
}

CRC32Kernel BestCRC32Kernel() {
  static const CRC32Kernel best =
      CRC32KernelSupported(CRC32Kernel::kVPCLMUL)  ? CRC32Kernel::kVPCLMUL
      : CRC32KernelSupported(CRC32Kernel::kPCLMUL) ? CRC32Kernel::kPCLMUL
                                                   : CRC32Kernel::kSliceBy8;
  return best;
}

const char* CRC32KernelName(CRC32Kernel kernel) {
  switch (kernel) {
    case CRC32Kernel::kTable:
      return "table";
    case CRC32Kernel::kSliceBy8:
      return "slice-by-8";
    case CRC32Kernel::kPCLMUL:
      return "PCLMULQDQ";
    case CRC32Kernel::kVPCLMUL:
      return "VPCLMULQDQ";
  }
  return "?";
}

std::uint32_t UpdateCRC32(std::uint32_t state, const unsigned char* data, std::size_t count) {
  static const Kernel best = KernelFunction(BestCRC32Kernel());
  return best(state, data, count);
}

std::uint32_t UpdateCRC32With(CRC32Kernel kernel, std::uint32_t state, const unsigned char* data,
                              std::size_t count) {
  return KernelFunction(kernel)(state, data, count);
}

}  // namespace tvxcore::filesupport::internal
