// File and Dir as values on native paths, and every way their operations fail.
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <filesystem>
#include <functional>
#include <typeinfo>

#include "filesupport/TempDirFixture.h"
#include "filesupport/Unprivileged.h"
#include "tvxcore/filesupport/FileExceptions.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::U;

namespace {

class FileTest : public tvxtest::TempDirTest {};

// Runs `call`, which must throw exactly `Expected` with the key `key`.
template <typename Expected>
void ExpectFailure(const std::function<void()>& call, const char* key, const char* what) {
  try {
    call();
    ADD_FAILURE() << what << ": nothing thrown";
  } catch (const std::exception& e) {
    EXPECT_EQ(typeid(e), typeid(Expected)) << what;
    EXPECT_STREQ(e.what(), key) << what;
  }
}

}  // namespace

TEST(FilePath, NormalFormCollapsesSlashesAndDirDropsOneTrailingSlash) {
  struct Row {
    const char16_t* in;
    const char16_t* file;
    const char16_t* dir;
  };
  const Row rows[] = {
      {u"", u"", u""},
      {u"/", u"/", u"/"},
      {u"//", u"/", u"/"},
      {u"/a//b///c", u"/a/b/c", u"/a/b/c"},
      {u"/a/b/", u"/a/b/", u"/a/b"},
      {u"/a/b//", u"/a/b/", u"/a/b"},
      {u"rel//x", u"rel/x", u"rel/x"},
      {u"C:\\a\\\\b", u"C:\\a\\\\b", u"C:\\a\\\\b"},  // a backslash is a name character
  };
  for (const Row& row : rows) {
    EXPECT_EQ(File(UTF16String(row.in)).FullPath(), row.file) << tvxtest::N(row.in);
    EXPECT_EQ(Dir(UTF16String(row.in)).FullPath(), row.dir) << tvxtest::N(row.in);
  }
  EXPECT_EQ(File(Dir(UTF16String(u"/a/")), u"b.txt").FullPath(), u"/a/b.txt");
  EXPECT_EQ(Dir(Dir(UTF16String(u"/")), u"usr").FullPath(), u"/usr");
  EXPECT_EQ(FileHelper(std::string("/x//caf\xC3\xA9")).Path(), u"/x/caf\u00E9");
  EXPECT_EQ(File().FullPath(), u"");
}

