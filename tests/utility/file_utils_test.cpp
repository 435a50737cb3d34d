// The path toolbox: splitting, legal names, volumes, small actions, links.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <typeinfo>

#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
namespace fu = tvxcore::utility::FileUtils;
using tvxtest::U;

namespace {

class FileUtilsTest : public tvxtest::TempDirTest {};

UTF8String U8(std::string_view text) { return UTF8String(text.begin(), text.end()); }

}  // namespace

TEST(PathSplitting, ParentTitleAndExtension) {
  struct Row {
    const char16_t* path;
    const char16_t* parent;
    const char16_t* title;
    const char16_t* extension;  // "?" when left alone
  };
  const Row rows[] = {
      {u"a.b/c", u"a.b", u"c", u"?"},  // a dot in a directory is no extension
      {u"name", u"", u"name", u"?"},
      {u"/x/y.tar.gz", u"/x", u"y.tar", u".gz"},
      {u"/x/.hidden", u"/x", u"", u".hidden"},
      {u"/file", u"/", u"file", u"?"},
      {u"/", u"", u"", u"?"},
      {u"dir/", u"dir", u"", u"?"},
      {u"a\\b.c", u"", u"a\\b", u".c"},  // a backslash is part of the name
  };
  for (const Row& row : rows) {
    UTF16String parent = u"?", title = u"?", extension = u"?";
    fu::SplitLongPath(row.path, &parent, &title, &extension);
    EXPECT_EQ(parent, row.parent) << tvxtest::N(row.path);
    EXPECT_EQ(title, row.title) << tvxtest::N(row.path);
    EXPECT_EQ(extension, row.extension) << tvxtest::N(row.path);
  }
  fu::SplitLongPath(u"/a/b.c", nullptr, nullptr, nullptr);  // null outputs are allowed
}

TEST(PathSplitting, ParentsFileNamesAndJoins) {
  struct Row {
    const char16_t* path;
    bool has;
    const char16_t* parent;
  };
  const Row rows[] = {{u"/a/b", true, u"/a"}, {u"/a//b", true, u"/a"}, {u"/a", true, u"/"},
                      {u"/", false, u""},     {u"name", false, u""},   {u"a/b/", true, u"a/b"}};
  for (const Row& row : rows) {
    UTF16String parent;
    EXPECT_EQ(fu::GetParentPath(row.path, parent), row.has) << tvxtest::N(row.path);
    EXPECT_EQ(parent, row.parent) << tvxtest::N(row.path);
  }
  EXPECT_EQ(fu::GetPathFileName(u"/a/b"), u"b");
  EXPECT_EQ(fu::GetPathFileName(u"a\\b"), u"");
  EXPECT_EQ(fu::GetPathFileName(u"dir/"), u"");
  for (const auto& [dir, joined] : {std::pair{u"", u"n"}, {u"/d", u"/d/n"}, {u"/", u"/n"}}) {
    UTF16String out = u"junk";
    fu::BuildPathSpec(dir, u"n", out);
    EXPECT_EQ(out, joined);
  }
  EXPECT_EQ(fu::GetIllegalFilenameCharacters(), u"\\/:*?\"<>|");
}

TEST(PathSplitting, ComparableFormComposesAndFoldsCase) {
  EXPECT_EQ(fu::NormalizePath(u"/A/Cafe\u0301"), u"/a/caf\u00E9");
  EXPECT_TRUE(fu::PathsEqual(u"/Music/Caf\u00C9", u"/music/cafe\u0301"));
  EXPECT_FALSE(fu::PathsEqual(u"/a/b", u"/a/c"));
  EXPECT_TRUE(fu::PathsEqual(u"", u""));
}

