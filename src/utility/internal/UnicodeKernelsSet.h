// The four bulk loops of one instruction set, as the dispatcher
// (utility/unicode/UnicodeKernels.cpp) sees them. Each kernel file defines its
// set as constant data: nothing of a kernel file runs until the dispatcher has
// checked that the processor has its instructions.
#pragma once

#include <cstddef>

#include "utility/internal/UnicodeKernels.h"

namespace tvxcore::utility::internal {

// The contracts are those of DecodeUTF8, CountUTF16Units, MeasureUTF16 and
// EncodeUTF16. A set whose instruction set this build does not target (a
// vector set on another processor family) has null members.
struct UnicodeKernelSet {
  UTF8DecodeResult (*decode)(const UTF8Char* source, std::size_t count, UTF16Char* target);
  std::size_t (*count)(const UTF8Char* source, std::size_t count);
  UTF16Measure (*measure)(const UTF16Char* source, std::size_t count);
  std::size_t (*encode)(const UTF16Char* source, std::size_t count, UTF8Char* target);
};

extern const UnicodeKernelSet kPortableKernels;  // UnicodeKernels_portable.cpp
extern const UnicodeKernelSet kSSE2Kernels;      // UnicodeKernels_sse2.cpp
extern const UnicodeKernelSet kAVX2Kernels;      // UnicodeKernels_avx2.cpp
extern const UnicodeKernelSet kAVX512Kernels;    // UnicodeKernels_avx512.cpp

}  // namespace tvxcore::utility::internal
