// UTF-8/UTF-16 conversion through every kernel the processor has: the portable
// loops and each vector form must give byte-identical results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/UnicodeKernels.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
using tvxcore::UTF8Char;
using tvxcore::UTF8String;
using namespace tvxcore::utility;
using internal::UnicodeKernel;

// Reference encoders: plain UTF-8 (surrogate code points in three bytes like
// any other) and UTF-16.
void AppendUTF8(std::uint32_t cp, UTF8String& out) {
  static const std::uint32_t lead[] = {0, 0, 0xC0, 0xE0, 0xF0};
  const int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
  out.push_back(static_cast<UTF8Char>(lead[n] | (cp >> (6 * (n - 1)))));
  for (int i = n - 2; i >= 0; --i)
    out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> (6 * i)) & 0x3F)));
}
void Append(std::uint32_t cp, UTF8String& out8, UTF16String& out16) {
  AppendUTF8(cp, out8);
  if (cp < 0x10000) {
    out16.push_back(static_cast<UTF16Char>(cp));
  } else {
    out16.push_back(static_cast<UTF16Char>(0xD800 + ((cp - 0x10000) >> 10)));
    out16.push_back(static_cast<UTF16Char>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
  }
}

UTF8String Bytes(std::initializer_list<int> bytes) {
  UTF8String s;
  for (int b : bytes) s.push_back(static_cast<UTF8Char>(b));
  return s;
}
UTF16String Units(std::initializer_list<int> units) {
  UTF16String s;
  for (int u : units) s.push_back(static_cast<UTF16Char>(u));
  return s;
}
std::string Show(const UTF8String& s) {
  return ::testing::PrintToString(std::vector<int>(s.begin(), s.end()));
}

std::string KernelName(const ::testing::TestParamInfo<UnicodeKernel>& info) {
  const char* names[] = {"Portable", "SSE2", "AVX2", "AVX512"};
  return names[static_cast<int>(info.param)];
}

class Kernels : public ::testing::TestWithParam<UnicodeKernel> {
 protected:
  void SetUp() override {
    const std::string name = KernelName({GetParam(), 0});
#if defined(__x86_64__)
    // Every x86-64 build carries each kernel (the build compiles each file
    // for its instruction set); only the processor may lack one.
    ASSERT_TRUE(internal::UnicodeKernelCompiled(GetParam())) << name << " kernel not built";
#endif
    if (!internal::UnicodeKernelCompiled(GetParam()))
      GTEST_SKIP() << "no " << name << " kernel in a build for this processor family";
    if (!internal::UnicodeKernelSupported(GetParam()))
      GTEST_SKIP() << "this processor lacks the instructions of the " << name << " kernel";
    internal::ForceUnicodeKernel(GetParam());
    ASSERT_EQ(internal::ActiveUnicodeKernel(), GetParam());
  }
  void TearDown() override { internal::ForceUnicodeKernel(UnicodeKernel::kBest); }
};
INSTANTIATE_TEST_SUITE_P(Unicode, Kernels,
                         ::testing::Values(UnicodeKernel::kPortable, UnicodeKernel::kSSE2,
                                           UnicodeKernel::kAVX2, UnicodeKernel::kAVX512),
                         KernelName);

TEST(UnicodeKernelChoice, LibraryPicksTheWidestKernelTheProcessorRuns) {
  UnicodeKernel widest = UnicodeKernel::kPortable;
  for (auto k : {UnicodeKernel::kSSE2, UnicodeKernel::kAVX2, UnicodeKernel::kAVX512})
    if (internal::UnicodeKernelSupported(k)) widest = k;
  internal::ForceUnicodeKernel(UnicodeKernel::kBest);
  EXPECT_EQ(internal::ActiveUnicodeKernel(), widest);
}

// What the four bulk loops give for one text, under the active kernel. Each
// writes into a vector of exactly the room it is promised (the counted units
// plus the documented overrun, the measured bytes), so that a sanitiser sees
// any store beyond.
struct Outcome {
  internal::UTF8DecodeResult decoded;
  UTF16String units;
  std::size_t counted;
  internal::UTF16Measure measured;
  UTF8String encoded;
};
Outcome RunLoops(const UTF8String& bytes, const UTF16String& units) {
  Outcome o;
  o.counted = internal::CountUTF16Units(bytes.data(), bytes.size());
  std::vector<UTF16Char> target(std::min(o.counted + internal::kDecodeOverrun, bytes.size()));
  o.decoded = internal::DecodeUTF8(bytes.data(), bytes.size(), target.data());
  o.units.assign(target.data(), std::min(o.decoded.written, target.size()));
  o.measured = internal::MeasureUTF16(units.data(), units.size());
  std::vector<UTF8Char> encoded(o.measured.bytes);
  const std::size_t n = internal::EncodeUTF16(units.data(), o.measured.limit, encoded.data());
  o.encoded.assign(encoded.data(), std::min(n, encoded.size()));
  return o;
}

TEST_P(Kernels, EveryCodePointRoundTripsAloneAndInOneLongText) {
  UTF8String all8;
  UTF16String all16;
  for (std::uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    UTF8String one8;
    UTF16String one16;
    Append(cp, one8, one16);
    all8 += one8;
    all16 += one16;
    UnicodeErrorCode error = kUnicodeSourceIllegal;
    std::size_t count = 99;
    ASSERT_EQ(UTF8to16(one8, &error, &count), one16) << std::hex << cp;
    ASSERT_EQ(error, kUnicodeNoError);
    ASSERT_EQ(count, one16.size());
    ASSERT_EQ(UTF16to8(one16), cp == 0 ? UTF8String(1, 0) : one8) << std::hex << cp;
  }
  UnicodeErrorCode error = kUnicodeSourceIllegal;
  std::size_t count = 0;
  EXPECT_EQ(UTF8to16(all8, &error, &count), all16);
  EXPECT_EQ(error, kUnicodeNoError);
  EXPECT_EQ(count, all16.size());
  // The encoder stops at a zero unit, so its long text starts at U+0001.
  EXPECT_EQ(UTF16to8(all16.substr(1)), all8.substr(1));
}

struct BadCase {
  UTF8String input;
  UTF16String expected;
  UnicodeErrorCode error;
};

// Short inputs with the prefix each decodes to and the error it stops with.
const BadCase kBadCases[] = {
    {Bytes({}), u"", kUnicodeNoError},
    {Bytes({0xED, 0xA0, 0x80}), Units({0xD800}), kUnicodeNoError},
    {Bytes({0xED, 0xBF, 0xBF}), Units({0xDFFF}), kUnicodeNoError},
    {Bytes({0xC0, 0x80}), u"", kUnicodeSourceIllegal},
    {Bytes({0xC1, 0xBF, 'a'}), u"", kUnicodeSourceIllegal},
    {Bytes({0xC2, 0x80}), Units({0x80}), kUnicodeNoError},
    {Bytes({'a', 0x80, 'b'}), u"a", kUnicodeSourceIllegal},
    {Bytes({'a', 0xBF}), u"a", kUnicodeSourceIllegal},
    {Bytes({0xC3}), u"", kUnicodeSourceExhausted},
    {Bytes({0xC3, 'A'}), u"", kUnicodeSourceIllegal},
    {Bytes({0xE2, 0x82}), u"", kUnicodeSourceExhausted},
    {Bytes({0xE2, 0x82, 'A'}), u"", kUnicodeSourceIllegal},
    {Bytes({0xE2, 'A', 0xAC}), u"", kUnicodeSourceIllegal},
    {Bytes({0xE0, 0x9F, 0xBF}), u"", kUnicodeSourceIllegal},  // overlong
    {Bytes({0xE0, 0xA0, 0x80}), u"\u0800", kUnicodeNoError},
    {Bytes({0xEF, 0xBF, 0xBF}), Units({0xFFFF}), kUnicodeNoError},
    {Bytes({0xF0, 0x8F, 0xBF, 0xBF}), u"", kUnicodeSourceIllegal},  // overlong
    {Bytes({0xF0, 0x90, 0x80, 0x80}), Units({0xD800, 0xDC00}), kUnicodeNoError},
    {Bytes({0xF4, 0x8F, 0xBF, 0xBF}), Units({0xDBFF, 0xDFFF}), kUnicodeNoError},
    {Bytes({0xF4, 0x90, 0x80, 0x80}), u"", kUnicodeSourceIllegal},  // above U+10FFFF
    {Bytes({0xF5, 0x80, 0x80, 0x80}), u"", kUnicodeSourceIllegal},
    {Bytes({0xF0, 0x9F, 0x98}), u"", kUnicodeSourceExhausted},
    {Bytes({'x', 0xF8, 0x88, 0x80, 0x80, 0x80}), u"x", kUnicodeSourceIllegal},
    {Bytes({'x', 0xF8, 0x88, 0x80, 0x80}), u"x", kUnicodeSourceExhausted},
    {Bytes({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}), u"", kUnicodeSourceIllegal},
    {Bytes({0xFF, 'a', 'b', 'c', 'd', 'e', 'f'}), u"", kUnicodeSourceIllegal},
    {Bytes({0xF0, 0x9F, 0x98, 'a'}), u"", kUnicodeSourceIllegal},
    {Bytes({0xED, 0xA0, 0x80, 0xED, 0xB0, 0x80}), Units({0xD800, 0xDC00}), kUnicodeNoError},
    {Bytes({0xEF, 0xBF, 0xBF, 0xF5}), Units({0xFFFF}), kUnicodeSourceExhausted},
    {Bytes({'a', 0, 'b'}), UTF16String(u"a\0b", 3), kUnicodeNoError},
};

struct Text {
  UTF8String u8;
  UTF16String u16;
};

// Valid text of exactly `bytes` bytes, of code points of random width (no
// surrogates, no zero), boundary values and runs of ASCII long enough for
// whole vector blocks among them.
Text MixedText(std::size_t bytes, unsigned seed) {
  static const std::uint32_t ranges[][2] = {
      {1, 0x7F}, {0x80, 0x780}, {0x800, 0xD000}, {0x10000, 0x100000}, {1, 0x7F}};
  static const std::uint32_t edges[] = {0x7F,   0x80,   0x7FF,   0x800,   0xD7FF,
                                        0xE000, 0xFFFF, 0x10000, 0x10FFFF};
  std::mt19937 random(seed);
  Text t;
  while (t.u8.size() < bytes) {
    const std::size_t kind = random() % 6;
    std::uint32_t cp =
        kind == 5 ? edges[random() % 9] : ranges[kind][0] + random() % ranges[kind][1];
    if (kind == 4) {  // a run of ASCII
      for (std::size_t r = random() % 70; r > 0 && t.u8.size() + 1 < bytes; --r)
        Append(cp, t.u8, t.u16);
    }
    UTF8String one;
    AppendUTF8(cp, one);
    if (one.size() > bytes - t.u8.size()) cp = 'a' + random() % 26;
    Append(cp, t.u8, t.u16);
  }
  return t;
}

TEST_P(Kernels, EveryBadSequenceIsFoundWhereverItFallsInAVectorWindow) {
  // Behind mixed text of every length up to two windows and a half, and on
  // both sides of the 256-byte stack limit, the first bad sequence is found
  // and the prefix kept, whatever the text after it.
  std::vector<std::size_t> offsets;
  for (std::size_t i = 0; i <= 400; ++i)
    if (i <= 160 || (i >= 240 && i <= 270) || i >= 380) offsets.push_back(i);
  for (const auto& c : kBadCases) {
    SCOPED_TRACE(Show(c.input));
    for (std::size_t offset : offsets) {
      for (std::size_t tailBytes : {std::size_t{0}, std::size_t{90}}) {
        if (tailBytes != 0 && c.error == kUnicodeSourceExhausted) continue;
        const Text prefix = MixedText(offset, static_cast<unsigned>(offset));
        const Text tail = MixedText(tailBytes, 99);
        UnicodeErrorCode error = kUnicodeTargetExhausted;
        std::size_t count = 9999;
        const UTF16String expected =
            prefix.u16 + c.expected + (c.error == kUnicodeNoError ? tail.u16 : UTF16String());
        ASSERT_EQ(UTF8to16(prefix.u8 + c.input + tail.u8, &error, &count), expected) << offset;
        ASSERT_EQ(error, c.error) << offset << " " << tailBytes;
        ASSERT_EQ(count, expected.size()) << offset << " " << tailBytes;
      }
    }
  }
}

TEST_P(Kernels, EmbeddedZeroEndsLongTextsButShortOnesKeepTheirLength) {
  const std::pair<UTF16String, UTF8String> cases[] = {
      {Units({0xE9, 0, 'A'}), Bytes({0xC3, 0xA9, 0, 0})},
      {Units({0, 'A'}), Bytes({0, 0})},
      {Units({0xD83D, 0xDE00, 0}), Bytes({0xF0, 0x9F, 0x98, 0x80, 0})},
      {Units({0xE9, 'B', 'C', 0, 'D'}), Bytes({0xC3, 0xA9, 'B', 'C'})},
      {Units({0, 'A', 'B', 'C'}), Bytes({})},
      {Units({}), Bytes({})},
  };
  for (const auto& [input, expected] : cases)
    EXPECT_EQ(UTF16to8(input), expected) << Show(expected);
  EXPECT_TRUE(UTF16to8(static_cast<const UTF16Char*>(nullptr)).empty());
  // Long texts stop at the zero wherever it falls relative to a vector block.
  std::mt19937 random(7);
  for (std::size_t length = 4; length < 200; ++length) {
    for (std::size_t zeroAt : {std::size_t{0}, length / 2, length - 1}) {
      UTF16String text;
      UTF8String expected;
      for (std::size_t i = 0; i < length; ++i) {
        const std::uint32_t cp =
            (random() % 3 == 0) ? 0x80 + random() % 0x3000 : 'a' + random() % 26;
        text.push_back(i == zeroAt ? 0 : static_cast<UTF16Char>(cp));
        if (i < zeroAt) AppendUTF8(cp, expected);
      }
      ASSERT_EQ(UTF16to8(text), expected) << length << " " << zeroAt;
      ASSERT_EQ(UTF16to8(text.c_str()), expected) << length << " " << zeroAt;
    }
  }
}

TEST_P(Kernels, RunsOfEachWidthConvertAtEveryAlignment) {
  // Each run starts at every offset from a window start, so that sequences
  // straddle every window end; boundary code points and encoded lone low
  // surrogates included.
  const std::vector<std::vector<std::uint32_t>> runs = {
      {0xE9, 0x3A9, 0x7FF, 0x80},
      {0x4E2D, 0x6587, 0x800, 0xFFFF, 0xE000},
      {0x1F600, 0x10000, 0x10FFFF, 0x2A6D6},
      {0xDC00, 0xDFFF, 0xDE00},
  };
  for (std::size_t r = 0; r < runs.size(); ++r) {
    for (std::size_t align = 0; align < 130; ++align) {
      UTF8String text8(align, 'x');
      UTF16String text16(align, u'x');
      for (std::size_t i = 0; i < 90; ++i)
        Append(runs[r][(i + align) % runs[r].size()], text8, text16);
      text8 += UTF8String(align % 7, 'y');
      text16 += UTF16String(align % 7, u'y');
      UnicodeErrorCode error = kUnicodeSourceIllegal;
      std::size_t count = 0;
      ASSERT_EQ(UTF8to16(text8, &error, &count), text16) << r << " " << align;
      ASSERT_EQ(error, kUnicodeNoError);
      ASSERT_EQ(count, text16.size());
      ASSERT_EQ(UTF16to8(text16), text8) << r << " " << align;
    }
  }
}

TEST_P(Kernels, SurrogatesEncodeAlikeWhereverTheyFallInAVectorWindow) {
  // Expected: a high surrogate followed by a low one is one four-byte
  // sequence, any other surrogate three bytes of its own.
  const auto reference = [](const UTF16String& units) {
    UTF8String out;
    for (std::size_t i = 0; i < units.size(); ++i) {
      const std::uint32_t u = units[i];
      const bool pair = u >= 0xD800 && u < 0xDC00 && i + 1 < units.size() &&
                        units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000;
      AppendUTF8(pair ? 0x10000 + ((u - 0xD800) << 10) + (units[++i] - 0xDC00u) : u, out);
    }
    return out;
  };
  const UTF16String inserts[] = {
      Units({0xD83D, 0xDE00}),         Units({0xD83D}),         Units({0xDE00}),
      Units({0xD83D, 0xD83D, 0xDE00}), Units({0xDE00, 0xD83D}), Units({0xDBFF, 0xDFFF, 0xD800}),
  };
  UTF16String bmp = MixedText(400, 5).u16;  // with its pairs taken out
  for (UTF16Char& u : bmp) u = (u & 0xF800) == 0xD800 ? u'z' : u;
  for (const auto& insert : inserts) {
    for (std::size_t offset = 0; offset < 140; ++offset) {
      for (std::size_t after : {std::size_t{0}, std::size_t{1}, std::size_t{40}}) {
        const UTF16String text = bmp.substr(0, offset) + insert + bmp.substr(offset, after);
        ASSERT_EQ(UTF16to8(text), reference(text)) << offset << " " << after;
        ASSERT_EQ(UTF8to16(UTF16to8(text)), text) << offset << " " << after;
      }
    }
  }
}

TEST_P(Kernels, RandomTextsRoundTripAndAgreeWithThePortableKernelWhenDamaged) {
  // Valid text of random widths; then, in three rounds of every four, the
  // same with stray or zero bytes put in, and its units with lone surrogates
  // or zeros put in.
  std::mt19937 random(77);
  for (int round = 0; round < 3000; ++round) {
    const std::size_t length = random() % (round < 2000 ? 140 : 1000);
    const Text valid = MixedText(length, static_cast<unsigned>(round));
    ASSERT_EQ(UTF8to16(valid.u8), valid.u16) << round;
    ASSERT_EQ(UTF16to8(valid.u16), valid.u8) << round;
    UTF8String bytes = valid.u8;
    UTF16String units = valid.u16;
    for (int damage = round % 4; damage > 0 && !bytes.empty(); --damage) {
      const bool zero = round % 8 == 1;
      bytes[random() % bytes.size()] = static_cast<UTF8Char>(zero ? 0 : 0x80 + random() % 0x80);
      units[random() % units.size()] = static_cast<UTF16Char>(zero ? 0 : 0xD800 + random() % 0x800);
    }
    const Outcome kernel = RunLoops(bytes, units);
    internal::ForceUnicodeKernel(UnicodeKernel::kPortable);
    const Outcome portable = RunLoops(bytes, units);
    internal::ForceUnicodeKernel(GetParam());
    SCOPED_TRACE(::testing::Message() << "round " << round << " bytes " << Show(bytes));
    ASSERT_LE(kernel.decoded.written, kernel.counted);
    ASSERT_EQ(kernel.decoded.read, portable.decoded.read);
    ASSERT_EQ(kernel.decoded.written, portable.decoded.written);
    ASSERT_EQ(kernel.decoded.error, portable.decoded.error);
    ASSERT_EQ(kernel.units, portable.units);
    ASSERT_EQ(kernel.counted, portable.counted);
    ASSERT_EQ(kernel.measured.limit, portable.measured.limit);
    ASSERT_EQ(kernel.measured.bytes, portable.measured.bytes);
    ASSERT_EQ(kernel.measured.ascii, portable.measured.ascii);
    ASSERT_EQ(kernel.encoded, portable.encoded);
    if (round % 4 == 0) {
      ASSERT_EQ(kernel.units, valid.u16);
      ASSERT_EQ(kernel.encoded, valid.u8);
    }
  }
}

}  // namespace