TEST(FilePath, NamesTitlesExtensionsAndParents) {
  const File file(UTF16String(u"/data/my.dir/Report.Final.TXT"));
  EXPECT_EQ(file.GetName(), u"Report.Final.TXT");
  EXPECT_EQ(file.GetTitle(), u"Report.Final");
  EXPECT_EQ(file.GetExtension(false), u".TXT");
  EXPECT_EQ(file.GetExtension(true), u".txt");
  EXPECT_EQ(file.Parent().FullPath(), u"/data/my.dir");
  EXPECT_EQ(File(UTF16String(u"/x/.profile")).GetTitle(), u"");
  EXPECT_EQ(File(UTF16String(u"/my.dir/noext")).GetExtension(), u"");
  EXPECT_EQ(File(UTF16String(u"/top")).Parent().FullPath(), u"/");
  EXPECT_EQ(File(UTF16String(u"/a/\u00C9T\u00C9.JPG")).GetExtension(true), u".jpg");
  EXPECT_TRUE(Dir(UTF16String(u"/")).IsTopLevelDir());
  EXPECT_TRUE(Dir(UTF16String(u"alone")).IsTopLevelDir());
  EXPECT_FALSE(Dir(UTF16String(u"/usr")).IsTopLevelDir());
  EXPECT_EQ(Dir(UTF16String(u"/usr/share")).GetName(), u"share");
  EXPECT_EQ(File(UTF16String(u"/x/caf\u00E9")).FullPathMultiByte(), "/x/caf\xC3\xA9");
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

TEST(FilePath, CopiesAreIndependentValues) {
  File a(UTF16String(u"/one"));
  File b = a;
  b = File(UTF16String(u"/two"));
  EXPECT_EQ(a.FullPath(), u"/one");
  File moved = std::move(b);
  EXPECT_EQ(moved.FullPath(), u"/two");
  b = a;  // a moved-from File takes a new value
  EXPECT_EQ(b.FullPath(), u"/one");
  Dir d(UTF16String(u"/x"));
  Dir e(d);
  e = Dir(UTF16String(u"/y"));
  EXPECT_EQ(d.FullPath(), u"/x");

  // Empty values copy, assign and take values like any other, both ways.
  File empty;
  File emptyCopy(empty);
  EXPECT_EQ(emptyCopy.FullPath(), u"");
  EXPECT_EQ(emptyCopy, File(UTF16String()));
  emptyCopy = a;
  EXPECT_EQ(emptyCopy.FullPath(), u"/one");
  EXPECT_EQ(a.FullPath(), u"/one");
  emptyCopy = empty;
  EXPECT_EQ(emptyCopy.FullPath(), u"");
  EXPECT_EQ(a.FullPath(), u"/one");
  emptyCopy = emptyCopy;
  EXPECT_EQ(emptyCopy.GetName(), u"");
  emptyCopy.Helper() = FileHelper(UTF16String(u"/three"));
  EXPECT_EQ(emptyCopy.FullPath(), u"/three");
  EXPECT_EQ(empty.FullPath(), u"");
  Dir emptyDir;
  Dir emptyDirCopy(emptyDir);
  EXPECT_EQ(emptyDirCopy.FullPath(), u"");
  emptyDirCopy = d;
  EXPECT_EQ(emptyDirCopy.FullPath(), u"/x");
  e = emptyDir;
  EXPECT_EQ(e.FullPath(), u"");
  EXPECT_EQ(d.FullPath(), u"/x");
}

TEST_F(FileTest, CreateExistsSizeAndDelete) {
  File file(Path("new.bin"));
  EXPECT_FALSE(file.Exists());
  EXPECT_EQ(file.Size(), 0u);  // missing: 0, no exception
  file.Create(true);
  EXPECT_TRUE(file.Exists());
  Write("new.bin", "12345");
  for (auto selector : {kFileSize_Logical, kFileSize_DataFork, kFileSize_Physical, kFileSize_Total})
    EXPECT_EQ(file.Size(selector), 5u);
  EXPECT_EQ(file.Size(kFileSize_ResourceFork), 0u);
  EXPECT_EQ(file.Size(static_cast<FileSizeSelector>(42)), 0u);
  file.Create(false);  // empties it
  EXPECT_EQ(file.Size(), 0u);
  file.Delete();
  EXPECT_FALSE(OnDisk("new.bin"));
}

TEST_F(FileTest, ExistsTellsFilesFromDirectories) {
  Write("f");
  MakeDir("d");
  EXPECT_TRUE(File(Path("d")).Exists());  // a directory exists as a File
  EXPECT_TRUE(Dir(Path("d")).Exists());
  EXPECT_FALSE(Dir(Path("f")).Exists());
  EXPECT_FALSE(Dir(Path("none")).Exists());
  EXPECT_TRUE(Dir(U("/")).Exists());
}

TEST_F(FileTest, ReadOnlyFollowsTheWriteBits) {
  Write("ro");
  const File file(Path("ro"));
  EXPECT_FALSE(file.IsReadOnly());
  std::filesystem::permissions(
      root_ / "ro", std::filesystem::perms::owner_read | std::filesystem::perms::group_read);
  EXPECT_TRUE(file.IsReadOnly());
  EXPECT_FALSE(File(Path("missing")).IsReadOnly());
}

TEST_F(FileTest, TimesAreUtcAndNearNow) {
  Write("t");
  const auto now = boost::posix_time::second_clock::universal_time();
  const File file(Path("t"));
  for (const auto& time : {file.Modified(), file.Created(), Dir(Path()).Modified()}) {
    EXPECT_LT((time - now).total_seconds(), 120);
    EXPECT_GT((time - now).total_seconds(), -120);
  }
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
  Write("top/a.txt");
  Write("top/sub/b.txt");
  Write("top/sub/deeper/c.txt");
  Write("top/.hidden");
  Write("outside/keep.txt");
  std::filesystem::create_directory_symlink(root_ / "outside", root_ / "top/link-to-outside");
  std::filesystem::create_symlink(root_ / "gone", root_ / "top/broken");
  dir.Delete();
  EXPECT_FALSE(OnDisk("top"));
  EXPECT_TRUE(OnDisk("outside/keep.txt"));  // a link is removed, never followed
}

TEST_F(FileTest, EveryFileFailureIsItsException) {
  Write("file", "x");
  MakeDir("dir");
  std::filesystem::create_symlink(root_ / "nowhere/at/all", root_ / "dangling");
  const File existing(Path("file"));
  struct Case {
    std::function<void()> call;
    const std::type_info& type;
    const char* key;
    const char* what;
  };
  const Case cases[] = {
      {[&] { File(Path("file")).Create(true); }, typeid(create_accessdenied_exception),
       "$$$/tvxcore/filesupport/Create/accessdenied=Could not create the file '@0'. Access was "
       "denied.",
       "existing target"},
      {[&] { File(Path("dir")).Create(false); }, typeid(create_accessdenied_exception),
       "$$$/tvxcore/filesupport/Create/accessdenied=Could not create the file '@0'. Access was "
       "denied.",
       "a directory in the way"},
      {[&] { File(Path("no/parent")).Create(false); }, typeid(create_invalidpath_exception),
       "$$$/tvxcore/filesupport/Create/invalidpath=Could not create the file '@0'. The path is not "
       "valid.",
       "missing parent"},
      {[&] { File(Path("file/below")).Create(false); }, typeid(create_invalidpath_exception),
       "$$$/tvxcore/filesupport/Create/invalidpath=Could not create the file '@0'. The path is not "
       "valid.",
       "parent is a file"},
      {[&] { File(Path("dangling")).Create(false); }, typeid(create_fnf_exception),
       "$$$/tvxcore/filesupport/Create/fnf=Could not create the file '@0'. The file could not be "
       "found.",
       "link to a missing place"},
      {[&] { File(Path("a") + UTF16String(u"\0b", 2)).Create(false); }, typeid(create_exception),
       "$$$/tvxcore/filesupport/Create=Could not create the file '@0'.", "zero unit"},
      {[&] { File(Path("missing")).Delete(); }, typeid(file_delete_exception),
       "$$$/tvxcore/filesupport/Delete=Could not delete the file '@0'.", "delete missing"},
      {[&] { File(Path("dir")).Delete(); }, typeid(file_delete_exception),
       "$$$/tvxcore/filesupport/Delete=Could not delete the file '@0'.", "delete a directory"},
      {[&] { File(Path("missing")).Rename(u"x"); }, typeid(rename_file),
       "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.", "rename missing"},
      {[&] { File(Path("file")).Rename(u"dir"); }, typeid(rename_file),
       "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.", "target taken"},
      {[&] { (void)File(Path("missing")).Modified(); }, typeid(file_not_found_exception),
       "$$$/tvxcore/filesupport/FileNotFound=The file '@0' could not be found.", "times missing"},
      {[&] { (void)File(Path("file/below")).Created(); }, typeid(file_exception),
       "$$$/tvxcore/filesupport/error=Error with file: '@0'.", "times under a file"},
  };
  for (const Case& c : cases) {
    try {
      c.call();
      ADD_FAILURE() << c.what << ": nothing thrown";
    } catch (const std::exception& e) {
      EXPECT_EQ(typeid(e), c.type) << c.what;
      EXPECT_STREQ(e.what(), c.key) << c.what;
    }
  }
  EXPECT_EQ(existing.Size(), 1u);  // nothing above touched the file
}

TEST_F(FileTest, EveryDirFailureIsItsException) {
  Write("file");
  MakeDir("a");
  MakeDir("b");
  ExpectFailure<dir_create_exception>(
      [&] { Dir(Path("no/parent")).Create(); },
      "$$$/tvxcore/filesupport/DirCreate=The directory '@0' could not be created. Please check the "
      "parent directory protection or permission rights.",
      "missing parent");
  // "Already exists" is no failure, even when what exists is a file.
  EXPECT_NO_THROW(Dir(Path("file")).Create());
  EXPECT_FALSE(Dir(Path("file")).Exists());
  ExpectFailure<dir_delete_exception>(
      [&] { Dir(Path("missing")).Delete(); },
      "$$$/tvxcore/filesupport/DirDelete=Could not delete the directory '@0'.", "missing");
  ExpectFailure<rename_dir_already_exists>(
      [&] { Dir(Path("a")).Rename(u"b"); },
      "$$$/tvxcore/filesupport/DirRename/exists=Could not rename the directory '@0' to '@1'. The "
      "directory already exists.",
      "target taken");
  ExpectFailure<rename_dir>(
      [&] { Dir(Path("missing")).Rename(u"c"); },
      "$$$/tvxcore/filesupport/DirRename=Could not rename the directory '@0' to '@1'.", "missing");
  ExpectFailure<dir_not_found_exception>(
      [&] { (void)Dir(Path("missing")).Created(); },
      "$$$/tvxcore/filesupport/DirNotFound=The directory '@0' could not be found.", "times");
  ExpectFailure<dir_exception>([&] { (void)Dir(Path("file/x")).Modified(); },
                               "$$$/tvxcore/filesupport/Dir/error=Error with Directory: '@0'.",
                               "times under a file");
  EXPECT_TRUE(OnDisk("a") && OnDisk("b"));
}

TEST_F(FileTest, ReadOnlyDirectoryRefusesChangesWithTheirExceptions) {
  Write("ro/kept");
  MakeDir("ro/sub");
  // Everybody may pass through the test's folder, so only "ro" refuses.
  std::filesystem::permissions(
      root_, std::filesystem::perms::group_exec | std::filesystem::perms::others_exec,
      std::filesystem::perm_options::add);
  std::filesystem::permissions(
      root_ / "ro", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                        std::filesystem::perms::group_read | std::filesystem::perms::group_exec |
                        std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
  // Root ignores permissions, so the attempts run without its power; each
  // reports by one bit of the exit status.
  const int failed = tvxtest::RunUnprivileged([&] {
    int bits = 0;
    auto check = [&bits](int bit, const std::type_info& type, const std::function<void()>& call) {
      try {
        call();
        bits |= bit;
      } catch (const std::exception& e) {
        if (typeid(e) != type) bits |= bit;
      }
    };
    check(1, typeid(create_accessdenied_exception), [&] { File(Path("ro/new")).Create(false); });
    check(2, typeid(dir_create_exception), [&] { Dir(Path("ro/newdir")).Create(); });
    check(4, typeid(file_delete_exception), [&] { File(Path("ro/kept")).Delete(); });
    check(8, typeid(rename_file), [&] { File(Path("ro/kept")).Rename(u"other"); });
    check(16, typeid(dir_delete_exception), [&] { Dir(Path("ro/sub")).Delete(); });
    return bits;
  });
  EXPECT_EQ(failed, 0) << "bits of the operations that failed otherwise; -1: no child";
  EXPECT_TRUE(OnDisk("ro/kept"));
  EXPECT_TRUE(OnDisk("ro/sub"));
}

TEST_F(FileTest, ExceptionsCarryTheirFileAndNewName) {
  try {
    File(Path("missing")).Rename(u"other");
    FAIL();
  } catch (const rename_file& e) {
    rename_file copy = e;  // copyable
    EXPECT_EQ(copy.GetFile().FullPath(), Path("missing"));
    EXPECT_EQ(copy.GetNewName(), u"other");
  }
  try {
    Dir(Path("nothing")).Rename(u"else");
    FAIL();
  } catch (const dir_exception& e) {
    EXPECT_EQ(e.GetDir().FullPath(), Path("nothing"));
    EXPECT_EQ(static_cast<const rename_dir&>(e).GetNewName(), u"else");
  }
  file_exception custom(File(U("/p")), "$$$/tvxcore/test/Custom=Custom '@0'.");
  EXPECT_STREQ(custom.what(), "$$$/tvxcore/test/Custom=Custom '@0'.");
}

TEST_F(FileTest, HostilePathsFailCleanly) {
  const UTF16String hostile[] = {
      UTF16String(),
      UTF16String(5000, u'a'),                     // name far too long
      Path("x") + UTF16String(u"\0y", 2),          // zero unit
      Path("") + UTF16String{u'/', 0xD800, u'z'},  // lone high surrogate
      Path("") + UTF16String{u'/', 0xDFFF},        // lone low surrogate
      Path(std::string(300, 'd') + "/" + std::string(300, 'e')),
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
