// Case mapping of UTF-16 text: tvxcore's FoldCase and UpperCase beside ICU's
// u_strFoldCase and u_strToUpper, on four kinds of text at three sizes.
// tvxcore's copying forms return a new string (the allocation is part of the
// figure); its in-place forms and ICU write into a buffer made once outside
// the loop.

#include <benchmark/benchmark.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <random>
#include <string>
#include <vector>

#include "tvxcore/utility/CaseMapping.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;

// Letters of each kind of text, drawn at random with a fixed seed; words of
// 2 to 9 letters are separated by a blank or punctuation.
std::vector<UTF16Char> Range(UTF16Char inFirst, UTF16Char inLast) {
  std::vector<UTF16Char> out;
  for (unsigned c = inFirst; c <= inLast; ++c) out.push_back(static_cast<UTF16Char>(c));
  return out;
}

std::vector<UTF16Char> Concat(std::initializer_list<std::vector<UTF16Char>> inParts) {
  std::vector<UTF16Char> out;
  for (const auto& part : inParts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

struct TextKind {
  const char* name;
  std::vector<UTF16Char> letters;
  int foreignPercent;  // share of letters drawn from `letters` rather than ASCII
};

UTF16String MakeText(const TextKind& inKind, std::size_t inBytes, unsigned inSeed) {
  static const std::vector<UTF16Char> ascii = Concat({Range(u'a', u'z'), Range(u'A', u'Z')});
  static const UTF16Char separators[] = {u' ', u' ', u' ', u',', u'.', u'\''};
  std::mt19937 random(inSeed);
  const std::size_t units = inBytes / sizeof(UTF16Char);
  UTF16String text;
  while (text.size() < units) {
    const int word = 2 + static_cast<int>(random() % 8);
    for (int i = 0; i < word; ++i) {
      const bool foreign = static_cast<int>(random() % 100) < inKind.foreignPercent;
      const auto& set = foreign ? inKind.letters : ascii;
      const UTF16Char c = set[random() % set.size()];
      if (c >= 0xD800 && c < 0xDC00) {  // a surrogate pair for a supplementary letter
        text.push_back(c);
        text.push_back(static_cast<UTF16Char>(0xDC00 + random() % 0x400));
      } else {
        text.push_back(c);
      }
    }
    text.push_back(separators[random() % std::size(separators)]);
  }
  text.resize(units);
  if (!text.empty() && text.back() >= 0xD800 && text.back() < 0xDC00) text.back() = u' ';
  return text;
}

const std::vector<TextKind>& Kinds() {
  static const std::vector<TextKind> kinds = {
      {"ascii", {}, 0},
      // French, German and Central European letters among mostly ASCII ones.
      {"latin", Concat({Range(0x00C0, 0x00FF), Range(0x0100, 0x017F)}), 15},
      {"greek_cyrillic",
       Concat({Range(0x0391, 0x03A9), Range(0x03B1, 0x03C9), Range(0x0410, 0x044F)}), 100},
      // Everything at once: Latin, Greek, Cyrillic, CJK, an emoji (a
      // surrogate pair) and letters whose upper form is longer (sharp s,
      // ligatures).
      {"mixed",
       Concat({Range(0x00C0, 0x00FF),
               Range(0x0391, 0x03A9),
               Range(0x0430, 0x044F),
               Range(0x4E00, 0x4E3F),
               {0xD83D, 0xD83D, 0x00DF, 0xFB01, 0xFB02}}),
       50},
  };
  return kinds;
}

const std::size_t kSizes[] = {16, 1024, 64 * 1024};

void TvxUpper(benchmark::State& state, const UTF16String& text) {
  for (auto _ : state) {
    UTF16String result = tvxcore::utility::UpperCase(text);
    benchmark::DoNotOptimize(result.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size() * 2);
}

void TvxFold(benchmark::State& state, const UTF16String& text) {
  for (auto _ : state) {
    UTF16String result = tvxcore::utility::FoldCase(text);
    benchmark::DoNotOptimize(result.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size() * 2);
}

// The in-place form on a string whose buffer is reused, which, like ICU
// below, allocates nothing; the copy into it is part of the figure.
template <void (*Map)(UTF16String&)>
void TvxInPlace(benchmark::State& state, const UTF16String& text) {
  UTF16String buffer;
  buffer.reserve(text.size() * 3 + 16);
  for (auto _ : state) {
    buffer.assign(text);
    Map(buffer);
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size() * 2);
}

void IcuUpper(benchmark::State& state, const UTF16String& text) {
  std::vector<UChar> out(text.size() * 3 + 16);
  const auto* src = reinterpret_cast<const UChar*>(text.data());
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = u_strToUpper(out.data(), static_cast<int32_t>(out.size()), src,
                                   static_cast<int32_t>(text.size()), "", &status);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
    if (U_FAILURE(status)) state.SkipWithError(u_errorName(status));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size() * 2);
}

void IcuFold(benchmark::State& state, const UTF16String& text) {
  std::vector<UChar> out(text.size() * 3 + 16);
  const auto* src = reinterpret_cast<const UChar*>(text.data());
  for (auto _ : state) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n =
        u_strFoldCase(out.data(), static_cast<int32_t>(out.size()), src,
                      static_cast<int32_t>(text.size()), U_FOLD_CASE_DEFAULT, &status);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
    if (U_FAILURE(status)) state.SkipWithError(u_errorName(status));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size() * 2);
}

// Both operations, ours then ICU's, for every kind and size, so each pair
// stands side by side in the output.
const bool kRegistered = [] {
  struct Op {
    const char* name;
    void (*run)(benchmark::State&, const UTF16String&);
  };
  const Op ops[] = {{"Fold/tvxcore", TvxFold},
                    {"Fold/tvxcore_inplace", TvxInPlace<tvxcore::utility::ToFoldCase>},
                    {"Fold/icu", IcuFold},
                    {"Upper/tvxcore", TvxUpper},
                    {"Upper/tvxcore_inplace", TvxInPlace<tvxcore::utility::ToUpperCase>},
                    {"Upper/icu", IcuUpper}};
  unsigned seed = 1;
  for (const TextKind& kind : Kinds()) {
    for (std::size_t bytes : kSizes) {
      const UTF16String text = MakeText(kind, bytes, seed++);
      for (const Op& op : ops) {
        const std::string name =
            std::string(op.name) + "/" + kind.name + "/" + std::to_string(bytes);
        benchmark::RegisterBenchmark(name.c_str(), op.run, text);
      }
    }
  }
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
