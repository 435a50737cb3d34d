// The case functions against ICU, an independent implementation of the same
// Unicode data, over every code unit of the Basic Multilingual Plane. One
// unit at a time ICU's full mappings have no context to look at (a lone sigma
// is not final), so they are exactly the forms the library's table must hold.

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <string>

#include "support/UtilityTestSupport.h"
#include "tvxcore/utility/CaseMapping.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
namespace u = tvxcore::utility;
using tvxtest::Hex;

enum class IcuForm { kLower, kUpper, kFold };

UTF16String Icu(IcuForm inForm, const UTF16String& inText) {
  UChar out[64];
  UErrorCode status = U_ZERO_ERROR;
  const auto* in = reinterpret_cast<const UChar*>(inText.data());
  const auto length = static_cast<int32_t>(inText.size());
  int32_t n = 0;
  switch (inForm) {
    case IcuForm::kLower:
      n = u_strToLower(out, 64, in, length, "", &status);
      break;
    case IcuForm::kUpper:
      n = u_strToUpper(out, 64, in, length, "", &status);
      break;
    case IcuForm::kFold:
      n = u_strFoldCase(out, 64, in, length, U_FOLD_CASE_DEFAULT, &status);
      break;
  }
  EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
  return UTF16String(reinterpret_cast<const UTF16Char*>(out), static_cast<std::size_t>(n));
}

bool IsSurrogate(unsigned inUnit) { return inUnit >= 0xD800 && inUnit < 0xE000; }

TEST(CaseOracle, EveryBmpUnitMapsAsIcuFullMapping) {
  struct Form {
    IcuForm icu;
    UTF16String (*ours)(const UTF16String&);
    const char* name;
  };
  const Form forms[] = {{IcuForm::kLower, u::LowerCase, "lower"},
                        {IcuForm::kUpper, u::UpperCase, "upper"},
                        {IcuForm::kFold, u::FoldCase, "fold"}};
  for (const Form& form : forms) {
    int mismatches = 0;
    UTF16String all;
    UTF16String allExpected;
    for (unsigned c = 0; c < 0x10000; ++c) {
      if (IsSurrogate(c)) continue;
      const UTF16String unit(1, static_cast<UTF16Char>(c));
      const UTF16String expected = Icu(form.icu, unit);
      const UTF16String actual = form.ours(unit);
      if (actual != expected && ++mismatches <= 20) {
        ADD_FAILURE() << form.name << " of " << Hex(unit) << ": " << Hex(actual) << ", ICU "
                      << Hex(expected);
      }
      all += unit;
      allExpected += expected;
    }
    EXPECT_EQ(mismatches, 0) << form.name;
    // The whole plane as one text goes through the block-wise paths.
    const UTF16String actualAll = form.ours(all);
    EXPECT_TRUE(actualAll == allExpected) << form.name << " of the whole plane in one string";
  }
}

// A unit is a row of the table when ICU gives it any form other than itself,
// and only then; TitleCase shows it, since a row continues a word and any
// other unit begins one. A row whose upper form is one unit gives
// [upper, 'a'] before an 'A'; any other unit leaves the 'A' capital.
TEST(CaseOracle, TitleCaseTreatsExactlyTheUnitsIcuCanMapAsLetters) {
  int failures = 0;
  for (unsigned c = 0; c < 0x10000 && failures < 20; ++c) {
    if (IsSurrogate(c)) continue;
    const UTF16String unit(1, static_cast<UTF16Char>(c));
    const UTF16String upper = Icu(IcuForm::kUpper, unit);
    const bool hasCase =
        upper != unit || Icu(IcuForm::kLower, unit) != unit || Icu(IcuForm::kFold, unit) != unit;
    if (hasCase && upper.size() != 1) continue;  // shifting forms: see the public tests
    UTF16String expected = hasCase ? upper + u"a" : unit + u"A";
    const UTF16String actual = u::TitleCase(unit + u"A");
    if (actual != expected) {
      ++failures;
      ADD_FAILURE() << "title of " << Hex(unit + u"A") << ": " << Hex(actual) << ", expected "
                    << Hex(expected);
    }
  }
  EXPECT_EQ(failures, 0);
}

}  // namespace
