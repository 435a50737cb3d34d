// Paths in Windows form, as recorded on Windows: pure string rules.
#include <gtest/gtest.h>

#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
namespace fu = tvxcore::utility::FileUtils;

TEST(WindowsPath, NormalFormOfFilesAndDirectories) {
  struct Row {
    const char16_t* in;
    const char16_t* file;
    const char16_t* dir;
  };
  const Row rows[] = {
      {u"", u"", u""},
      {u"C:/a//b\\\\c", u"C:\\a\\b\\c", u"C:\\a\\b\\c"},
      {u"\\\\?\\C:\\a", u"C:\\a", u"C:\\a"},
      {u"\\\\?\\UNC\\srv\\share", u"\\\\srv\\share", u"\\\\srv\\share"},
      {u"//srv//share/", u"\\\\srv\\share\\", u"\\\\srv\\share\\"},  // "/" isn't dropped
      {u"\\\\srv\\share\\", u"\\\\srv\\share\\", u"\\\\srv\\share"},
      {u"\\\\\\srv", u"\\\\srv", u"\\\\srv"},
      {u"C:\\dir\\\\", u"C:\\dir\\", u"C:\\dir\\"},  // one removed, then the run cut
      {u"a\\\\b", u"a\\b", u"a\\b"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(NormalizeWindowsPath(row.in, false), row.file) << tvxtest::N(row.in);
    EXPECT_EQ(NormalizeWindowsPath(row.in, true), row.dir) << tvxtest::N(row.in);
  }
  EXPECT_TRUE(IsPathDriveLetter(NormalizeWindowsPath(u"C:\\", true)));
  EXPECT_FALSE(IsPathDriveLetter(u"C:\\"));
  EXPECT_FALSE(IsPathDriveLetter(u"C"));
  EXPECT_TRUE(IsPathDriveLetter(u"1:"));  // the letter isn't checked
}

TEST(WindowsPath, LongFormAndExtendedForm) {
  struct Row {
    const char16_t* in;
    const char16_t* prepared;
    const char16_t* extended;
  };
  const Row rows[] = {
      {u"C:\\a", u"\\\\?\\C:\\a", u"\\\\?\\C:\\a"},
      {u"\\\\srv\\share\\f", u"\\\\?\\UNC\\srv\\share\\f", u"\\\\?\\UNC\\srv\\share\\f"},
      {u"\\\\srv", u"\\\\?\\\\\\srv", u"\\\\?\\UNC\\srv"},  // no further backslash: not UNC
      {u"rel\\x", u"\\\\?\\rel\\x", u"rel\\x"},
      {u"\\\\?\\C:\\x", u"\\\\?\\UNC\\?\\C:\\x", u"\\\\?\\C:\\x"},
      {u"a\\\\b", u"\\\\?\\a\\\\b", u"\\\\?\\UNC\\\\b"},  // first unit replaced, as the rule says
  };
  for (const Row& row : rows) {
    EXPECT_EQ(PrepAsLongPathName(row.in), row.prepared) << tvxtest::N(row.in);
    EXPECT_EQ(fu::ExtendedPathForm(row.in), row.extended) << tvxtest::N(row.in);
  }
}

TEST(WindowsPath, VolumeOfDrivesAndShares) {
  struct Row {
    const char16_t* in;
    const char16_t* volume;  // empty: none
  };
  const Row rows[] = {
      {u"\\\\srv\\share\\dir\\f", u"\\\\srv\\share"},
      {u"\\\\srv\\share", u"\\\\srv\\share"},
      {u"\\\\srv\\", u""},  // the backslash after the server is the last unit
      {u"\\\\srv", u""},
      {u"C:\\x", u"C:"},
      {u"c:", u"c:"},
      {u"1:\\x", u""},
      {u"", u""},
  };
  for (const Row& row : rows) {
    UTF16String out = u"junk";
    EXPECT_EQ(fu::GetWindowsVolumePath(row.in, out), row.volume[0] != 0) << tvxtest::N(row.in);
    EXPECT_EQ(out, row.volume) << tvxtest::N(row.in);
    UTF16String viaGeneral;
    fu::GetVolumePath(row.in, viaGeneral);
    EXPECT_EQ(viaGeneral, row.volume);
  }
  EXPECT_TRUE(fu::IsRoot(u"C:"));
  EXPECT_FALSE(fu::IsRoot(u"C:\\x"));
  EXPECT_TRUE(fu::OnSameVolume(u"\\\\srv\\share\\a", u"\\\\srv\\share\\b\\c"));
  EXPECT_FALSE(fu::OnSameVolume(u"C:\\a", u"D:\\a"));
}

TEST(WindowsPath, DriveLettersAndHostStrings) {
  EXPECT_EQ(fu::GetDriveLetterForPath(u"1:"), u'1');
  EXPECT_EQ(fu::GetDriveLetterForPath(u"d:\\x"), u'd');
  EXPECT_EQ(fu::GetDriveLetterForPath(u"d"), 0);
  EXPECT_EQ(fu::GetDriveLetterForPath(u"/d:"), 0);
  for (UTF16Char unit : {u'A', u'Z', u'a', u'z'}) EXPECT_TRUE(fu::IsDriveLetter(unit));
  for (UTF16Char unit : {u'@', u'[', u'`', u'{', u'1', UTF16Char(0xC4)})
    EXPECT_FALSE(fu::IsDriveLetter(unit));
  EXPECT_EQ(fu::CreateServerHostString(u"srv", u"share"), u"\\\\srv\\share");
  UTF16String share;
  EXPECT_EQ(fu::GetPathVolumeHostName(u"\\\\srv\\music\\a\\b.mp3", &share, false), u"srv");
  EXPECT_EQ(share, u"music");
  EXPECT_EQ(fu::GetPathVolumeHostName(u"Q:\\x", nullptr, false), u"");  // no drives here
  EXPECT_FALSE(fu::IsFloppyDrive(u'A'));
}
