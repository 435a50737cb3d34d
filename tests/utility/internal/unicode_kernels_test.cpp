// UTF-8/UTF-16 conversion through every kernel the processor has: the portable
// loops and each vector form must give byte-identical results.
#include <gtest/gtest.h>

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

// Reference encoder used to build expectations: plain UTF-8, surrogate code
// points encoded in three bytes like any other.
void AppendUTF8(std::uint32_t cp, UTF8String& out) {
  if (cp < 0x80) {
    out.push_back(static_cast<UTF8Char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<UTF8Char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<UTF8Char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<UTF8Char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<UTF8Char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<UTF8Char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<UTF8Char>(0x80 | (cp & 0x3F)));
  }
}
void AppendUTF16(std::uint32_t cp, UTF16String& out) {
  if (cp < 0x10000) {
    out.push_back(static_cast<UTF16Char>(cp));
  } else {
    out.push_back(static_cast<UTF16Char>(0xD800 + ((cp - 0x10000) >> 10)));
    out.push_back(static_cast<UTF16Char>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
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

class Kernels : public ::testing::TestWithParam<UnicodeKernel> {
 protected:
  void SetUp() override {
    if (!internal::UnicodeKernelSupported(GetParam())) GTEST_SKIP() << "not on this processor";
    internal::ForceUnicodeKernel(GetParam());
  }
  void TearDown() override { internal::ForceUnicodeKernel(UnicodeKernel::kBest); }
};

INSTANTIATE_TEST_SUITE_P(Unicode, Kernels,
                         ::testing::Values(UnicodeKernel::kPortable, UnicodeKernel::kSSE2,
                                           UnicodeKernel::kAVX2, UnicodeKernel::kAVX512),
                         [](const auto& info) {
                           switch (info.param) {
                             case UnicodeKernel::kPortable:
                               return std::string("Portable");
                             case UnicodeKernel::kSSE2:
                               return std::string("SSE2");
                             case UnicodeKernel::kAVX2:
                               return std::string("AVX2");
                             default:
                               return std::string("AVX512");
                           }
                         });

TEST_P(Kernels, ForcedKernelIsTheActiveOne) {
  EXPECT_EQ(internal::ActiveUnicodeKernel(), GetParam());
}

TEST_P(Kernels, EveryCodePointRoundTripsAloneAndInOneLongText) {
  UTF8String all8;
  UTF16String all16;
  for (std::uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    UTF8String one8;
    UTF16String one16;
    AppendUTF8(cp, one8);
    AppendUTF16(cp, one16);
    all8 += one8;
    all16 += one16;
    // Short texts: code point between ASCII neighbours at a varying offset.
    if (cp != 0 && ((cp & 0x3F) == 0 || cp < 0x1000)) {
      UTF8String framed8(cp % 23, 'a');
      UTF16String framed16(cp % 23, u'a');
      framed8 += one8;
      framed16 += one16;
      framed8 += UTF8String(5, 'z');
      framed16 += UTF16String(5, u'z');
      ASSERT_EQ(UTF8to16(framed8), framed16) << std::hex << cp;
      ASSERT_EQ(UTF16to8(framed16), framed8) << std::hex << cp;
    }
    UnicodeErrorCode error = kUnicodeSourceIllegal;
    std::size_t count = 99;
    ASSERT_EQ(UTF8to16(one8, &error, &count), one16) << std::hex << cp;
    ASSERT_EQ(error, kUnicodeNoError);
    ASSERT_EQ(count, one16.size());
    ASSERT_EQ(UTF16to8(one16), cp == 0 ? UTF8String(1, 0) : one8) << std::hex << cp;
  }
  UnicodeErrorCode error = kUnicodeSourceIllegal;
  std::size_t count = 0;
  // Zero comes first: the long text starts with U+0001 for the encoder, which
  // stops at a zero unit.
  EXPECT_EQ(UTF8to16(all8, &error, &count), all16);
  EXPECT_EQ(error, kUnicodeNoError);
  EXPECT_EQ(count, all16.size());
  EXPECT_EQ(UTF16to8(all16.substr(1)), all8.substr(1));
  EXPECT_EQ(UTF16to8(all16.substr(1).c_str()), all8.substr(1));
}

TEST_P(Kernels, EveryLoneSurrogateSurvivesTheTripThroughUTF8) {
  UTF16String all;
  for (std::uint32_t u = 0xD800; u <= 0xDFFF; ++u) {
    const UTF16String one(1, static_cast<UTF16Char>(u));
    UTF8String expected;
    AppendUTF8(u, expected);
    ASSERT_EQ(UTF16to8(one), expected) << std::hex << u;
    UnicodeErrorCode error = kUnicodeSourceIllegal;
    ASSERT_EQ(UTF8to16(expected, &error, nullptr), one) << std::hex << u;
    ASSERT_EQ(error, kUnicodeNoError);
    // Between letters, long enough for the vector loops.
    const UTF16String framed = u"abcdefghijklmnopqrstu" + one + u"vwxyz0123456789abcdefghij";
    ASSERT_EQ(UTF8to16(UTF16to8(framed)), framed) << std::hex << u;
    // Lone: lows only, and highs each followed by a non-low unit.
    if (u >= 0xDC00) {
      all.push_back(static_cast<UTF16Char>(u));
    } else {
      all.push_back(static_cast<UTF16Char>(u));
      all.push_back(u'x');
    }
  }
  EXPECT_EQ(UTF8to16(UTF16to8(all)), all);
  // A high surrogate followed by a low one is a pair; in the opposite order two
  // lone units.
  EXPECT_EQ(UTF16to8(Units({0xD83D, 0xDE00})), Bytes({0xF0, 0x9F, 0x98, 0x80}));
  EXPECT_EQ(UTF16to8(Units({0xDE00, 0xD83D})), Bytes({0xED, 0xB8, 0x80, 0xED, 0xA0, 0xBD}));
  EXPECT_EQ(UTF16to8(Units({0xD83D, 0xD83D, 0xDE00, 'a'})),
            Bytes({0xED, 0xA0, 0xBD, 0xF0, 0x9F, 0x98, 0x80, 'a'}));
}

TEST_P(Kernels, BadUTF8StopsAtTheFirstBadSequenceAndKeepsThePrefix) {
  struct Case {
    UTF8String input;
    UTF16String expected;
    UnicodeErrorCode error;
  };
  const Case cases[] = {
      {Bytes({'a', 'b', 'c', 0xE2}), u"abc", kUnicodeSourceExhausted},
      {Bytes({0xED, 0xA0, 0x80}), Units({0xD800}), kUnicodeNoError},
      {Bytes({0xED, 0xBF, 0xBF}), Units({0xDFFF}), kUnicodeNoError},
      {Bytes({0xC0, 0x80}), u"", kUnicodeSourceIllegal},
      {Bytes({0xC1, 0xBF, 'a'}), u"", kUnicodeSourceIllegal},
      {Bytes({0xC2, 0x80}), Units({0x80}), kUnicodeNoError},
      {Bytes({'a', 0x80, 'b'}), u"a", kUnicodeSourceIllegal},
      {Bytes({'a', 0xBF}), u"a", kUnicodeSourceIllegal},
      {Bytes({0xC3}), u"", kUnicodeSourceExhausted},
      {Bytes({0xC3, 'A'}), u"", kUnicodeSourceIllegal},
      {Bytes({0xC3, 0xA9, 0xC3}), u"\u00E9", kUnicodeSourceExhausted},
      {Bytes({0xE2, 0x82}), u"", kUnicodeSourceExhausted},
      {Bytes({0xE2, 0x82, 'A'}), u"", kUnicodeSourceIllegal},
      {Bytes({0xE2, 'A', 0xAC}), u"", kUnicodeSourceIllegal},
      {Bytes({0xE2, 0x82, 0xAC}), u"\u20AC", kUnicodeNoError},
      {Bytes({0xE0, 0x9F, 0xBF}), u"", kUnicodeSourceIllegal},  // overlong
      {Bytes({0xE0, 0xA0, 0x80}), u"\u0800", kUnicodeNoError},
      {Bytes({0xEF, 0xBF, 0xBF}), Units({0xFFFF}), kUnicodeNoError},
      {Bytes({0xF0, 0x8F, 0xBF, 0xBF}), u"", kUnicodeSourceIllegal},  // overlong
      {Bytes({0xF0, 0x90, 0x80, 0x80}), Units({0xD800, 0xDC00}), kUnicodeNoError},
      {Bytes({0xF4, 0x8F, 0xBF, 0xBF}), Units({0xDBFF, 0xDFFF}), kUnicodeNoError},
      {Bytes({0xF4, 0x90, 0x80, 0x80}), u"", kUnicodeSourceIllegal},  // above U+10FFFF
      {Bytes({0xF4, 0x80, 0x80, 'x'}), u"", kUnicodeSourceIllegal},
      {Bytes({0xF5, 0x80, 0x80, 0x80}), u"", kUnicodeSourceIllegal},
      {Bytes({0xF7, 0xBF, 0xBF, 0xBF}), u"", kUnicodeSourceIllegal},
      {Bytes({0xF0, 0x9F, 0x98}), u"", kUnicodeSourceExhausted},
      {Bytes({'x', 0xF8, 0x88, 0x80, 0x80, 0x80}), u"x", kUnicodeSourceIllegal},
      {Bytes({'x', 0xF8, 0x88, 0x80, 0x80}), u"x", kUnicodeSourceExhausted},
      {Bytes({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}), u"", kUnicodeSourceIllegal},
      {Bytes({0xFE, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80}), u"", kUnicodeSourceIllegal},
      {Bytes({0xFF, 'a', 'b', 'c', 'd', 'e', 'f'}), u"", kUnicodeSourceIllegal},
      {Bytes({'a', 0, 'b'}), UTF16String(u"a\0b", 3), kUnicodeNoError},
      {Bytes({0, 0, 0, 0, 0}), UTF16String(5, 0), kUnicodeNoError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::vector<int>(c.input.begin(), c.input.end())));
    UnicodeErrorCode error = kUnicodeTargetExhausted;
    std::size_t count = 9999;
    EXPECT_EQ(UTF8to16(c.input, &error, &count), c.expected);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(count, c.expected.size());
    // The same failure deep inside long texts, before and after the 256-byte
    // stack limit and at every offset within a vector block.
    for (std::size_t lead : {std::size_t{63}, std::size_t{250}, std::size_t{301}}) {
      const UTF8String prefix(lead, 'p');
      const UTF8String tail =
          c.error == kUnicodeSourceExhausted ? UTF8String() : UTF8String(80, 't');
      const UTF16String got = UTF8to16(prefix + c.input + tail, &error, &count);
      const UTF16String expectedLong = UTF16String(lead, u'p') + c.expected +
                                       (c.error == kUnicodeNoError ? UTF16String(80, u't') : u"");
      EXPECT_EQ(got, expectedLong) << lead;
      EXPECT_EQ(error, c.error) << lead;
      EXPECT_EQ(count, expectedLong.size()) << lead;
    }
  }
}

TEST_P(Kernels, EmptyInputReportsNoErrorAndNoUnits) {
  UnicodeErrorCode error = kUnicodeSourceIllegal;
  std::size_t count = 7;
  EXPECT_TRUE(UTF8to16(UTF8String(), &error, &count).empty());
  EXPECT_EQ(error, kUnicodeNoError);
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(UTF16to8(UTF16String()).empty());
  EXPECT_TRUE(UTF16to8(static_cast<const UTF16Char*>(nullptr)).empty());
  EXPECT_TRUE(UTF8to16(UTF8String(), nullptr, nullptr).empty());
}

TEST_P(Kernels, EmbeddedZeroEndsLongTextsButShortOnesKeepTheirLength) {
  struct Case {
    UTF16String input;
    UTF8String expected;
  };
  const Case cases[] = {
      {Units({'A', 0, 'B'}), Bytes({'A', 0, 0})},
      {Units({0xE9, 0, 'A'}), Bytes({0xC3, 0xA9, 0, 0})},
      {Units({0, 'A'}), Bytes({0, 0})},
      {Units({0xD83D, 0xDE00, 0}), Bytes({0xF0, 0x9F, 0x98, 0x80, 0})},
      {Units({'A', 'B', 'C', 0, 'D'}), Bytes({'A', 'B', 'C'})},
      {Units({0xE9, 'B', 'C', 0, 'D'}), Bytes({0xC3, 0xA9, 'B', 'C'})},
      {Units({0, 'A', 'B', 'C'}), Bytes({})},
      {Units({'A', 'B', 'C', 'D'}), Bytes({'A', 'B', 'C', 'D'})},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(UTF16to8(c.input), c.expected)
        << ::testing::PrintToString(std::vector<int>(c.input.begin(), c.input.end()));
  }
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

TEST_P(Kernels, RandomMixedTextsMatchTheReferenceEncoder) {
  std::mt19937 random(1234);
  for (int round = 0; round < 400; ++round) {
    UTF8String text8;
    UTF16String text16;
    const int length = static_cast<int>(random() % 700);
    for (int i = 0; i < length; ++i) {
      std::uint32_t cp;
      switch (random() % 5) {
        case 0:
          cp = 0x80 + random() % (0x800 - 0x80);
          break;
        case 1:
          cp = 0x800 + random() % (0xD800 - 0x800);
          break;
        case 2:
          cp = 0x10000 + random() % 0x100000;
          break;
        default:
          cp = 1 + random() % 0x7F;
          break;
      }
      // Runs of ASCII long enough for whole blocks now and then.
      const int repeat = (cp < 0x80 && random() % 4 == 0) ? 1 + random() % 70 : 1;
      for (int r = 0; r < repeat; ++r) {
        AppendUTF8(cp, text8);
        AppendUTF16(cp, text16);
      }
    }
    ASSERT_EQ(UTF8to16(text8), text16) << round;
    ASSERT_EQ(UTF16to8(text16), text8) << round;
  }
}

}  // namespace
