#include <gtest/gtest.h>

#include <locale>

#include "support/TempDirFixture.h"
#include "tvxcore/Locale.h"
#include "tvxcore/utility/HostInfo.h"

namespace {

using tvxcore::Locale;
using tvxcore::UTF16String;
using tvxtest::U;

TEST(Locale, LanguageIsEnglishUntilInitialized) {
  Locale::Initialize(U("de"));
  EXPECT_TRUE(Locale::IsInitialized());
  EXPECT_TRUE(Locale::ApplicationLangauge() == U("de"));
  EXPECT_TRUE(std::locale() == Locale::Default()) << "Initialize makes Default() global";

  Locale::Initialize(UTF16String());
  EXPECT_FALSE(Locale::IsInitialized());
  EXPECT_TRUE(Locale::ApplicationLangauge() == U("en_US"));
}

TEST(Locale, DefaultIsTheClassicLocaleKeptFromFirstUse) {
  const std::locale& first = Locale::Default();
  EXPECT_EQ(&first, &Locale::Default());
  const auto& punct = std::use_facet<std::numpunct<char>>(first);
  EXPECT_EQ(punct.decimal_point(), '.');
  EXPECT_TRUE(punct.grouping().empty());
}

TEST(Locale, DisplayStringsReadAsNumbers) {
  // The test environment's own locale reads plain decimals like the classic
  // one, so these hold in any locale with "." as its decimal point.
  const struct {
    const char* text;
    double value;
  } cases[] = {
      {"", 0}, {"12.5", 12.5}, {"abc", 0}, {"42 apples", 42}, {"\xC3\xA4", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Locale::GetValueFromDisplayString(U(c.text)), c.value) << c.text;
  }
}

TEST(HostInfo, MachineFactsArePlausible) {
  EXPECT_GE(tvxcore::utility::CPUCount(), 1u);
  EXPECT_GT(tvxcore::utility::TotalPhysicalMemory(), 16ull << 20);
  EXPECT_EQ(tvxcore::utility::TotalPhysicalMemory() % 4096, 0u) << "whole pages";
}

}  // namespace
