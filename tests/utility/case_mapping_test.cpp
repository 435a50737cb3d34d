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

TEST(CaseMapping, SurrogatesAndEmptyStringsPassUnchangedEvenWhereUnicodeHasCase) {
  // Deseret capital and small long i, Osage, Adlam, an emoji and a
  // mathematical capital; lone surrogates, a low one first.
  const UTF16String samples[] = {
      u"", u"\U00010400\U00010428\U000104B0\U0001E900\U0001E922\U0001F600\U0001D400", S({0xD800}),
      S({0xDC00, 0xD800})};
  for (const UTF16String& sample : samples) {
    for (const NamedForms& f : kAllForms) EXPECT_EQ(Hex(f.copying(sample)), Hex(sample)) << f.name;
  }
  // Letters around them still change; the surrogates do not.
  EXPECT_EQ(Hex(u::UpperCase(u"a\U00010428b\u00DF\U00010428")), Hex(u"A\U00010428BSS\U00010428"));
  EXPECT_EQ(Hex(u::FoldCase(u"ABCDEFGHIJ\U00010400KLMNOPQRS")),
            Hex(u"abcdefghij\U00010400klmnopqrs"));
  EXPECT_EQ(Hex(u::TitleCase(u"\U00010428ab \U00010400CD")), Hex(u"\U00010428Ab \U00010400Cd"));
  EXPECT_EQ(Hex(u::LowerCase(S({0xDBFF, 0x41}))), Hex(S({0xDBFF, 0x61})));
  EXPECT_EQ(Hex(u::UpperCase(S({0x61, 0xDC00, 0x62}))), Hex(S({0x41, 0xDC00, 0x42})));
}

TEST(TitleCase, CapitalisesEachWordLowersTheRestAndLeavesTheShiftedEndUnvisited) {
  struct Case {
    UTF16String in, expected;
  };
  const Case cases[] = {
      {u"HELLO wORLD", u"Hello World"},
      {u"don't", u"Don't"},
      {u"'tis", u"'Tis"},
      {u"1'a", u"1'A"},  // apostrophe behind a digit opens a word
      {u"abc9DEF0ghi", u"Abc9Def0Ghi"},
      {u"'", u"'"},
      // "SS" replaces the first unit; its second S is visited as inside the
      // word; the last unit is beyond the length read at the start.
      {u"\u00DFAB", u"SsaB"},
      {u"A\u0130BC", u"Ai\u0307BC"},  // lower form of two units: B is the
                                      // visited unit after the mark, C not
      {u"\u0149a", u"\u02BCna"},      // the inserted N is visited, a is not
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
