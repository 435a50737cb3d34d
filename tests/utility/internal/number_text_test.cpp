// Number text with the separators fixed, so the results do not depend on the
// locale of the machine running the tests.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/NumberSeparators.h"

namespace {

using tvxcore::UTF16String;
using namespace tvxcore::utility;

class NumberText : public ::testing::Test {
 protected:
  void SetUp() override { internal::SetNumberSeparators({u'.', u','}); }
  void TearDown() override { internal::SetNumberSeparators({u'.', u','}); }
  static void German() { internal::SetNumberSeparators({u',', u'.'}); }
};

std::string Narrow(const UTF16String& s) {
  const auto u8 = UTF16to8(s);
  return std::string(u8.begin(), u8.end());
}

TEST_F(NumberText, FormatsWithEveryFlagCombinationAndRounding) {
  struct Case {
    double value;
    std::uint64_t minimumDigits;
    std::uint64_t fractionDigits;
    unsigned short flags;
    std::int32_t maximumLength;
    const char* expected;
  };
  const Case cases[] = {
      {-0.001, 0, 2, 0, 32, "0.00"},
      {-0.001, 0, 2, kNumberForcePlus | kNumberNoPlusOnZero, 32, "0.00"},
      {-0.006, 0, 2, 0, 32, "-0.01"},
      {0.125, 0, 2, 0, 32, "0.13"},
      {-2.5, 0, 0, 0, 32, "-3"},
      {-0.3, 0, 0, 0, 32, "-0"},  // not zero, so it keeps its sign
      {-0.0, 0, 0, kNumberForcePlus | kNumberNoPlusOnZero, 32, "0"},
      {0, 0, 0, kNumberForcePlus, 32, "+0"},
      {5, 0, 0, kNumberForcePlus, 32, "+5"},
      {5, 0, 0, kNumberLeadingBlank, 32, " 5"},
      {5, 0, 0, kNumberLeadingBlank | kNumberForcePlus, 32, "+5"},
      {-5, 0, 0, kNumberLeadingBlank, 32, "-5"},
      {12, 5, 0, 0, 32, "00012"},
      {12, 5, 0, kNumberPlainInput, 32, "   12"},
      {-12.5, 4, 1, 0, 32, "-0012.5"},
      {7, 4, 0, kNumberGroupThousands, 32, "0,007"},
      {123456, 0, 0, kNumberGroupThousands, 32, "123,456"},
      {1234567.891, 0, 2, kNumberGroupThousands, 32, "1,234,567.89"},
      {1.5, 0, 3, kNumberKeepCommas, 32, "1.5"},
      {2, 0, 2, kNumberKeepCommas, 32, "2"},
      {100, 0, 0, kNumberKeepCommas, 32, "100"},
      {1e10, 0, 0, kNumberKeepCommas, 32, "1.000000e+10"},  // no trimming of exponent form
      {123456, 0, 0, 0, 7, "123456"},
      {123456, 0, 0, 0, 6, "1e+05"},
      {1234567890123.5, 0, 1, 0, 13, "1.234568e+12"},
      {12, 2000000, 0, 0, 32, "1.200000e+01"},    // the padding would not fit
      {-1e300, 0, 400, 0, 32, "-1.000000e+300"},  // many fraction digits
      {std::numeric_limits<double>::infinity(), 0, 0, 0, 32, "inf"},
      {std::nan(""), 0, 2, 0, 32, "nan"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Narrow(NumberToString(c.value, c.minimumDigits, c.fractionDigits, c.flags,
                                    c.maximumLength)),
              c.expected)
        << c.value << " min " << c.minimumDigits << " fraction " << c.fractionDigits << " flags "
        << c.flags << " max " << c.maximumLength;
  }
}

TEST_F(NumberText, UsesTheUserSeparatorsUnlessRawOutput) {
  German();
  EXPECT_EQ(NumberToString(1234.5, 0, 1, 0, 32), u"1234,5");
  EXPECT_EQ(NumberToString(1234.5, 0, 1, kNumberGroupThousands, 32), u"1.234,5");
  EXPECT_EQ(NumberToString(1234.5, 0, 1, kNumberGroupThousands | kNumberRawOutput, 32), u"1,234.5");
  UTF16String text = u"1,234.5 x. 2.";
  InternationalizeNum(text);
  EXPECT_EQ(text, u"1.234,5 x. 2.");  // only before a digit, never the last unit
  text = u"1.234,5";
  DeInternationalizeNum(text);
  EXPECT_EQ(text, u"1,234.5");
  EXPECT_DOUBLE_EQ(StringToNumber(u"1.234,5", 0), 1234.5);
  EXPECT_DOUBLE_EQ(StringToNumber(u"1.234,5", kNumberPlainInput), 1.2345);
  EXPECT_DOUBLE_EQ(Calculate(u"1,5*2", 0), 3);
}

TEST_F(NumberText, FoldsFullWidthIdeographicAndArabicIndicForms) {
  UTF16String text = u"\uFF11\uFF12\u3002\uFF15\u2212\u3000\u3001\u0661\u0669\uFF41\uFF5E\uFF5F";
  ConvertFullWidthAndIdeographicCharacters(text);
  EXPECT_EQ(text, u"12.5- ,19a~\uFF5F");
  UTF16String narrow = u"\uFF11\uFF41\uFF1F\uFF20";
  EXPECT_TRUE(ToNumericCase(narrow));
  EXPECT_EQ(narrow, u"1\uFF41?\uFF20");  // only U+FF01 to U+FF1F move
  UTF16String plain = u"abc";
  EXPECT_FALSE(ToNumericCase(plain));
  UTF16String fullWidth = u"x\uFF17";
  EXPECT_TRUE(HasNumericChars(fullWidth, 0));
  EXPECT_FALSE(HasNumericChars(fullWidth, kNumberPlainInput));
  EXPECT_EQ(fullWidth, u"x\uFF17");  // not modified
  UTF16String none = u"abc";
  EXPECT_FALSE(HasNumericChars(none, 0));
}

TEST_F(NumberText, ParsesTheLongestLeadingNumberAndNeverThrows) {
  struct Case {
    UTF16String text;
    unsigned short flags;
    double expected;
  };
  const Case cases[] = {
      {u"12.5abc", 0, 12.5},
      {u"1,234.5", 0, 1234.5},
      {u"1,234", kNumberKeepCommas, 1},
      {u"\uFF11\uFF12", 0, 12},
      {u"\uFF11\uFF12", kNumberPlainInput, 0},
      {u"+.5", 0, 0.5},
  };
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(StringToNumber(c.text, c.flags), c.expected) << Narrow(c.text);
  }
  EXPECT_FALSE(std::isnan(StringToNumber(u"1e999", 0)));
  const auto parse = [](auto start, const char16_t* text) {
    StringToNumber(start, text, 0);
    return start;
  };
  EXPECT_EQ(parse(std::int32_t{5}, u"-17x"), -17);
  EXPECT_EQ(parse(std::int32_t{5}, u"nothing"), 0);  // a failed reading gives 0
  EXPECT_EQ(parse(std::uint64_t{0}, u"18446744073709551615"),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parse(std::int64_t{0}, u"-9,000,000,000"), -9000000000);
  EXPECT_EQ(parse(0.0f, u"0.25"), 0.25f);
  EXPECT_EQ(parse(5.0, u"- 5"), 0);  // a sign stands right before the digits
  EXPECT_EQ(parse(std::uint32_t{0}, u"4000000000"), 4000000000u);
}