TEST(LegalFileNames, ReplacementTable) {
  struct Row {
    const char16_t* in;
    UTF16Char replacement;
    const char16_t* out;
    bool changed;
  };
  // clang-format off
  const Row rows[] = {
      {u"a:b", u'_', u"a_b", true},            {u"CON", 0, u"CON-", true},
      {u"con.txt", 0, u"-.txt", true},         {u"con.txt", u'_', u"con_.txt", true},
      {u"CON", u'_', u"CON_", true},           {u"...", 0, u"-", true},
      {u"x.", u' ', u"x-", true},              {u"x:", u'.', u"x-", true},
      {u"a<b>c|d", 0, u"abcd", true},          {u"tab\there", u'_', u"tab_here", true},
      {u"trail. . ", 0, u"trail", true},       {u"..lead", 0, u"lead", true},
      {u".lead", u'_', u"_lead", true},        {u"COM10.txt", 0, u"COM10.txt", false},
      {u"com1.a.b", 0, u"-.a.b", true},        {u"LPT9", u'x', u"LPT9x", true},
      {u"nul.", 0, u"-", true},                {u"aux.", u'_', u"aux__", true},
      {u"", u'_', u"", false},                 {u"\x01\x1f", u'_', u"__", true},
      {u"a?b", u'?', u"a-b", true},         // an illegal replacement is used as "-"
      {u"trail..", u'_', u"trail._", true}  // only the last unit is overwritten
  };
  // clang-format on
  for (const Row& row : rows) {
    UTF16String name = row.in;
    EXPECT_EQ(fu::ReplaceIllegalFileNameCharacters(name, row.replacement), row.changed)
        << tvxtest::N(row.in);
    EXPECT_EQ(name, row.out) << tvxtest::N(row.in);
  }
  UTF16String zero(u"a\0b", 3);
  EXPECT_FALSE(fu::ReplaceIllegalFileNameCharacters(zero, u'_'));  // a zero unit stays
}

TEST_F(FileUtilsTest, ExistenceCreationRemovalAndText) {
  Write("f");
  MakeDir("d");
  for (const char* name : {"f", "d", "none"}) {
    const bool f = name[0] == 'f', d = name[0] == 'd';
    EXPECT_EQ(fu::FileExists(Path(name)), f || d) << name;
    EXPECT_EQ(fu::FileOrDirExists(Path(name)), f || d) << name;
    EXPECT_EQ(fu::DirectoryExists(Path(name)), d) << name;
  }
  EXPECT_TRUE(fu::IsDir(Path("d")));
  EXPECT_FALSE(fu::IsDir(Path("f")));
  EXPECT_THROW(fu::IsDir(Path("none")), create_fnf_exception);
  EXPECT_TRUE(fu::EnsureDirectoryExists(Path("a/b/c")));
  EXPECT_TRUE(OnDisk("a/b/c"));
  EXPECT_TRUE(fu::EnsureDirectoryExists(Path("a/b/c")));
  EXPECT_FALSE(fu::EnsureDirectoryExists(Path("f")));
  EXPECT_FALSE(fu::EnsureDirectoryExists(Path("f/sub")));
  EXPECT_FALSE(fu::EnsureDirectoryExists(u"relative-top-that-is-missing"));
  EXPECT_TRUE(fu::CreateNewFile(Path("n")));
  EXPECT_FALSE(fu::CreateNewFile(Path("missing/n")));
  EXPECT_TRUE(fu::RemoveFile(Path("n")));
  EXPECT_FALSE(fu::RemoveFile(Path("n")));
  EXPECT_TRUE(fu::CreateNewDirectory(Path("nd")));
  EXPECT_FALSE(fu::CreateNewDirectory(Path("nd")));
  fu::SimpleWriteStringToFile(Path("t.txt"), U8("first\n"));
  fu::SimpleWriteStringToFile(Path("t.txt"), U8("second\n"));
  fu::SimpleAppendStringToFile(Path("t.txt"), U8("more"));
  fu::SimpleAppendStringToFile(Path("new.txt"), U8("made"));
  EXPECT_EQ(Read("t.txt"), "second\nmore");
  EXPECT_EQ(Read("new.txt"), "made");
  fu::SimpleWriteStringToFile(Path("no/dir/x"), U8("lost"));  // reports nothing
  EXPECT_FALSE(OnDisk("no"));
}

