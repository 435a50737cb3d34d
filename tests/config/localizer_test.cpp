#include <gtest/gtest.h>

#include "config/ErrorTestSupport.h"
#include "tvxcore/Locale.h"
#include "tvxcore/config/Localizer.h"

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
