// File and Dir as values on native paths, and every way their operations fail;
// paths in Windows form, as recorded on Windows: pure string rules.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <source_location>
#include <string>
#include <typeinfo>

#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::U;
namespace fu = tvxcore::utility::FileUtils;

namespace {

class FileTest : public tvxtest::TempDirTest {};

// `bit` unless `call` throws exactly `Expected`; 0 when it does.
template <typename Expected>
int BitUnlessThrown(int bit, const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& e) {
    if (typeid(e) == typeid(Expected)) return 0;
  }
  return bit;
}

// Runs `call`, which must throw exactly `Expected`, whose text is the key
// "$$$/tvxcore/filesupport/<key>" with its default text.
template <typename Expected>
void ExpectFailure(const char* key, const std::function<void()>& call,
                   std::source_location at = std::source_location::current()) {
  try {
    call();
    ADD_FAILURE() << "line " << at.line() << ": nothing thrown";
  } catch (const std::exception& e) {
    const std::string text = e.what();
    EXPECT_EQ(typeid(e), typeid(Expected)) << "line " << at.line() << ": " << text;
    static const std::map<std::string, std::string> kDefaults = {
        {"Create/accessdenied", "Could not create the file '@0'. Access was denied."},
        {"Create/fnf", "Could not create the file '@0'. The file could not be found."},
        {"Create/invalidpath", "Could not create the file '@0'. The path is not valid."},
        {"Create", "Could not create the file '@0'."},
        {"Delete", "Could not delete the file '@0'."},
        {"Rename", "Could not rename the file '@0' to '@1'."},
        {"FileNotFound", "The file '@0' could not be found."},
        {"error", "Error with file: '@0'."},
        {"DirCreate",
         "The directory '@0' could not be created. Please check the parent directory protection or "
         "permission rights."},
        {"DirDelete", "Could not delete the directory '@0'."},
        {"DirRename/exists",
         "Could not rename the directory '@0' to '@1'. The directory already exists."},
        {"DirRename", "Could not rename the directory '@0' to '@1'."},
        {"DirNotFound", "The directory '@0' could not be found."},
        {"Dir/error", "Error with Directory: '@0'."},
    };
    EXPECT_EQ(text, "$$$/tvxcore/filesupport/" + std::string(key) + "=" + kDefaults.at(key))
        << "line " << at.line();
  }
}

}  // namespace

TEST(FilePath, NormalFormCollapsesSlashesAndDirDropsOneTrailingSlash) {
  struct Row {
    const char16_t *in, *file, *dir;
  };
  const Row rows[] = {
      {u"", u"", u""},
      {u"//", u"/", u"/"},
      {u"/a//b///c", u"/a/b/c", u"/a/b/c"},
      {u"/a/b/", u"/a/b/", u"/a/b"},
      {u"/a/b//", u"/a/b/", u"/a/b"},
      {u"C:\\a\\\\b", u"C:\\a\\\\b", u"C:\\a\\\\b"},  // a backslash is a name character
  };
  for (const Row& row : rows) {
    EXPECT_EQ(File(UTF16String(row.in)).FullPath(), row.file) << tvxtest::N(row.in);
    EXPECT_EQ(Dir(UTF16String(row.in)).FullPath(), row.dir) << tvxtest::N(row.in);
  }
  EXPECT_EQ(File(Dir(UTF16String(u"/a/")), u"b.txt").FullPath(), u"/a/b.txt");
  EXPECT_EQ(Dir(Dir(UTF16String(u"/")), u"usr").FullPath(), u"/usr");
  EXPECT_EQ(FileHelper(std::string("/x//caf\xC3\xA9")).Path(), u"/x/caf\u00E9");
  EXPECT_EQ(File(UTF16String(u"/x/caf\u00E9")).FullPathMultiByte(), "/x/caf\xC3\xA9");
}

TEST(FilePath, NamesTitlesExtensionsAndParents) {
  const File file(UTF16String(u"/data/my.dir/Report.Final.\u00C9XT"));
  EXPECT_EQ(file.GetName(), u"Report.Final.\u00C9XT");
  EXPECT_EQ(file.GetTitle(), u"Report.Final");
  EXPECT_EQ(file.GetExtension(false), u".\u00C9XT");
  EXPECT_EQ(file.GetExtension(true), u".\u00E9xt");
  EXPECT_EQ(file.Parent().FullPath(), u"/data/my.dir");
  EXPECT_EQ(Dir(UTF16String(u"/usr/share.d")).GetName(), u"share.d");
  EXPECT_EQ(Dir(UTF16String(u"/usr/share")).Parent().FullPath(), u"/usr");
  EXPECT_TRUE(Dir(UTF16String(u"/")).IsTopLevelDir());
  EXPECT_TRUE(Dir(UTF16String(u"alone")).IsTopLevelDir());
  EXPECT_FALSE(Dir(UTF16String(u"/usr")).IsTopLevelDir());
}