TEST_F(NumberText, HexParsingAndValidation) {
  struct Case {
    UTF16String text;
    std::int32_t asSigned;
    std::uint32_t asUnsigned;
  };
  const Case cases[] = {
      {u"ff", 255, 255},
      {u"0x7FFFFFFF", 0x7FFFFFFF, 0x7FFFFFFF},
      {u"80000000", 0x7FFFFFFF, 0x80000000u},
      {u"-10", -16, 0xFFFFFFF0u},
      {u"1FFFFFFFF", 0x7FFFFFFF, 0xFFFFFFFFu},
      {u"zz", 0, 0},
      {u"  a!b", 10, 10},
      // Signs as the C library reads them: one, right before the digits.
      {u"- 5", 0, 0},
      {u"\t+0x1f", 31, 31},
      {u"-0x80000000", std::numeric_limits<std::int32_t>::min(), 0x80000000u},
      {u"-FFFFFFFF", std::numeric_limits<std::int32_t>::min(), 1u},
      {u"-100000000", std::numeric_limits<std::int32_t>::min(), 0xFFFFFFFFu},
      {u"0x", 0, 0},
      {u"-0xg", 0, 0},
  };
  for (const auto& c : cases) {
    std::int32_t s = 1;
    std::uint32_t u = 1;
    HexStringToNumber(s, c.text);
    HexStringToNumber(u, c.text);
    EXPECT_EQ(s, c.asSigned) << Narrow(c.text);
    EXPECT_EQ(u, c.asUnsigned) << Narrow(c.text);
  }
  UTF16String text = u"0x1a-Fg \u00E9Z9";
  ValidateForHex(text);
  EXPECT_EQ(text, u"01AF9");
}

