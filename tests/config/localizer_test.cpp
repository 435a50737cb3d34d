#include <gtest/gtest.h>

#include <limits>

#include "config/ErrorTestSupport.h"
#include "tvxcore/Locale.h"
#include "tvxcore/ZString.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/TextStreams.h"

namespace {

using tvxcore::Locale;
using tvxcore::ZString;
using tvxcore::config::Localizer;
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

// Each @n of the translated text takes the n-th value, by the rules of
// utility::ReplaceInString.
TEST_F(LocalizerTest, ZStringFillsEveryAtTokenOfTheTranslatedText) {
  localizer.entries["$$$/tvxcore/filesupport/FileNotFound"] =
      "Die Datei \xE2\x80\x9E@0\xE2\x80\x9C wurde nicht gefunden.";
  Localizer::Set(&localizer);
  EXPECT_EQ(S(ZString("$$$/tvxcore/filesupport/FileNotFound=The file '@0' could not be found.",
                      U("b\xC3\xA4r.txt"))),
            "Die Datei \xE2\x80\x9E"
            "b\xC3\xA4r.txt\xE2\x80\x9C wurde nicht gefunden.");
  EXPECT_EQ(S(ZString("$$$/tvxcore/t=@9@8@7@6@5@4@3@2@1@0 @0", U("0"), U("1"), U("2"), U("3"),
                      U("4"), U("5"), U("6"), U("7"), U("8"), U("9"))),
            "9876543210 0");
}

}  // namespace