TEST(FilePath, EqualityIgnoresCaseWidthAndKana) {
  EXPECT_EQ(File(UTF16String(u"/d/A.TXT")), File(UTF16String(u"/d/a.txt")));
  EXPECT_EQ(File(UTF16String(u"/d/\uFF21\uFF22")), File(UTF16String(u"/d/ab")));  // full width
  EXPECT_EQ(File(UTF16String(u"/d/\u30AB")), File(UTF16String(u"/d/\u304B")));    // katakana ka
  EXPECT_NE(File(UTF16String(u"/d/a.txt")), File(UTF16String(u"/d/b.txt")));
  EXPECT_EQ(Dir(UTF16String(u"/D/")), Dir(UTF16String(u"/d")));
  EXPECT_EQ(CompareFileNames(u"a", u"B"), -1);
  EXPECT_EQ(CompareFileNames(u"b", u"A"), 1);
  EXPECT_EQ(CompareFileNames(u"Stra\u00DFe", u"STRASSE"), 0);
}

TEST(FilePath, CopiesAreIndependentValuesAlsoWhenEmpty) {
  File a(UTF16String(u"/one")), b = a, empty, emptyCopy(empty);
  b = File(UTF16String(u"/two"));
  File moved = std::move(b);
  b = a;  // a moved-from File takes a new value
  EXPECT_EQ(moved.FullPath(), u"/two");
  EXPECT_EQ(b.FullPath(), u"/one");
  // Empty values share nothing with what they are copied to or from.
  emptyCopy = a;
  EXPECT_EQ(emptyCopy.FullPath(), u"/one");
  emptyCopy = empty;
  emptyCopy = emptyCopy;
  EXPECT_EQ(emptyCopy, File(UTF16String()));
  emptyCopy.Helper() = FileHelper(UTF16String(u"/three"));
  EXPECT_EQ(emptyCopy.FullPath(), u"/three");
  EXPECT_EQ(empty.FullPath(), u"");
  EXPECT_EQ(a.FullPath(), u"/one");
}

TEST_F(FileTest, CreateSizeReadOnlyAndDelete) {
  File file(Path("new.bin"));
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(file.Size(), 0u);  // missing: 0, no exception
  EXPECT_FALSE(file.IsReadOnly());
  file.Create(true);
  Write("new.bin", "12345");
  for (auto selector : {kFileSize_Logical, kFileSize_DataFork, kFileSize_Physical, kFileSize_Total})
    EXPECT_EQ(file.Size(selector), 5u);
  EXPECT_EQ(file.Size(kFileSize_ResourceFork), 0u);
  EXPECT_EQ(file.Size(static_cast<FileSizeSelector>(42)), 0u);
  EXPECT_FALSE(file.IsReadOnly());
  std::filesystem::permissions(
      root_ / "new.bin", std::filesystem::perms::owner_read | std::filesystem::perms::group_read);
  EXPECT_TRUE(file.IsReadOnly());
  file.Create(false);  // empties it
  EXPECT_EQ(file.Size(), 0u);
  file.Delete();
  EXPECT_FALSE(OnDisk("new.bin"));
  MakeDir("d");
  EXPECT_TRUE(File(Path("d")).Exists());  // a directory exists as a File
  EXPECT_TRUE(Dir(Path("d")).Exists());
  EXPECT_FALSE(Dir(Path("none")).Exists());
}

TEST_F(FileTest, TimesAreUtcAndNearNow) {
  Write("t");
  const auto now = boost::posix_time::second_clock::universal_time();
  const File file(Path("t"));
  for (const auto& time : {file.Modified(), file.Created(), Dir(Path()).Modified()})
    EXPECT_LT(std::abs((time - now).total_seconds()), 120);
  EXPECT_LE(file.Created(), file.Modified());
  std::filesystem::last_write_time(
      root_ / "t", std::filesystem::file_time_type::clock::now() - std::chrono::hours(48));
  EXPECT_NEAR((now - file.Modified()).total_seconds(), 48 * 3600, 120);
}

