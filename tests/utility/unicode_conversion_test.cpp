#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tvxcore/utility/UnicodeConversion.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
using tvxcore::UTF8Char;
using tvxcore::UTF8String;
using namespace tvxcore::utility;

const UTF8Char* U8(const char* text) { return AsciiToUTF8Impl(text); }

TEST(AsciiWidening, SignExtendsEveryByte) {
  const char bytes[] = {'A', 0, '\x7F', '\x80', '\xE9', '\xFF'};
  const UTF16String wide = AsciiToUTF16(bytes, sizeof bytes);
  const std::vector<int> expected = {0x41, 0, 0x7F, 0xFF80, 0xFFE9, 0xFFFF};
  ASSERT_EQ(wide.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(wide[i], expected[i]) << i;
  EXPECT_EQ(AsciiToUTF16("hello", 3), u"hel");
  EXPECT_TRUE(AsciiToUTF16(nullptr, 4).empty());
  const char* literal = "literal";
  EXPECT_EQ(static_cast<const void*>(AsciiToUTF8Impl(literal)), static_cast<const void*>(literal));
}

TEST(UTF16Length, CountsUnitsBeforeTheFirstZero) {
  EXPECT_EQ(UTF16StrLen(nullptr), 0);
  EXPECT_EQ(UTF16StrLen(u"abc\0def"), 3);
}

TEST(UTF8Counts, JudgeSequencesByTheirLeadByte) {
  struct Case {
    const char* text;
    int limit;
    int characters;
  };
  const Case characters[] = {
      {nullptr, 10, 0},
      {"abc", 0, 0},
      {"abc", 10, 3},
      {"abc", 2, 2},
      {"\xC3\xA9t\xC3\xA9", 1, 1},  // the first sequence runs past the limit
      {"\xE2\x82\xAC\xF0\x9F\x98\x80", 7, 2},
      {"\x80\x80x", 3, 3},  // stray continuation bytes count as characters
      {"\xF8\x88\x80\x80\x80", 5, -1},
      {"a\xE2\0\x82x", 10, 2},  // the zero byte ends the walk inside a sequence
  };
  for (const auto& c : characters) {
    EXPECT_EQ(GetUTF8CharacterCount(c.text ? U8(c.text) : nullptr, c.limit), c.characters)
        << (c.text ? c.text : "null") << " " << c.limit;
  }
  const Case bytes[] = {
      {nullptr, 3, 0},
      {"abc", 0, 0},
      {"abc", 2, 2},
      {"abc", -1, 3},
      {"\xC3\xA9t\xC3\xA9", 2, 3},
      {"\xF0\x9F\x98\x80!", 1, 4},
      {"ab\xF8\x88\x80\x80\x80", 3, -1},
      {"ab\xF8\x88\x80\x80\x80", 2, 2},
      {"a\xE2\0\x82x", -1, 2},  // cut by the terminator, and not read past it
  };
  for (const auto& c : bytes) {
    EXPECT_EQ(GetUTF8ByteCount(c.text ? U8(c.text) : nullptr, c.limit), c.characters)
        << (c.text ? c.text : "null") << " " << c.limit;
  }
}

TEST(Surrogates, ClassifiesEveryUnitByRange) {
  for (unsigned u = 0; u <= 0xFFFF; ++u) {
    const auto expected = u < 0xD800   ? kUnicodeNotSurrogate
                          : u < 0xDC00 ? kUnicodeHighSurrogate
                          : u < 0xE000 ? kUnicodeLowSurrogate
                                       : kUnicodeNotSurrogate;
    ASSERT_EQ(UnicodeSurrogate(static_cast<UTF16Char>(u)), expected) << u;
  }
}

TEST(Normalization, EachFormAndTheComposedDefault) {
  const UTF16String composed = u"\u00C5ngstr\u00F6m \uFB01";  // A-ring, o-umlaut, fi ligature
  const UTF16String decomposed = u"A\u030Angstro\u0308m \uFB01";
  struct Case {
    int form;
    UTF16String input;
    UTF16String expected;
  };
  const Case cases[] = {
      {kUnicodeNormalizationComposed, decomposed, composed},
      {kUnicodeNormalizationDecomposed, composed, decomposed},
      {kUnicodeNormalizationCompatibilityComposed, decomposed, u"\u00C5ngstr\u00F6m fi"},
      {kUnicodeNormalizationCompatibilityDecomposed, composed, u"A\u030Angstro\u0308m fi"},
      {42, decomposed, composed},
      {kUnicodeNormalizationComposed, u"", u""},
      {kUnicodeNormalizationComposed, UTF16String(u"e\u0301\0tail", 7), u"\u00E9"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(NormalizedString(c.input, static_cast<UnicodeNormalizationForm>(c.form)), c.expected)
        << c.form;
  }
  // A text that grows a lot on decomposition.
  const UTF16String many(3000, u'\u01C4');  // DZ with caron: three units in NFKD
  EXPECT_EQ(NormalizedString(many, kUnicodeNormalizationCompatibilityDecomposed).size(), 9000u);
}

}  // namespace
