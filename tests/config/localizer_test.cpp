#include <gtest/gtest.h>

#include "config/ErrorTestSupport.h"
#include "tvxcore/Locale.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/TextStreams.h"

#include <limits>

namespace {

using tvxcore::Locale;
using tvxcore::config::Localizer;
using tvxtest::MapLocalizer;
using tvxtest::S;
using tvxtest::U;

// Leaves the process as it found it: no localizer, no language.
class LocalizerTest : public ::testing::Test {
 protected:
  void SetUp() override { Locale::Initialize(tvxcore::UTF16String()); }
  void TearDown() override {
    Localizer::Set(nullptr);
    Locale::Initialize(tvxcore::UTF16String());
  }
  MapLocalizer localizer;
};

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(LocalizerTest, DictionaryLoadsFollowTheLanguage) {
  Localizer::Set(&localizer);
  EXPECT_TRUE(Localizer::Initialized());
  EXPECT_EQ(Localizer::Get(), &localizer);
  EXPECT_TRUE(localizer.loadedPaths.empty()) << "no language yet, nothing to load";

  Locale::Initialize(U("de"));
  ASSERT_EQ(localizer.loadedPaths.size(), 1u);
  EXPECT_TRUE(EndsWith(localizer.loadedPaths[0], "/dict/tvx_de")) << localizer.loadedPaths[0];

  Localizer::LoadTVXDictionaries();
  Localizer::Set(nullptr);
  EXPECT_FALSE(Localizer::Initialized());
  Localizer::LoadTVXDictionaries();  // nothing installed: silent
  EXPECT_EQ(localizer.loadedPaths.size(), 2u) << "clearing the localizer loads nothing";

  Localizer::Set(&localizer);  // installing with a known language loads at once
  ASSERT_EQ(localizer.loadedPaths.size(), 3u);
  EXPECT_TRUE(EndsWith(localizer.loadedPaths[2], "/dict/tvx_de"));

  Locale::Initialize(U("fr_FR"));
  ASSERT_EQ(localizer.loadedPaths.size(), 4u);
  EXPECT_TRUE(EndsWith(localizer.loadedPaths[3], "/dict/tvx_fr_FR"));
}

}  // namespace

TEST_F(LocalizerTest, LibraryTextsFollowTheInstalledLocalizer) {
  using tvxcore::utility::NumberToString;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(NumberToString(nan, 0, 2, 0, 32), U("nan")) << "default text before a localizer";
  localizer.entries["$$$/tvxui/controls/UI_NumberEdit/NANDisplayString"] = "keine Zahl";
  Localizer::Set(&localizer);
  const auto translated = NumberToString(nan, 0, 2, 0, 32);
  Localizer::Set(nullptr);
  EXPECT_EQ(translated, U("keine Zahl"));
}

TEST_F(LocalizerTest, TextStreamsUseTheDefaultLocale) {
  tvxcore::utility::oUTF16StringStream out;
  EXPECT_TRUE(out.getloc() == tvxcore::Locale::Default());
  out << 1234.5 << u' ' << -7;
  EXPECT_EQ(out.str(), U("1234.5 -7"));
}
