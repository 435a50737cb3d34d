#include <gtest/gtest.h>

#include <stdexcept>

#include "config/ErrorTestSupport.h"
#include "tvxcore/ZString.h"

namespace {

using tvxcore::ZString;
using tvxcore::config::Localizer;
using tvxtest::MapLocalizer;
using tvxtest::S;
using tvxtest::U;

class ZStringTest : public ::testing::Test {
 protected:
  void TearDown() override { Localizer::Set(nullptr); }
  MapLocalizer localizer;
};

TEST_F(ZStringTest, ZStringFillsEveryAtTokenOfTheTranslatedText) {
  Localizer::Set(&localizer);
  const auto z = [](const char* key, const std::vector<std::string>& values) {
    std::vector<tvxcore::UTF16String> v(10);
    for (std::size_t i = 0; i < values.size(); ++i) v[i] = U(values[i]);
    return S(ZString(key, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9]));
  };
  const struct {
    const char* key;
    std::vector<std::string> values;
    const char* expected;
  } cases[] = {
      {"$$$/tvxcore/t=100@@", {}, "100@"},
      {"$$$/tvxcore/t=a@", {}, "a@"},
      {"$$$/tvxcore/t=@x", {}, "@x"},
      {"$$$/tvxcore/t=@3@3", {"", "", "", "z"}, "zz"},
      {"$$$/tvxcore/t=[@9]", {"a", "b", "c", "d", "e", "f", "g", "h", "i", ""}, "[]"},
      {"$$$/tvxcore/t=@0 and @0", {"x"}, "x and x"},
      {"$$$/tvxcore/t=@0", {"@1", "never"}, "@1"},
      {"$$$/tvxcore/t=@9@8@1@0", {"0", "1", "", "", "", "", "", "", "8", "9"}, "9810"},
      {"$$$/tvxcore/t=^1 stays", {"x"}, "^1 stays"},
      {"$$$/tvxcore/filesupport/Delete=Could not delete the file '@0'.",
       {"/tmp/a b"},
       "Could not delete the file '/tmp/a b'."},
  };
  for (const auto& c : cases) EXPECT_EQ(z(c.key, c.values), c.expected) << c.key;
}

TEST_F(ZStringTest, ZStringUsesTheDictionaryAndFallsBackToTheDefault) {
  localizer.entries["$$$/tvxcore/filesupport/FileNotFound"] =
      "Die Datei \xE2\x80\x9E@0\xE2\x80\x9C wurde nicht gefunden.";
  Localizer::Set(&localizer);
  EXPECT_EQ(S(ZString("$$$/tvxcore/filesupport/FileNotFound=The file '@0' "
                      "could not be found.",
                      U("b\xC3\xA4r.txt"))),
            "Die Datei \xE2\x80\x9E"
            "b\xC3\xA4r.txt\xE2\x80\x9C wurde nicht gefunden.");
  EXPECT_EQ(S(ZString("$$$/tvxcore/filesupport/DirNotFound=The directory '@0' "
                      "could not be found.",
                      U("d"))),
            "The directory 'd' could not be found.");

  Localizer::Set(nullptr);
  try {
    ZString("$$$/tvxcore/t=x");
    ADD_FAILURE() << "ZString without a localizer must throw";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(),
                 "tvxcore::config::Localizer not initialized. Check "
                 "tvxcore/config/Localizer.h.");
  }
}

}  // namespace
