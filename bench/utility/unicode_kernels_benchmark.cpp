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

#include "utility/internal/UnicodeKernels.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF8Char;
using tvxcore::utility::internal::UnicodeKernel;
namespace internal = tvxcore::utility::internal;

void Append(std::uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

enum class Kind { kAscii, kLatin, kCJK, kEmoji, kMixed };
const char* KindName(Kind k) {
  switch (k) {
    case Kind::kAscii:
      return "ascii";
    case Kind::kLatin:
      return "latin";
    case Kind::kCJK:
      return "cjk";
    case Kind::kEmoji:
      return "emoji";
    default:
      return "mixed";
  }
}

// Words of letters from the kind's repertoire separated by blanks; "mixed"
// draws each word from a different script (mostly ASCII and Latin, some CJK,
// an emoji now and then), as in user-visible text of an international app.
std::uint32_t Letter(Kind k, std::mt19937& r) {
  static const std::uint32_t latin[] = {0xE9, 0xE8, 0xE0, 0xFC, 0xF6,
                                        0xE4, 0xDF, 0xE7, 0xF1, 0x107};
  switch (k) {
    case Kind::kAscii:
      return 'a' + r() % 26;
    case Kind::kLatin:
      return r() % 5 == 0 ? latin[r() % 10] : 'a' + r() % 26;
    case Kind::kCJK:
      return 0x4E00 + r() % 0x5000;
    case Kind::kEmoji:
      return 0x1F300 + r() % 0x300;
    default:
      return 'a';
  }
}
std::string MakeText(Kind kind, std::size_t bytes) {
  std::mt19937 r(20240611);
  std::string out;
  while (out.size() < bytes + 8) {
    Kind wordKind = kind;
    if (kind == Kind::kMixed) {
      const unsigned pick = r() % 20;
      wordKind = pick < 9    ? Kind::kAscii
                 : pick < 15 ? Kind::kLatin
                 : pick < 19 ? Kind::kCJK
                             : Kind::kEmoji;
    }
    const int letters = 2 + static_cast<int>(r() % 8);
    for (int i = 0; i < letters; ++i) Append(Letter(wordKind, r), out);
    if (wordKind != Kind::kCJK && wordKind != Kind::kEmoji) out += ' ';
  }
  // Cut back to a sequence boundary at or below the size.
  std::size_t n = bytes;
  while (n > 0 && (static_cast<unsigned char>(out[n]) & 0xC0) == 0x80) --n;
  return out.substr(0, n);
}

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
