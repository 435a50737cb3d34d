#include <gtest/gtest.h>

#include <stdexcept>

#include "config/ErrorTestSupport.h"
#include "tvxcore/ZString.h"

namespace {

using tvxcore::ZString;
using tvxcore::config::Localizer;
using tvxtest::S;
using tvxtest::U;

// Every @n of the translated text (or the default text after "=") is filled,
// ^n and a lone @ stay, @@ is a literal @, and values are not searched again.
TEST(ZString, FillsEveryAtTokenOfTheTranslatedText) {
  static tvxtest::MapLocalizer localizer;  // outlives a failed check that skips the reset
  localizer.entries["$$$/tvxcore/filesupport/FileNotFound"] =
      "Die Datei \xE2\x80\x9E@0\xE2\x80\x9C wurde nicht gefunden.";
  Localizer::Set(&localizer);
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
      {"$$$/tvxcore/filesupport/FileNotFound=The file '@0' could not be found.",
       {"b\xC3\xA4r.txt"},
       "Die Datei \xE2\x80\x9E"
       "b\xC3\xA4r.txt\xE2\x80\x9C wurde nicht gefunden."},
  };
  for (const auto& c : cases) {
    std::vector<tvxcore::UTF16String> v(10);
    for (std::size_t i = 0; i < c.values.size(); ++i) v[i] = U(c.values[i]);
    EXPECT_EQ(S(ZString(c.key, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9])),
              c.expected)
        << c.key;
  }
  Localizer::Set(nullptr);
  try {
    ZString("$$$/tvxcore/t=x");
    ADD_FAILURE() << "ZString without a localizer must throw";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(),
                 "tvxcore::config::Localizer not initialized. Check tvxcore/config/Localizer.h.");
  }
}

}  // namespace
