#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/UtilityTestSupport.h"
#include "tvxcore/utility/CaseMapping.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
namespace u = tvxcore::utility;
using tvxtest::Hex;

UTF16String S(std::initializer_list<UTF16Char> inUnits) { return UTF16String(inUnits); }

using CopyingForm = UTF16String (*)(const UTF16String&);
using InPlaceForm = void (*)(UTF16String&);

struct NamedForms {
  const char* name;
  CopyingForm copying;
  InPlaceForm inPlace;
};
const NamedForms kAllForms[] = {
    {"lower", u::LowerCase, u::ToLowerCase},
    {"upper", u::UpperCase, u::ToUpperCase},
    {"fold", u::FoldCase, u::ToFoldCase},
    {"title", u::TitleCase, u::ToTitleCase},
};

TEST(CaseMapping, SurrogatePairsPassUnchangedEvenWhereUnicodeHasCase) {
  // Deseret capital and small long i alone; with Osage, Adlam, an emoji and
  // a mathematical capital.
  const UTF16String samples[] = {
      u"\U00010400", u"\U00010428",
      u"\U00010400\U00010428\U000104B0\U0001E900\U0001E922\U0001F600\U0001D400"};
  for (const UTF16String& sample : samples) {
    for (const NamedForms& f : kAllForms) EXPECT_EQ(Hex(f.copying(sample)), Hex(sample)) << f.name;
  }
  // Letters around the pairs still change; the pairs do not.
  EXPECT_EQ(Hex(u::UpperCase(u"a\U00010428b\u00DF\U00010428")), Hex(u"A\U00010428BSS\U00010428"));
  EXPECT_EQ(Hex(u::FoldCase(u"ABCDEFGHIJ\U00010400KLMNOPQRS")),
            Hex(u"abcdefghij\U00010400klmnopqrs"));
  EXPECT_EQ(Hex(u::TitleCase(u"\U00010428ab \U00010400CD")), Hex(u"\U00010428Ab \U00010400Cd"));
}

TEST(CaseMapping, LoneSurrogatesAndEmptyStringsPassUnchanged) {
  struct Case {
    UTF16String in, lower, upper;
  };
  const Case cases[] = {
      {u"", u"", u""},
      {S({0xD800}), S({0xD800}), S({0xD800})},
      {S({0xDC00, 0xD800}), S({0xDC00, 0xD800}), S({0xDC00, 0xD800})},
      {S({0xDBFF, 0x41}), S({0xDBFF, 0x61}), S({0xDBFF, 0x41})},
      {S({0x61, 0xDC00, 0x62}), S({0x61, 0xDC00, 0x62}), S({0x41, 0xDC00, 0x42})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Hex(c.in));
    EXPECT_EQ(Hex(u::LowerCase(c.in)), Hex(c.lower));
    EXPECT_EQ(Hex(u::FoldCase(c.in)), Hex(c.lower));
    EXPECT_EQ(Hex(u::UpperCase(c.in)), Hex(c.upper));
  }
  EXPECT_TRUE(u::TitleCase(u"").empty());
}

TEST(TitleCase, CapitalisesEachWordAndLowersTheRest) {
  struct Case {
    UTF16String in, expected;
  };
  const Case cases[] = {
      {u"hello world", u"Hello World"},
      {u"HELLO wORLD", u"Hello World"},
      {u"don't", u"Don't"},
      {u"'tis", u"'Tis"},
      {u"o'neil's", u"O'neil's"},
      {u"it is 'tis", u"It Is 'Tis"},
      {u"1'a", u"1'A"},  // apostrophe behind a digit opens a word
      {u"''a", u"''A"},  // so does one behind another apostrophe
      {u"two1words", u"Two1Words"},
      {u"abc9DEF0ghi", u"Abc9Def0Ghi"},
      {u"a-b_c.d", u"A-B_C.D"},
      {u"a\u00AAb", u"A\u00AAB"},  // a letter without case ends a word
      {u"\u0386\u039B\u03A6\u0391 \u03B2\u03AE\u03C4\u03B1",
       u"\u0386\u03BB\u03C6\u03B1 \u0392\u03AE\u03C4\u03B1"},
      {u"\u043C\u0418\u0420", u"\u041C\u0438\u0440"},
      {u"\u01C6a", u"\u01C4a"},  // the upper form, not the title form
      {u"\u0345x", u"\u0399x"},
      {u"''", u"''"},
      {u"'", u"'"},
      {u"   ", u"   "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Hex(c.in));
    EXPECT_EQ(Hex(u::TitleCase(c.in)), Hex(c.expected));
  }
}

