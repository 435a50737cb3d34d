// UTF8to16 and UTF16to8 beside ICU (u_strFromUTF8/u_strToUTF8, into a
// preallocated buffer and into a std::u16string/std::string) and glibc iconv,
// on five kinds of text at three sizes. Texts come from a fixed seed.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "UnicodeTexts.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace {

using namespace tvxbench;

using tvxcore::UTF16String;
using tvxcore::UTF8String;

void Tvx8to16(benchmark::State& state, const std::string& text) {
  const UTF8String in(text.begin(), text.end());
  for (auto _ : state) {
    UTF16String out = tvxcore::utility::UTF8to16(in);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
// The same with one result of the same size kept alive during the run, as in
// an application whose heap holds other strings: the allocator's size class
// then keeps its chunk instead of giving it back after every conversion.
void Tvx8to16Warm(benchmark::State& state, const std::string& text) {
  const UTF8String in(text.begin(), text.end());
  const UTF16String keeper = tvxcore::utility::UTF8to16(in);
  for (auto _ : state) {
    UTF16String out = tvxcore::utility::UTF8to16(in);
    benchmark::DoNotOptimize(out.data());
  }
  benchmark::DoNotOptimize(keeper.data());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
// The floor set by the result type alone: a zero-filled string of the
// result's size, made and dropped (allocator and fill, no conversion).
void Floor8to16(benchmark::State& state, const std::string& text) {
  const std::size_t units = tvxcore::utility::UTF8to16(UTF8String(text.begin(), text.end())).size();
  for (auto _ : state) {
    UTF16String out(units, 0);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void Floor16to8(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    UTF8String out(text.size(), 0);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void IcuBuffer8to16(benchmark::State& state, const std::string& text) {
  std::vector<UChar> out(text.size() + 1);
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &status);
    benchmark::DoNotOptimize(out.data());
    benchmark::DoNotOptimize(length);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void IcuString8to16(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    std::u16string out;
    out.resize(text.size());
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &status);
    out.resize(static_cast<std::size_t>(length));
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void Iconv8to16(benchmark::State& state, const std::string& text) {
  iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
  std::vector<char> out(text.size() * 2 + 16);
  for (auto _ : state) {
    char* in = const_cast<char*>(text.data());
    std::size_t inLeft = text.size();
    char* o = out.data();
    std::size_t outLeft = out.size();
    iconv(cd, &in, &inLeft, &o, &outLeft);
    benchmark::DoNotOptimize(out.data());
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void Tvx16to8(benchmark::State& state, const std::string& text) {
  const UTF16String in = tvxcore::utility::UTF8to16(UTF8String(text.begin(), text.end()));
  for (auto _ : state) {
    UTF8String out = tvxcore::utility::UTF16to8(in);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void Tvx16to8Warm(benchmark::State& state, const std::string& text) {
  const UTF16String in = tvxcore::utility::UTF8to16(UTF8String(text.begin(), text.end()));
  const UTF8String keeper = tvxcore::utility::UTF16to8(in);
  for (auto _ : state) {
    UTF8String out = tvxcore::utility::UTF16to8(in);
    benchmark::DoNotOptimize(out.data());
  }
  benchmark::DoNotOptimize(keeper.data());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
std::u16string Utf16Of(const std::string& text) {
  const UTF16String s = tvxcore::utility::UTF8to16(UTF8String(text.begin(), text.end()));
  return std::u16string(s.begin(), s.end());
}
void IcuBuffer16to8(benchmark::State& state, const std::string& text) {
  const std::u16string in = Utf16Of(text);
  std::vector<char> out(in.size() * 3 + 1);
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &length, in.data(),
                static_cast<int32_t>(in.size()), &status);
    benchmark::DoNotOptimize(out.data());
    benchmark::DoNotOptimize(length);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void IcuString16to8(benchmark::State& state, const std::string& text) {
  const std::u16string in = Utf16Of(text);
  for (auto _ : state) {
    // Measure first, then convert into a string of the exact size.
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(nullptr, 0, &length, in.data(), static_cast<int32_t>(in.size()), &status);
    std::string out(static_cast<std::size_t>(length), '\0');
    status = U_ZERO_ERROR;
    u_strToUTF8(out.data(), length, &length, in.data(), static_cast<int32_t>(in.size()), &status);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
void Iconv16to8(benchmark::State& state, const std::string& text) {
  const std::u16string in = Utf16Of(text);
  iconv_t cd = iconv_open("UTF-8", "UTF-16LE");
  std::vector<char> out(in.size() * 3 + 16);
  for (auto _ : state) {
    char* i = reinterpret_cast<char*>(const_cast<char16_t*>(in.data()));
    std::size_t inLeft = in.size() * 2;
    char* o = out.data();
    std::size_t outLeft = out.size();
    iconv(cd, &i, &inLeft, &o, &outLeft);
    benchmark::DoNotOptimize(out.data());
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

int Register() {
  using Fn = void (*)(benchmark::State&, const std::string&);
  const struct {
    const char* name;
    Fn fn;
  } impls[] = {
      {"UTF8to16/tvxcore", Tvx8to16},
      {"UTF8to16/tvxcore_warm", Tvx8to16Warm},
      {"UTF8to16/string_floor", Floor8to16},
      {"UTF8to16/icu_buffer", IcuBuffer8to16},
      {"UTF8to16/icu_u16string", IcuString8to16},
      {"UTF8to16/iconv", Iconv8to16},
      {"UTF16to8/tvxcore", Tvx16to8},
      {"UTF16to8/tvxcore_warm", Tvx16to8Warm},
      {"UTF16to8/string_floor", Floor16to8},
      {"UTF16to8/icu_buffer", IcuBuffer16to8},
      {"UTF16to8/icu_string", IcuString16to8},
      {"UTF16to8/iconv", Iconv16to8},
  };
  for (Kind kind : {Kind::kAscii, Kind::kLatin, Kind::kCJK, Kind::kEmoji, Kind::kMixed}) {
    for (std::size_t size : {std::size_t{16}, std::size_t{1024}, std::size_t{1} << 20}) {
      const std::string text = MakeText(kind, size);
      for (const auto& impl : impls) {
        const std::string name = std::string(impl.name) + "/" + KindName(kind) + "/" +
                                 (size == 16     ? "16B"
                                  : size == 1024 ? "1KiB"
                                                 : "1MiB");
        benchmark::RegisterBenchmark(name.c_str(), impl.fn, text);
      }
    }
  }
  return 0;
}
const int kRegistered = Register();

}  // namespace

BENCHMARK_MAIN();
