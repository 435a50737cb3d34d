// The choice between the kernels of the bulk UTF-8/UTF-16 loops: the best set
// the processor can run, found once, and the entry points of
// utility/internal/UnicodeKernels.h that call through it. Each kernel lives in
// its own file, UnicodeKernels_<isa>.cpp beside this one, compiled with its
// own -m flags; this file is compiled for the baseline processor and is the
// only way into a kernel file's code.
//
// To add an instruction set:
//  1. Write UnicodeKernels_<isa>.cpp: a class of block operations for the
//     loops of utility/internal/UnicodeKernelsLoops.h (keep to the linkage
//     rule at its top) and the definition of k<ISA>Kernels, guarded by the
//     compiler's macros for the instruction set, with an empty set otherwise.
//  2. Declare k<ISA>Kernels in utility/internal/UnicodeKernelsSet.h and add
//     the kernel to UnicodeKernel (utility/internal/UnicodeKernels.h).
//  3. Give the file its -m flags in the block at the end of src/CMakeLists.txt
//     (the symbol check there covers every file with a suffix it lists).
//  4. Add a row to kChoices below, best first, with the features the
//     processor must have: all of those the file's flags turn on.
//  5. Add the kernel to the parameters of unicode_kernels_test.cpp and of
//     unicode_kernels_benchmark.cpp.
#include <atomic>
#include <cstddef>
#include <iterator>

#include "utility/internal/UnicodeKernels.h"
#include "utility/internal/UnicodeKernelsSet.h"

namespace tvxcore::utility::internal {
namespace {

// Features the kernels need, read once. __builtin_cpu_supports also checks
// that the system saves the AVX and AVX-512 registers (XCR0), so a feature
// reported here is one a program can use.
struct Processor {
  bool sse2 = false;
  bool avx2 = false;    // with BMI and POPCNT
  bool avx512 = false;  // F, BW, VBMI and VBMI2, with the AVX2 ones
};

Processor Detect() {
  Processor p;
#if defined(__x86_64__) || defined(__i386__)
  // Also runs when the library is used from a constructor that comes before
  // the compiler's own initialisation of the feature bits.
  __builtin_cpu_init();
  p.sse2 = __builtin_cpu_supports("sse2");
  p.avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("popcnt");
  p.avx512 = p.avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
#endif
  return p;
}

const Processor& ThisProcessor() {
  static const Processor processor = Detect();
  return processor;
}

struct Choice {
  UnicodeKernel kind;
  const UnicodeKernelSet* set;
  bool Processor::*needs;  // null: every processor
};

// Best first.
const Choice kChoices[] = {
    {UnicodeKernel::kAVX512, &kAVX512Kernels, &Processor::avx512},
    {UnicodeKernel::kAVX2, &kAVX2Kernels, &Processor::avx2},
    {UnicodeKernel::kSSE2, &kSSE2Kernels, &Processor::sse2},
    {UnicodeKernel::kPortable, &kPortableKernels, nullptr},
};

bool Compiled(const Choice& c) { return c.set->decode != nullptr; }
bool Runs(const Choice& c) {
  return Compiled(c) && (c.needs == nullptr || ThisProcessor().*c.needs);
}

const Choice* Find(UnicodeKernel kind) {
  for (const Choice& c : kChoices)
    if (c.kind == kind) return &c;
  return nullptr;
}

const Choice& Best() {
  for (const Choice& c : kChoices)
    if (Runs(c)) return c;
  return kChoices[std::size(kChoices) - 1];
}

// The set in use; null until the first conversion or ForceUnicodeKernel.
// Threads that meet it null at the same time choose the same set.
constinit std::atomic<const UnicodeKernelSet*> gActive{nullptr};

const UnicodeKernelSet& Active() {
  const UnicodeKernelSet* set = gActive.load(std::memory_order_relaxed);
  if (set == nullptr) [[unlikely]] {
    set = Best().set;
    gActive.store(set, std::memory_order_relaxed);
  }
  return *set;
}

}  // namespace

UTF8DecodeResult DecodeUTF8(const UTF8Char* source, std::size_t count, UTF16Char* target) {
  return Active().decode(source, count, target);
}
std::size_t CountUTF16Units(const UTF8Char* source, std::size_t count) {
  return Active().count(source, count);
}
UTF16Measure MeasureUTF16(const UTF16Char* source, std::size_t count) {
  return Active().measure(source, count);
}
std::size_t EncodeUTF16(const UTF16Char* source, std::size_t count, UTF8Char* target) {
  return Active().encode(source, count, target);
}

void ForceUnicodeKernel(UnicodeKernel kernel) {
  const Choice* c = Find(kernel);
  gActive.store(c != nullptr && Runs(*c) ? c->set : Best().set, std::memory_order_relaxed);
}
bool UnicodeKernelCompiled(UnicodeKernel kernel) {
  const Choice* c = Find(kernel);
  return c != nullptr && Compiled(*c);
}
bool UnicodeKernelSupported(UnicodeKernel kernel) {
  if (kernel == UnicodeKernel::kBest) return true;
  const Choice* c = Find(kernel);
  return c != nullptr && Runs(*c);
}
UnicodeKernel ActiveUnicodeKernel() {
  const UnicodeKernelSet* set = &Active();
  for (const Choice& c : kChoices)
    if (c.set == set) return c.kind;
  return UnicodeKernel::kPortable;  // not reached: the active set is one of kChoices
}

}  // namespace tvxcore::utility::internal