TEST_F(FileTest, RenameMovesTheNameAndTheObject) {
  Write("old.txt", "abc");
  File file(Path("old.txt"));
  file.Rename(u"new.txt");
  EXPECT_EQ(file.FullPath(), Path("new.txt"));
  EXPECT_FALSE(OnDisk("old.txt"));
  EXPECT_EQ(file.Size(), 3u);
  MakeDir("d1");
  Dir dir(Path("d1"));
  dir.Rename(u"d2");
  EXPECT_EQ(dir.FullPath(), Path("d2"));
  EXPECT_TRUE(OnDisk("d2"));
}

TEST_F(FileTest, DirCreateMakesOneLevelAndDeleteEmptiesTheTree) {
  Dir dir(Path("top"));
  dir.Create();
  dir.Create();  // exists already: no failure
  for (const char* name : {"top/a.txt", "top/sub/deeper/c.txt", "top/.hidden", "outside/keep"})
    Write(name);
  std::filesystem::create_directory_symlink(root_ / "outside", root_ / "top/link-to-outside");
  std::filesystem::create_symlink(root_ / "gone", root_ / "top/broken");
  dir.Delete();
  EXPECT_FALSE(OnDisk("top"));
  EXPECT_TRUE(OnDisk("outside/keep"));  // a link is removed, never followed
  // A Dir that names a link removes the link alone, with or without a
  // trailing slash.
  for (const char* name : {"via-link", "via-link/"}) {
    std::filesystem::create_directory_symlink(root_ / "outside", root_ / "via-link");
    Dir(Path(name)).Delete();
    EXPECT_FALSE(OnDisk("via-link")) << name;
    EXPECT_TRUE(OnDisk("outside/keep")) << name;
  }
}

// A hundred thousand directories cost a disk-backed file system a minute:
// this fixture stands in memory (/dev/shm) where the system has it.
class DeepTreeTest : public tvxtest::TempDirTest {
 protected:
  std::filesystem::path Base() const override {
    std::error_code ignored;
    return std::filesystem::is_directory("/dev/shm", ignored) && ::access("/dev/shm", W_OK) == 0
               ? std::filesystem::path("/dev/shm")
               : TempDirTest::Base();
  }
};

