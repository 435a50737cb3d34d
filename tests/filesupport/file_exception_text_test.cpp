#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "config/ErrorTestSupport.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/FileExceptionText.h"

namespace {

using namespace tvxcore::filesupport;
using tvxcore::UTF16String;
using tvxcore::config::Localizer;
using tvxtest::S;
using tvxtest::U;

struct Row {
  std::function<void()> raise;
  const char* english;  // with no localizer
  const char* german;   // with the dictionary below
};

// Every family of the file and directory exceptions, with paths that hold the
// marker characters themselves: a path is put in once and never rescanned.
const Row kRows[] = {
    {[] { throw file_exception(File(U("/d/a@1.txt"))); }, "Error with file: '/d/a@1.txt'.",
     "Fehler mit der Datei: „/d/a@1.txt“."},
    {[] { throw create_invalidpath_exception(File(U("/no/dir/x"))); },
     "Could not create the file '/no/dir/x'. The path is not valid.",
     "Die Datei „/no/dir/x“ konnte nicht erstellt werden. Der Pfad ist ungültig."},
    {[] { throw file_not_found_exception(File(U("/tmp/straße"))); },
     "The file '/tmp/straße' could not be found.", "Die Datei „/tmp/straße“ wurde nicht gefunden."},
    {[] { throw rename_file(File(U("/d/old")), U("new @0")); },
     "Could not rename the file '/d/old' to 'new @0'.",
     "Could not rename the file '/d/old' to 'new @0'."},
    {[] { throw file_exception(File(U("/d/x")), "$$$/tvxcore/test/nodefault"); },
     "$$$/tvxcore/test/nodefault", "$$$/tvxcore/test/nodefault"},
    {[] { throw dir_not_found_exception(Dir(U("/d/sub/"))); },
     "The directory '/d/sub' could not be found.", "Der Ordner „/d/sub“ wurde nicht gefunden."},
    {[] { throw rename_dir_already_exists(Dir(U("/d/a")), U("b")); },
     "Could not rename the directory '/d/a' to 'b'. The directory already exists.",
     "Der Ordner „/d/a“ konnte nicht in „b“ umbenannt werden. Der Ordner existiert bereits."},
};

class LocalizedMessageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    german.entries["$$$/tvxcore/filesupport/error"] = "Fehler mit der Datei: „@0“.";
    german.entries["$$$/tvxcore/filesupport/Create/invalidpath"] =
        "Die Datei „@0“ konnte nicht erstellt werden. Der Pfad ist ungültig.";
    german.entries["$$$/tvxcore/filesupport/FileNotFound"] = "Die Datei „@0“ wurde nicht gefunden.";
    german.entries["$$$/tvxcore/filesupport/DirNotFound"] = "Der Ordner „@0“ wurde nicht gefunden.";
    german.entries["$$$/tvxcore/filesupport/DirRename/exists"] =
        "Der Ordner „@0“ konnte nicht in „@1“ umbenannt werden. Der Ordner existiert bereits.";
  }
  void TearDown() override { Localizer::Set(nullptr); }

  // The text of the exception that `raise` throws, through the typed overload
  // and through the one that takes any exception; both must agree.
  static std::string TextOf(const std::function<void()>& raise) {
    try {
      raise();
    } catch (const file_exception& e) {
      return Agreed(LocalizedMessage(e), e);
    } catch (const dir_exception& e) {
      return Agreed(LocalizedMessage(e), e);
    }
    ADD_FAILURE() << "nothing thrown";
    return std::string();
  }
  static std::string Agreed(const UTF16String& typed, const std::exception& e) {
    UTF16String any = U("unchanged");
    EXPECT_TRUE(LocalizedMessage(e, any));
    EXPECT_EQ(S(any), S(typed));
    return S(typed);
  }

  tvxtest::MapLocalizer german;
};

TEST_F(LocalizedMessageTest, DefaultTextWithoutLocalizerAndTranslationWithOne) {
  ASSERT_FALSE(Localizer::Initialized());
  for (const Row& row : kRows) EXPECT_EQ(TextOf(row.raise), row.english);
  Localizer::Set(&german);
  for (const Row& row : kRows) EXPECT_EQ(TextOf(row.raise), row.german);
}

TEST_F(LocalizedMessageTest, OtherExceptionsAreLeftAlone) {
  UTF16String text = U("unchanged");
  EXPECT_FALSE(LocalizedMessage(io_error(), text));
  EXPECT_FALSE(LocalizedMessage(std::runtime_error("x"), text));
  EXPECT_EQ(S(text), "unchanged");
}

}  // namespace
