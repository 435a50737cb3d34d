#include <gtest/gtest.h>

#include <limits>

#include "config/ErrorTestSupport.h"
#include "tvxcore/Locale.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/TextStreams.h"

namespace {

using tvxcore::Locale;
using tvxcore::config::Localizer;
using tvxtest::U;

// Leaves the process as it found it: no localizer, no language.
class LocalizerTest : public ::testing::Test {
 protected:
  void SetUp() override { Locale::Initialize(tvxcore::UTF16String()); }
  void TearDown() override {
    Localizer::Set(nullptr);
    Locale::Initialize(tvxcore::UTF16String());
  }
  tvxtest::MapLocalizer localizer;
};

TEST_F(LocalizerTest, DictionaryLoadsFollowTheLanguage) {
  const auto& paths = localizer.loadedPaths;
  Localizer::Set(&localizer);
  EXPECT_EQ(Localizer::Get(), &localizer);
  EXPECT_TRUE(paths.empty()) << "no language yet, nothing to load";

  Locale::Initialize(U("de"));
  ASSERT_EQ(paths.size(), 1u);
  EXPECT_TRUE(paths[0].ends_with("/dict/tvx_de")) << paths[0];

  Localizer::LoadTVXDictionaries();
  Localizer::Set(nullptr);
  EXPECT_FALSE(Localizer::Initialized());
  Localizer::LoadTVXDictionaries();  // nothing installed: silent
  EXPECT_EQ(paths.size(), 2u) << "clearing the localizer loads nothing";

  Localizer::Set(&localizer);  // installing with a known language loads at once
  ASSERT_EQ(paths.size(), 3u);
  EXPECT_TRUE(paths[2].ends_with("/dict/tvx_de")) << paths[2];

  Locale::Initialize(U("fr_FR"));
  ASSERT_EQ(paths.size(), 4u);
  EXPECT_TRUE(paths[3].ends_with("/dict/tvx_fr_FR")) << paths[3];
}

TEST_F(LocalizerTest, LibraryTextsFollowTheInstalledLocalizer) {
  using tvxcore::utility::NumberToString;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(NumberToString(nan, 0, 2, 0, 32), U("nan")) << "default text before a localizer";
  localizer.entries["$$$/tvxui/controls/UI_NumberEdit/NANDisplayString"] = "keine Zahl";
  Localizer::Set(&localizer);
  EXPECT_EQ(NumberToString(nan, 0, 2, 0, 32), U("keine Zahl"));
}

TEST_F(LocalizerTest, TextStreamsUseTheDefaultLocale) {
  tvxcore::utility::oUTF16StringStream out;
  EXPECT_TRUE(out.getloc() == Locale::Default());
  out << 1234.5 << u' ' << -7;
  EXPECT_EQ(out.str(), U("1234.5 -7"));
}

}  // namespace
