#include <gtest/gtest.h>

#include <vector>

#include "tvxcore/utility/StringUtils.h"

namespace {

using tvxcore::UTF16String;
using namespace tvxcore::utility;

constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

TEST(LineEndings, EachTypeReplacesEveryKindOfInputEnding) {
  struct Case {
    int type;
    UTF16String input;
    UTF16String expected;
  };
  const Case cases[] = {
      {kLineEndingLF, u"a\r\nb\rc\nd", u"a\nb\nc\nd"},
      {kLineEndingCRLF, u"a\r\nb\rc\nd", u"a\r\nb\r\nc\r\nd"},
      {kLineEndingCR, u"a\r\nb\rc\nd\n", u"a\rb\rc\rd\r"},
      {kLineEndingCRLF, u"\r\r\n\n", u"\r\n\r\n\r\n"},  // CR, CRLF, LF
      {kLineEndingLF, u"\n\r", u"\n\n"},                // LF then CR: two endings
      {9, u"a\r\nb\n", u"ab"},
  };
  for (const auto& c : cases) {
    UTF16String text = c.input;
    ConvertLineEndings(static_cast<LineEndingType>(c.type), text);
    EXPECT_EQ(text, c.expected) << c.type;
  }
}

TEST(ReplaceAll, ContinuesBehindTheInsertedText) {
  struct Case {
    UTF16String text, from, to, expected;
  };
  const Case cases[] = {
      {u"aaa", u"a", u"aa", u"aaaaaa"},    {u"abcabc", u"bc", u"", u"aa"},
      {u"xyz", u"q", u"r", u"xyz"},        {u"xyz", u"", u"r", u"xyz"},
      {u"a.b.c", u".", u"::", u"a::b::c"}, {u"aaaa", u"aa", u"b", u"bb"},
  };
  for (const auto& c : cases) {
    UTF16String text = c.text;
    ReplaceAllStringInString(text, c.from, c.to);
    EXPECT_EQ(text, c.expected);
  }
}

TEST(ReplaceInString, InsertsValuesByIndexAndKeepsOtherAts) {
  EXPECT_EQ(ReplaceInString(u"@0 @@ @", u"x"), u"x @ @");
  EXPECT_EQ(ReplaceInString(u"@1-@0", u"a", u"b"), u"b-a");
  EXPECT_EQ(ReplaceInString(u"@9!", u"0", u"1", u"2", u"3", u"4", u"5", u"6", u"7", u"8", u"9"),
            u"9!");
  EXPECT_EQ(ReplaceInString(u"@x @", u"v"), u"@x @");
  EXPECT_EQ(ReplaceInString(u"@0", u"@1", u"no"), u"@1");  // values are not rescanned
  const std::vector<UTF16String> values = {u"a"};
  EXPECT_EQ(ReplaceInString(u"[@0][@1][@2]", values), u"[a][][]");
  std::vector<UTF16String> twelve(12, u"v");
  twelve[9] = u"nine";
  EXPECT_EQ(ReplaceInString(u"@9", twelve), u"nine");
}

TEST(Ampersands, LocatesTheMnemonicMarkAndStripsMarksForDisplay) {
  struct Case {
    UTF16String text;
    std::size_t position, displayPosition;
    UTF16String stripped, strippedWithParenthesized;
  };
  const Case cases[] = {
      {u"Save &As", 5, 5, u"Save As", u"Save As"},
      {u"&&&x", 2, 1, u"&x", u"&x"},
      {u"Fish && Chips", kNotFound, kNotFound, u"Fish & Chips", u"Fish & Chips"},
      {u"Open (&O)", 6, 6, u"Open (O)", u"Open "},
      {u"(&A)(&B)", 1, 1, u"(A)(B)", u"(B)"},  // the first parenthesised mark only
      {u"x&", kNotFound, kNotFound, u"x&", u"x&"},
      {u"a & b", kNotFound, kNotFound, u"a & b", u"a & b"},
      {u"&&", kNotFound, kNotFound, u"&", u"&"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LocateSingleAmpersandInString(c.text, false), c.position);
    EXPECT_EQ(LocateSingleAmpersandInString(c.text, true), c.displayPosition);
    for (bool parenthesized : {false, true}) {
      UTF16String text = c.text;
      StripDisplayString(text, parenthesized);
      EXPECT_EQ(text, parenthesized ? c.strippedWithParenthesized : c.stripped);
    }
  }
}

}  // namespace
