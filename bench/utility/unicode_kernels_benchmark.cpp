// The bulk conversion loops alone, per kernel (portable, SSE2, AVX2,
// AVX-512), into preallocated buffers beside ICU into a buffer: the speed of
// the conversion itself, without the result string and its allocation. The
// same texts as unicode_benchmark, 64 KiB of each kind.
#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "UnicodeTexts.h"
#include "utility/internal/UnicodeKernels.h"

namespace {

using namespace tvxbench;

using tvxcore::UTF16Char;
using tvxcore::UTF8Char;
using tvxcore::utility::internal::UnicodeKernel;
namespace internal = tvxcore::utility::internal;

const char* KernelName(UnicodeKernel k) {
  switch (k) {
    case UnicodeKernel::kPortable:
      return "portable";
    case UnicodeKernel::kSSE2:
      return "sse2";
    case UnicodeKernel::kAVX2:
      return "avx2";
    default:
      return "avx512";
  }
}

void Decode(benchmark::State& state, UnicodeKernel kernel, const std::string& text) {
  internal::ForceUnicodeKernel(kernel);
  std::vector<UTF16Char> out(text.size());
  const auto* in = reinterpret_cast<const UTF8Char*>(text.data());
  for (auto _ : state) {
    const auto r = internal::DecodeUTF8(in, text.size(), out.data());
    benchmark::DoNotOptimize(r);
    benchmark::DoNotOptimize(out.data());
  }
  internal::ForceUnicodeKernel(UnicodeKernel::kBest);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void Encode(benchmark::State& state, UnicodeKernel kernel, const std::string& text) {
  internal::ForceUnicodeKernel(kernel);
  std::vector<UTF16Char> units(text.size());
  const std::size_t n = internal::DecodeUTF8(reinterpret_cast<const UTF8Char*>(text.data()),
                                             text.size(), units.data())
                            .written;
  std::vector<UTF8Char> out(text.size());
  for (auto _ : state) {
    const auto m = internal::MeasureUTF16(units.data(), n);
    benchmark::DoNotOptimize(internal::EncodeUTF16(units.data(), m.limit, out.data()));
    benchmark::DoNotOptimize(out.data());
  }
  internal::ForceUnicodeKernel(UnicodeKernel::kBest);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void IcuDecode(benchmark::State& state, const std::string& text) {
  std::vector<UChar> out(text.size() + 1);
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &status);
    benchmark::DoNotOptimize(length);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void IcuEncode(benchmark::State& state, const std::string& text) {
  std::vector<UChar> in(text.size() + 1);
  int32_t units = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(in.data(), static_cast<int32_t>(in.size()), &units, text.data(),
                static_cast<int32_t>(text.size()), &status);
  std::vector<char> out(text.size() + 1);
  for (auto _ : state) {
    status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &length, in.data(), units, &status);
    benchmark::DoNotOptimize(length);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

int Register() {
  for (Kind kind : {Kind::kAscii, Kind::kLatin, Kind::kCJK, Kind::kEmoji, Kind::kMixed}) {
    const std::string text = MakeText(kind, 64 * 1024);
    const std::string suffix = std::string("/") + KindName(kind);
    for (auto kernel : {UnicodeKernel::kPortable, UnicodeKernel::kSSE2, UnicodeKernel::kAVX2,
                        UnicodeKernel::kAVX512}) {
      if (!internal::UnicodeKernelSupported(kernel)) continue;
      benchmark::RegisterBenchmark(("decode/" + std::string(KernelName(kernel)) + suffix).c_str(),
                                   Decode, kernel, text);
      benchmark::RegisterBenchmark(("encode/" + std::string(KernelName(kernel)) + suffix).c_str(),
                                   Encode, kernel, text);
    }
    benchmark::RegisterBenchmark(("decode/icu" + suffix).c_str(), IcuDecode, text);
    benchmark::RegisterBenchmark(("encode/icu" + suffix).c_str(), IcuEncode, text);
  }
  return 0;
}
const int kRegistered = Register();

}  // namespace

BENCHMARK_MAIN();