// The split order holds for texts of any length or nesting.
TEST_F(NumberText, CalculateFollowsItsFixedSplitOrderWithoutLimitOfLengthOrNesting) {
  const auto repeat = [](const char16_t* unit, int count) {
    UTF16String text;
    for (int i = 0; i < count; ++i) text += unit;
    return text;
  };
  const auto chain = [&](int terms, const char16_t* op) { return u"1" + repeat(op, terms - 1); };
  struct Case {
    UTF16String text;
    double expected;
  };
  const Case cases[] = {
      {u"(1+2)*3", 9},
      {u"10/0", 10},
      {u"-5", -5},
      {u"", 0},
      {u"1+2e3", 3000},       // "e" binds loosest
      {u"2/3*4", 8.0 / 3.0},  // split at "*": (2/3)*4
      {u"2^3^2", 64},         // left to right
      {u"10-2-3", 5},
      {u"2*-3", -3},  // the "-" splits first: (2*0)-3
      {u"e5", 5},     // no left operand: the "e" is dropped
      {u"1+e5", 6},   // after an operator: dropped
      {u"e(3)", 0},   // the part left after the drop keeps its parentheses
      {u"2+e(3)", 5},
      {u"2**3", 6},  // the second "*" is dropped
      {u"(((4)))", 4},
      {u"(1)+(2)", 3},  // the outer pair is not one group
      {u"abc7x", 7},
      {u"1,000+1", 1001},
      {u"\uFF13\uFF0A\uFF14", 12},  // full-width digits and "*"
      {repeat(u"(", 200000) + u"1" + repeat(u")", 200000), 1},
      {chain(300000, u"-1"), -299998},
      {chain(100000, u"*1"), 1},
      {u"2" + repeat(u"^1", 100000), 2},
      {u"1" + repeat(u"e0", 100000), 1},
      {repeat(u"1+(", 100000) + u"1" + repeat(u")", 100000), 100001},   // deep on the right
      {repeat(u"(", 100000) + u"1" + repeat(u"+1)", 100000), 100001},   // deep on the left
      {repeat(u"-(", 100001) + u"5" + repeat(u")", 100001), -5},        // unary signs
      {repeat(u"2*(", 1000) + u"1" + repeat(u")/2", 1000), 1},          // all kinds nested
      {repeat(u"((", 50000) + u"3" + repeat(u")", 100000) + u"*2", 6},  // pairs stripped
  };
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(Calculate(c.text, 0), c.expected) << Narrow(c.text.substr(0, 40));
  }
  EXPECT_DOUBLE_EQ(Calculate(u"1,000+1", kNumberKeepCommas), 2);
}

}  // namespace