TEST_F(FileUtilsTest, CopyReplacesTakesTheSourceBitsReportsProgressAndCancelsCleanly) {
  Write("src", std::string(5 << 20, 'p'));
  Write("dst", "old");
  fu::Copy(Path("src"), Path("dst"));
  EXPECT_EQ(Read("dst").size(), 5u << 20);
  struct Seen {
    std::vector<double> fractions;
    double cancelAt = 2.0;
  } seen;
  auto callback = [](double fraction, void* context) {
    auto* s = static_cast<Seen*>(context);
    s->fractions.push_back(fraction);
    return fraction >= s->cancelAt;
  };
  EXPECT_TRUE(fu::CopyWithProgress(Path("src"), Path("a"), callback, &seen));
  ASSERT_GE(seen.fractions.size(), 2u);
  EXPECT_TRUE(std::is_sorted(seen.fractions.begin(), seen.fractions.end()));
  EXPECT_DOUBLE_EQ(seen.fractions.back(), 1.0);
  EXPECT_EQ(Read("a").size(), 5u << 20);
  seen = Seen{{}, 0.3};
  EXPECT_FALSE(fu::CopyWithProgress(Path("src"), Path("b"), callback, &seen));
  EXPECT_LT(seen.fractions.back(), 1.0);
  EXPECT_FALSE(OnDisk("b"));  // a cancelled copy leaves nothing
  Write("b", "old");
  seen = Seen{{}, 0.3};
  EXPECT_FALSE(fu::CopyWithProgress(Path("src"), Path("b"), callback, &seen));
  EXPECT_EQ(Read("b"), "old");  // nor does it touch what it would have replaced
  Write("empty", "");
  seen = Seen{};
  EXPECT_TRUE(fu::CopyWithProgress(Path("empty"), Path("e"), callback, &seen));
  EXPECT_TRUE(OnDisk("e"));
  // The copy takes the source's permission bits, also over an existing file.
  std::filesystem::permissions(root_ / "src", std::filesystem::perms(0640));
  fu::Copy(Path("src"), Path("dst"));
  EXPECT_EQ(std::filesystem::status(root_ / "dst").permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(Entries(), (std::set<std::string>{"a", "b", "dst", "e", "empty", "src"}));
}

// Each failed copy throws the exception of its cause for the file that
// failed, and leaves every file as it was.
TEST_F(FileUtilsTest, FailedCopiesNameTheFileThatFailedAndTouchNothing) {
  Write("src", std::string(3 << 20, 's'));
  Write("dir/inside", "kept");
  std::filesystem::create_symlink(root_ / "src", root_ / "soft");
  struct Row {
    const char* from;
    const char* to;
    const std::type_info& expected;
    bool namesDestination;
  };
  const Row rows[] = {
      {"src", "src", typeid(file_exception), false},  // onto itself
      {"src", "soft", typeid(file_exception), false},
      {"missing", "x", typeid(file_not_found_exception), false},
      {"dir", "x", typeid(file_exception), false},  // a directory is no file to copy
      {"src", "", typeid(create_invalidpath_exception), true},
      {"src", "no/dir/x", typeid(create_invalidpath_exception), true},
      {"src", "src/x", typeid(create_invalidpath_exception), true},
      {"src", "dir", typeid(create_accessdenied_exception), true},
  };
  const std::set<std::string> before = Entries();
  for (const Row& row : rows) {
    const UTF16String from = Path(row.from), to = *row.to ? Path(row.to) : UTF16String();
    try {
      fu::Copy(from, to);
      ADD_FAILURE() << row.from << " -> " << row.to << ": no failure";
    } catch (const file_exception& e) {
      EXPECT_EQ(typeid(e), row.expected) << row.from << " -> " << row.to << ": " << e.what();
      EXPECT_EQ(e.GetFile().FullPath(), row.namesDestination ? to : from)
          << row.from << " -> " << row.to;
    }
    EXPECT_TRUE(Read("src") == std::string(3 << 20, 's')) << row.from << " -> " << row.to;
    EXPECT_EQ(Entries(), before) << row.from << " -> " << row.to;
  }
  EXPECT_EQ(Read("dir/inside"), "kept");

  // What only permissions refuse, without root's power to ignore them: an
  // unreadable source is the source's failure, a folder that may not be
  // written the destination's.
  namespace fs = std::filesystem;
  fs::permissions(root_, fs::perms::others_exec | fs::perms::group_exec, fs::perm_options::add);
  Write("secret", "s");
  fs::permissions(root_ / "secret", fs::perms::none);
  MakeDir("ro");
  Write("ro/kept", "kept");
  fs::permissions(root_ / "ro/kept", fs::perms(0444));
  fs::permissions(root_ / "ro", fs::perms(0555));
  Write("readonly", "kept");
  fs::permissions(root_ / "readonly", fs::perms(0444));
  const struct {
    const char *from, *to, *named;
    const std::type_info& expected;
  } refused[] = {{"secret", "x", "secret", typeid(file_exception)},
                 {"src", "ro/x", "ro/x", typeid(create_accessdenied_exception)},
                 {"src", "readonly", "readonly", typeid(create_accessdenied_exception)}};
  const int failed = tvxtest::RunUnprivileged([&] {
    int bits = 0;
    for (std::size_t i = 0; i < std::size(refused); ++i) {
      try {
        fu::Copy(Path(refused[i].from), Path(refused[i].to));
        bits |= 1 << i;
      } catch (const file_exception& e) {
        if (typeid(e) != refused[i].expected || e.GetFile().FullPath() != Path(refused[i].named))
          bits |= 1 << i;
      }
    }
    return bits;
  });
  EXPECT_EQ(failed, 0) << "bits of the rows that failed otherwise; -1: no child";
  EXPECT_EQ(Read("readonly"), "kept");
  EXPECT_EQ(Entries("ro"), std::set<std::string>{"kept"});
}

TEST_F(FileUtilsTest, AttributesAndModifiedTime) {
  Write("a");
  Write("b");
  std::filesystem::last_write_time(
      root_ / "a", std::filesystem::file_time_type::clock::now() - std::chrono::hours(100));
  std::filesystem::permissions(root_ / "a", std::filesystem::perms::owner_read);
  fu::CopyAttributes(Path("a"), Path("b"));
  EXPECT_EQ(std::filesystem::last_write_time(root_ / "b"),
            std::filesystem::last_write_time(root_ / "a"));
  EXPECT_TRUE(File(Path("b")).IsReadOnly());
  fu::UpdateFileModifiedTime(Path("b"));
  EXPECT_GT(std::filesystem::last_write_time(root_ / "b"),
            std::filesystem::last_write_time(root_ / "a"));
  EXPECT_THROW(fu::CopyAttributes(Path("missing"), Path("b")), file_not_found_exception);
  EXPECT_THROW(fu::CopyAttributes(Path("a"), Path("missing")), file_not_found_exception);
  EXPECT_THROW(fu::UpdateFileModifiedTime(Path("missing")), file_not_found_exception);
  MakeDir("d");
  EXPECT_NO_THROW(fu::CopyAttributes(Path("d"), Path("b")));  // nothing for a directory
}

TEST_F(FileUtilsTest, UniqueFileNamesStartAtOne) {
  EXPECT_EQ(fu::UniqueFileName(Path(), u"report", u".txt"), Path("report1.txt"));
  Write("report1.txt");
  std::filesystem::create_symlink(root_ / "gone", root_ / "report2.txt");  // broken, but taken
  EXPECT_EQ(fu::UniqueFileName(Path(), u"report", u".txt"), Path("report3.txt"));
  EXPECT_THROW(fu::UniqueFileName(Path("missing"), u"r", u".txt"), dir_not_found_exception);
}

TEST_F(FileUtilsTest, ContainedFilesSkipsHiddenAndDirectories) {
  Write("one.txt");
  Write("two");
  Write(".hidden");
  Write("sub/deep.txt");
  std::vector<UTF16String> files{u"kept"};
  fu::ContainedFiles(Path(), files);
  std::sort(files.begin() + 1, files.end());
  EXPECT_EQ(files, (std::vector<UTF16String>{u"kept", Path("one.txt"), Path("two")}));
  fu::ContainedFiles(Path("missing"), files);
  EXPECT_EQ(files.size(), 3u);
}

TEST_F(FileUtilsTest, VolumesAreMountPoints) {
  UTF16String volume;
  ASSERT_TRUE(fu::GetVolumePath(Path("x/y"), volume));
  EXPECT_EQ(Path().compare(0, volume.size(), volume), 0);  // a prefix of the path
  EXPECT_TRUE(fu::IsRoot(volume));
  EXPECT_FALSE(fu::IsRoot(Path("x")));
  EXPECT_TRUE(fu::OnSameVolume(Path("a"), Path("b/c")));
  EXPECT_THROW(fu::IsRoot(u"relative"), create_fnf_exception);
  EXPECT_THROW(fu::OnSameVolume(Path("a"), u""), create_fnf_exception);
  const auto total = fu::GetVolumeSize(Path("f"));
  const auto available = fu::GetVolumeFreeSpace(Path("f"));
  EXPECT_GT(total, 0u);
  EXPECT_LE(available, total);
  EXPECT_THROW(fu::GetVolumeSize(Path("no/f")), file_not_found_exception);
  EXPECT_THROW(fu::GetVolumeFreeSpace(Path("no/such/f")), create_invalidpath_exception);
  EXPECT_FALSE(fu::GetVolumeNameForPath(Path()).empty());
  EXPECT_EQ(fu::GetVolumeNameForPath(u"relative"), u"");
  EXPECT_EQ(fu::GetDriveLetterForDriveName(u"no volume has this label 42"), u"");
}

// Translates every key into its name, marked: what the user's language
// would give, told apart from the default text.
class MarkingLocalizer : public config::Localizer {
 public:
  UTF16String Translate(const char* inKey) override {
    std::string key(inKey);
    key = "[" + key.substr(0, key.find('=')) + "]";
    return UTF16String(key.begin(), key.end());
  }
  void LoadDictionary(const UTF16String&) override {}
};

TEST_F(FileUtilsTest, VolumeWithoutLabelIsNamedByItsKindInTheUsersLanguage) {
  // /proc has no label on any system: its name is the localised kind.
  const UTF16String english = fu::GetVolumeNameForPath(u"/proc");
  ASSERT_FALSE(english.empty());
  EXPECT_NE(english.front(), u'$') << "the default text, not the key";
  MarkingLocalizer localizer;
  config::Localizer::Set(&localizer);
  const UTF16String localised = fu::GetVolumeNameForPath(u"/proc");
  config::Localizer::Set(nullptr);
  const std::u16string prefix = u"[$$$/tvxcore/utility/FileUtils_WIN/";
  EXPECT_EQ(localised.compare(0, prefix.size(), prefix.data(), prefix.size()), 0);
}

TEST_F(FileUtilsTest, LocalVolumeHostIsThisComputer) {
  std::ifstream hostFile("/proc/sys/kernel/hostname");
  std::string host;
  std::getline(hostFile, host);
  UTF16String label = u"unset";
  const UTF16String name = fu::GetPathVolumeHostName(Path(), &label, true);
  EXPECT_EQ(name, U(host.substr(0, host.find('.'))));
  EXPECT_NE(label, u"unset");
  EXPECT_THROW(fu::GetPathVolumeHostName(u"relative", nullptr, true), create_invalidpath_exception);
  EXPECT_EQ(fu::GetPathVolumeHostName(u"relative", nullptr, false), u"");
}

TEST(ServerHosts, CacheHoldsAnswersUntilPurged) {
  fu::PurgeServerHostCache();
  bool reachable = true;
  const UTF16String host = fu::CreateServerHostString(u"no-such-server.invalid", u"share");
  EXPECT_FALSE(fu::IsServerHostCached(host, &reachable));
  EXPECT_FALSE(fu::MountHost(u"no-such-server.invalid", u"share", false));
  ASSERT_TRUE(fu::IsServerHostCached(host, &reachable));
  EXPECT_FALSE(reachable);
  EXPECT_THROW(fu::MountHost(u"no-such-server.invalid", u"share", true), file_exception);
  fu::CacheServerHost(host, true);  // an answer entered by hand stands
  EXPECT_TRUE(fu::MountHost(u"no-such-server.invalid", u"share", true));
  fu::PurgeServerHostCache();
  EXPECT_FALSE(fu::IsServerHostCached(host, &reachable));
  EXPECT_FALSE(fu::MountHost(u"no-such-server.invalid", u"share", false));  // asked again
}

TEST_F(FileUtilsTest, LinksResolveToTheirTargets) {
  Write("target.txt");
  MakeDir("folder");
  EXPECT_EQ(fu::CreateLink(Path("target.txt"), Path("file.lnk")), 0);
  EXPECT_EQ(fu::CreateLink(u"folder", Path("dir.lnk")), 0);  // relative to the link
  EXPECT_EQ(fu::CreateLink(Path("gone"), Path("broken.lnk")), 0);
  EXPECT_LT(fu::CreateLink(Path("target.txt"), Path("file.lnk")), 0);  // taken
  EXPECT_LT(fu::CreateLink(Path("target.txt"), Path("no/dir/x.lnk")), 0);

  struct Row {
    const char* link;
    const char* target;  // null: no target, the path stays
    bool isDir;
  };
  for (const Row& row : {Row{"file.lnk", "target.txt", false}, Row{"dir.lnk", "folder", true},
                         Row{"broken.lnk", nullptr, false}, Row{"target.txt", nullptr, false},
                         Row{"missing.lnk", nullptr, false}}) {
    UTF16String path = Path(row.link);
    bool isDir = !row.isDir;
    const int result = fu::ResolveIT(path, isDir);
    EXPECT_TRUE(row.target ? result == 0 : result < 0) << row.link << ": " << result;
    EXPECT_EQ(Dir(path), Dir(Path(row.target ? row.target : row.link))) << row.link;
    if (row.target) {
      EXPECT_EQ(isDir, row.isDir) << row.link;
    }
  }
}