TEST(TitleCase, LongerFormsShiftTheTextAndLeaveItsEndUnvisited) {
  struct Case {
    UTF16String in, expected;
  };
  const Case cases[] = {
      // "SS" replaces the first unit; its second S is visited as inside the
      // word; the last unit is beyond the length read at the start.
      {u"\u00DFAB", u"SsaB"},
      {u"\uFB03X", u"FfIX"},
      {u"\uFB03", u"FFI"},
      {u"x \u00DFYZ", u"X SsyZ"},
      {u"\u0130ST", u"\u0130st"},     // upper form is one unit
      {u"A\u0130BC", u"Ai\u0307BC"},  // lower form of two units: B is the
                                      // visited unit after the mark, C not
      {u"\u0149a", u"\u02BCna"},      // the inserted N is visited, a is not
      {u"\u1F80\u1F80", u"\u1F08\u03B9\u1F80"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Hex(c.in));
    EXPECT_EQ(Hex(u::TitleCase(c.in)), Hex(c.expected));
  }
}

// Strings that reach every path of the mapping loop: ASCII blocks, table
// lookups, longer forms, surrogates, at every position of a block. With the
// single-unit forms checked against ICU (internal/case_oracle_test.cpp), a
// text mapping as the concatenation of its units shows that no rule looks at
// context or language (final sigma, dotted I, iota subscript) and that longer
// forms lengthen the text wherever they stand.
std::vector<UTF16String> MixedSamples() {
  const UTF16Char pool[] = {u'a',   u'Z',   u' ',   u'\'',  u'7',   0x00C9, 0x00DF, 0x0130, 0x0149,
                            0x03A3, 0x03C2, 0x0390, 0x0416, 0x0436, 0x1F80, 0xFB03, 0xD801, 0xDC00,
                            0x2160, 0x4E2D, 0xFF41, 0x0345, 0x0131, 0xFB13, 0x1E9E};
  std::mt19937 random(20240611);
  std::vector<UTF16String> samples(1);  // the empty string first
  for (int n = 0; n < 400; ++n) {
    UTF16String s;
    const std::size_t length = random() % 40;
    const bool asciiHeavy = n % 2 == 0;
    for (std::size_t i = 0; i < length; ++i) {
      if (asciiHeavy && random() % 8 != 0)
        s.push_back(static_cast<UTF16Char>(0x20 + random() % 0x5F));
      else
        s.push_back(pool[random() % std::size(pool)]);
    }
    samples.push_back(std::move(s));
  }
  return samples;
}

TEST(CaseMapping, InPlaceEqualsCopyingAndTextMapsAsTheConcatenationOfItsUnits) {
  for (const UTF16String& sample : MixedSamples()) {
    SCOPED_TRACE(Hex(sample));
    for (const NamedForms& f : kAllForms) {
      SCOPED_TRACE(f.name);
      const UTF16String copied = f.copying(sample);
      UTF16String inPlace = sample;
      f.inPlace(inPlace);
      EXPECT_EQ(Hex(inPlace), Hex(copied));
      if (f.copying == u::TitleCase) continue;  // a word's units differ from lone ones
      UTF16String expected;
      for (UTF16Char c : sample) expected += f.copying(UTF16String(1, c));
      EXPECT_EQ(Hex(copied), Hex(expected));
    }
  }
}

}  // namespace