TEST_F(DeepTreeTest, DeleteRemovesATreeOfAHundredThousandLevels) {
  // Made level by level through descriptors: its paths are far beyond
  // PATH_MAX. A file every thousand levels, and a link out of the tree.
  Write("outside/keep", "mine");
  int fd = ::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  for (int level = 0; level < 100000; ++level) {
    ASSERT_EQ(::mkdirat(fd, "d", 0700), 0) << level;
    const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    fd = next;
    ASSERT_GE(fd, 0) << level;
    if (level % 1000 == 0) ::close(::openat(fd, "f", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    if (level == 50000) {
      ASSERT_EQ(::symlinkat((root_ / "outside").c_str(), fd, "out"), 0);
    }
  }
  ::close(fd);
  Dir(Path("d")).Delete();
  EXPECT_FALSE(OnDisk("d"));
  EXPECT_TRUE(OnDisk("outside/keep"));
}

TEST_F(FileTest, EveryFailureIsItsException) {
  Write("file", "x");
  MakeDir("a");
  MakeDir("b");
  std::filesystem::create_symlink(root_ / "nowhere/at/all", root_ / "dangling");
  using E = create_accessdenied_exception;
  ExpectFailure<E>("Create/accessdenied", [&] { File(Path("file")).Create(true); });  // exists
  ExpectFailure<E>("Create/accessdenied", [&] { File(Path("a")).Create(false); });    // a directory
  ExpectFailure<create_invalidpath_exception>("Create/invalidpath",
                                              [&] { File(Path("no/parent")).Create(false); });
  ExpectFailure<create_invalidpath_exception>("Create/invalidpath",
                                              [&] { File(Path("file/below")).Create(false); });
  ExpectFailure<create_fnf_exception>("Create/fnf", [&] { File(Path("dangling")).Create(false); });
  ExpectFailure<create_exception>(
      "Create", [&] { File(Path("a") + UTF16String(u"\0b", 2)).Create(false); });  // zero unit
  ExpectFailure<file_delete_exception>("Delete", [&] { File(Path("missing")).Delete(); });
  ExpectFailure<file_delete_exception>("Delete", [&] { File(Path("a")).Delete(); });
  ExpectFailure<rename_file>("Rename", [&] { File(Path("missing")).Rename(u"x"); });
  ExpectFailure<rename_file>("Rename", [&] { File(Path("file")).Rename(u"a"); });  // taken
  ExpectFailure<file_not_found_exception>("FileNotFound",
                                          [&] { (void)File(Path("missing")).Modified(); });
  ExpectFailure<file_exception>("error", [&] { (void)File(Path("file/below")).Created(); });
  ExpectFailure<dir_create_exception>("DirCreate", [&] { Dir(Path("no/parent")).Create(); });
  ExpectFailure<dir_delete_exception>("DirDelete", [&] { Dir(Path("missing")).Delete(); });
  ExpectFailure<dir_delete_exception>("DirDelete", [&] { Dir(Path("file")).Delete(); });
  ExpectFailure<rename_dir_already_exists>("DirRename/exists",
                                           [&] { Dir(Path("a")).Rename(u"b"); });
  ExpectFailure<rename_dir>("DirRename", [&] { Dir(Path("missing")).Rename(u"c"); });
  ExpectFailure<dir_not_found_exception>("DirNotFound",
                                         [&] { (void)Dir(Path("missing")).Created(); });
  ExpectFailure<dir_exception>("Dir/error", [&] { (void)Dir(Path("file/x")).Modified(); });
  // "Already exists" is no failure, even when what exists is a file.
  EXPECT_NO_THROW(Dir(Path("file")).Create());
  EXPECT_FALSE(Dir(Path("file")).Exists());
  EXPECT_EQ(File(Path("file")).Size(), 1u);  // nothing above touched the file
  EXPECT_TRUE(OnDisk("a") && OnDisk("b"));
}

TEST_F(FileTest, ReadOnlyDirectoryRefusesChangesWithTheirExceptions) {
  Write("ro/kept");
  MakeDir("ro/sub");
  // Everybody may pass through the test's folder, so only "ro" refuses.
  namespace fs = std::filesystem;
  fs::permissions(root_, fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
  fs::permissions(root_ / "ro", fs::perms::owner_read | fs::perms::owner_exec |
                                    fs::perms::group_read | fs::perms::group_exec |
                                    fs::perms::others_read | fs::perms::others_exec);
  // Root ignores permissions, so the attempts run without its power; each
  // reports by one bit of the exit status.
  using Denied = create_accessdenied_exception;
  const int failed = tvxtest::RunUnprivileged([&] {
    return BitUnlessThrown<Denied>(1, [&] { File(Path("ro/new")).Create(false); }) |
           BitUnlessThrown<dir_create_exception>(2, [&] { Dir(Path("ro/newdir")).Create(); }) |
           BitUnlessThrown<file_delete_exception>(4, [&] { File(Path("ro/kept")).Delete(); }) |
           BitUnlessThrown<rename_file>(8, [&] { File(Path("ro/kept")).Rename(u"x"); }) |
           BitUnlessThrown<dir_delete_exception>(16, [&] { Dir(Path("ro/sub")).Delete(); }) |
           BitUnlessThrown<file_delete_exception>(32, [&] { Dir(Path("ro")).Delete(); });
  });
  EXPECT_EQ(failed, 0) << "bits of the operations that failed otherwise; -1: no child";
  EXPECT_TRUE(OnDisk("ro/kept") && OnDisk("ro/sub"));
}

TEST_F(FileTest, DirExceptionsCarryTheirDirAndNewName) {
  try {
    Dir(Path("nothing")).Rename(u"else");
    FAIL();
  } catch (const rename_dir& e) {
    const rename_dir copy = e;  // a copy keeps both
    EXPECT_EQ(copy.GetDir().FullPath(), Path("nothing"));
    EXPECT_EQ(copy.GetNewName(), u"else");
  }
}

TEST_F(FileTest, HostilePathsFailCleanly) {
  const UTF16String hostile[] = {
      UTF16String(), UTF16String(5000, u'a'),  // name far too long
      Path("x") + UTF16String(u"\0y", 2),      // zero unit
  };
  for (const UTF16String& path : hostile) {
    File file(path);
    EXPECT_FALSE(file.Exists());
    EXPECT_EQ(file.Size(), 0u);
    EXPECT_THROW(file.Delete(), file_delete_exception);
    EXPECT_THROW((void)file.Modified(), file_exception);
    EXPECT_THROW(Dir(path).Delete(), dir_delete_exception);
  }
  EXPECT_THROW(File(UTF16String(5000, u'a')).Create(false), create_invalidpath_exception);
  EXPECT_THROW(File(UTF16String()).Create(false), create_fnf_exception);
  // A lone surrogate is a legal name on disk and round-trips.
  File odd(Path("") + UTF16String{u'/', 0xD800, u'z'});
  odd.Create(true);
  EXPECT_TRUE(odd.Exists());
  odd.Delete();
}

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
