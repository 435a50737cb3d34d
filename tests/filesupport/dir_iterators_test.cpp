// Listings of one directory and walks of a tree, and the aliases on the way
// resolved and made.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <filesystem>
#include <fstream>
#include <set>

#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/Aliases.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::U;

namespace {

class DirIteratorTest : public tvxtest::TempDirTest {
 protected:
  std::vector<UTF16String> Files(const Dir& dir, bool resolve = false, bool filesOnly = false,
                                 boost::function<bool()>* abort = nullptr,
                                 PathComparePtr compare = PathComparePtr()) {
    std::vector<UTF16String> out;
    for (auto it = dir.BeginFiles(resolve, abort, filesOnly, compare); it != Dir::EndFiles(); ++it)
      out.push_back((*it).FullPath());
    return out;
  }
  std::vector<UTF16String> Dirs(const Dir& dir, bool resolve = false,
                                boost::function<bool()>* abort = nullptr) {
    std::vector<UTF16String> out;
    for (auto it = dir.BeginSubdirs(resolve, abort); it != Dir::EndSubdirs(); ++it)
      out.push_back((*it).FullPath());
    return out;
  }
  // Paths below the fixture, relative, sorted.
  std::vector<std::string> Relative(std::vector<UTF16String> paths, bool sort = true) {
    std::vector<std::string> out;
    const std::string prefix = Native() + "/";
    for (const auto& path : paths) {
      std::string native = tvxtest::N(path);
      out.push_back(native == Native()             ? std::string()
                    : native.rfind(prefix, 0) == 0 ? native.substr(prefix.size())
                                                   : native);
    }
    if (sort) std::sort(out.begin(), out.end());
    return out;
  }
  using Names = std::vector<std::string>;
  // A whole recursive walk from the fixture, perhaps resumed at `resume`.
  Names Walk(const UTF16String& resume = u"", PathComparePtr compare = PathComparePtr(),
             boost::function<bool()> abort = {}) {
    std::vector<UTF16String> walked;
    for (RecursiveFileIterator it(Dir(Path()), false, abort, resume, compare);
         it != RecursiveFileIterator() && walked.size() < 100; ++it)
      walked.push_back((*it).FullPath());
    return Relative(walked, false);
  }
};

PathComparePtr Descending() {
  return boost::make_shared<PathCompare>(
      [](const UTF16String& a, const UTF16String& b) { return a > b; });
}

}  // namespace

TEST_F(DirIteratorTest, FilesAndSubdirectoriesAreListedApartWithLinksByWhatTheyReach) {
  for (const char* name : {"b.txt", "a.txt", "UPPER.LNK", ".hidden", "real/inside.txt"})
    Write(name);
  MakeDir("sub2/inner");
  std::filesystem::create_directory_symlink(root_ / "real", root_ / "linked");
  std::filesystem::create_symlink(root_ / "gone", root_ / "broken");
  std::filesystem::create_symlink(root_ / "real/inside.txt", root_ / "file-link");
  const Dir dir(Path());
  EXPECT_EQ(Relative(Files(dir)),
            (Names{".hidden", "UPPER.LNK", "a.txt", "b.txt", "broken", "file-link"}));
  EXPECT_EQ(Relative(Dirs(dir)), (Names{"linked", "real", "sub2"}));
  EXPECT_EQ(Relative(Files(Dir(Path("linked")))), (Names{"linked/inside.txt"}));
  EXPECT_NE(dir.BeginFiles(), dir.BeginFiles());               // a new listing is a new snapshot
  EXPECT_EQ(Dir(Path("sub2")).BeginFiles(), Dir::EndFiles());  // no files
  EXPECT_EQ(Dir(Path("missing")).BeginSubdirs(), Dir::EndSubdirs());
  EXPECT_EQ(Dir::DirIterator(), Dir::DirIterator());
  EXPECT_NE(Dir::DirIterator(), Dir::EndSubdirs());  // no helper equals only no helper
}

TEST_F(DirIteratorTest, SortedListingsAndIndependentCopies) {
  for (const char* name : {"c", "a", "d", "b"}) Write(name);
  auto compare = Descending();
  EXPECT_EQ(Relative(Files(Dir(Path()), false, false, nullptr, compare), false),
            (Names{"d", "c", "b", "a"}));
  auto it = Dir(Path()).BeginFiles(false, nullptr, false, compare);
  auto copy = it;
  ++it;
  EXPECT_NE(it, copy);
  EXPECT_EQ((*copy).GetName(), u"d");
  EXPECT_EQ((*it++).GetName(), u"c");
  EXPECT_EQ((*it).GetName(), u"b");
  ++(++copy);
  EXPECT_EQ(copy, it);
  ++(++it);
  EXPECT_EQ(it, Dir::EndFiles());
}

TEST_F(DirIteratorTest, AbortChecksShortenListingsAndWalks) {
  for (int i = 0; i < 20; ++i) Write(std::string("f").append(std::to_string(i)));
  for (int i = 0; i < 5; ++i) Write(std::string("d").append(std::to_string(i)).append("/f"));
  boost::function<bool()> stopAtOnce = [] { return true; };
  EXPECT_LE(Dirs(Dir(Path()), false, &stopAtOnce).size(), 1u);
  boost::function<bool()> empty;
  EXPECT_EQ(Files(Dir(Path()), false, false, &empty).size(), 20u);
  int asked = 0;
  EXPECT_LT(Walk(u"", {}, [&] { return ++asked > 3; }).size(), 25u);
}

TEST_F(DirIteratorTest, AliasesStandForTheirTargets) {
  namespace fu = tvxcore::utility::FileUtils;
  Write("data/target.txt");
  Write("data/folder/inner.txt");
  MakeDir("list/real.lnk");  // a directory of that name is no alias
  ASSERT_EQ(fu::CreateLink(Path("data/target.txt"), Path("list/file.lnk")), 0);
  ASSERT_EQ(fu::CreateLink(Path("data/folder"), Path("list/folder.lnk")), 0);
  ASSERT_EQ(fu::CreateLink(Path("data/gone"), Path("list/broken.lnk")), 0);
  ASSERT_EQ(fu::CreateLink(Path("data/target.txt"), Path("list/CAPS.LNK")), 0);
  ASSERT_EQ(fu::CreateLink(Path("data/folder"), Path("list/DIR.LNK")), 0);
  const Dir list(Path("list"));
  struct Row {
    bool dirs, resolve, filesOnly;
    Names expected;
  };
  const Row rows[] = {
      // Without resolution the links are what they lead to; capitals are
      // never aliases.
      {false, false, false, {"list/CAPS.LNK", "list/broken.lnk", "list/file.lnk"}},
      {true, false, false, {"list/DIR.LNK", "list/folder.lnk", "list/real.lnk"}},
      // Resolved: targets replace aliases, files and directories alike, and
      // a broken one goes.
      {false, true, false, {"data/target.txt", "list/CAPS.LNK"}},
      {true, true, false, {"data/folder", "list/DIR.LNK", "list/real.lnk"}},
      // Files only: file targets replace aliases; broken ones and those to a
      // directory stay as the files they are.
      {false,
       true,
       true,
       {"data/target.txt", "list/CAPS.LNK", "list/broken.lnk", "list/folder.lnk"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(
        Relative(row.dirs ? Dirs(list, row.resolve) : Files(list, row.resolve, row.filesOnly)),
        row.expected)
        << (row.dirs ? "dirs" : "files") << " resolve " << row.resolve << " filesOnly "
        << row.filesOnly;
  }
  // A walk with resolution enters the target of an alias to a directory,
  // but not one that leads back to where the walk already is.
  ASSERT_EQ(fu::CreateLink(Path("list"), Path("data/folder/back.lnk")), 0);
  ASSERT_EQ(fu::CreateLink(Path("data/folder"), Path("data/folder/self.lnk")), 0);
  for (const bool resolve : {false, true}) {
    std::vector<UTF16String> walked;
    for (RecursiveFileIterator it(list, resolve);
         it != RecursiveFileIterator() && walked.size() < 50; ++it)
      walked.push_back((*it).FullPath());
    const Names expected = resolve
                               ? Names{"data/folder/inner.txt", "data/target.txt", "list/CAPS.LNK"}
                               : Names{"list/CAPS.LNK", "list/broken.lnk", "list/file.lnk"};
    EXPECT_EQ(Relative(walked), expected) << "resolve " << resolve;
  }
}

TEST_F(DirIteratorTest, RecursiveWalkVisitsFilesBeforeSubdirectoriesAndResumes) {
  for (const char* name : {"r1", "r2", "a/a1", "a/b/b1", "a/b/b2", "c/c1", "c/d/d1"}) Write(name);
  MakeDir("empty/deeper");
  auto compare = boost::make_shared<PathCompare>(
      [](const UTF16String& a, const UTF16String& b) { return a < b; });
  std::vector<UTF16String> holders;
  for (RecursiveFileIterator it(Dir(Path()), false, {}, u"", compare);
       it != RecursiveFileIterator() && holders.size() < 100; it++)
    holders.push_back(it.CurrentDir().FullPath());
  EXPECT_EQ(Relative(holders, false), (Names{"", "", "a", "a/b", "a/b", "c", "c/d"}));
  EXPECT_EQ(Walk(u"", compare), (Names{"r1", "r2", "a/a1", "a/b/b1", "a/b/b2", "c/c1", "c/d/d1"}));
  // Resume from a file deep in the tree, from a file of the root, and past a
  // directory that is gone: the walk goes on behind c's files.
  EXPECT_EQ(Walk(u"a/B/b2", compare), (Names{"a/b/b2", "c/c1", "c/d/d1"}));
  EXPECT_EQ(Walk(u"r2", compare), (Names{"r2", "a/a1", "a/b/b1", "a/b/b2", "c/c1", "c/d/d1"}));
  EXPECT_EQ(Walk(u"c/gone/x", compare), (Names{"c/d/d1"}));
}

TEST_F(DirIteratorTest, CopiesOfARecursiveWalkGoOnIndependently) {
  for (const char* name :
       {"f0", "a/f1", "a/b/f2", "a/b/c/f3", "a/d/f4", "e/f5", "e/g/f6", "e/h/f7", "i/f8"})
    Write(name);
  MakeDir("a/empty");
  const Names whole = Walk();
  ASSERT_EQ(whole.size(), 9u);
  // Copy at every position, then step the two at different paces: each must
  // see the rest of the walk, whatever the other did with what they shared.
  for (std::size_t at = 0; at < whole.size(); ++at) {
    RecursiveFileIterator first(Dir(Path()), false);
    for (std::size_t i = 0; i < at; ++i) ++first;
    RecursiveFileIterator second = first;
    std::vector<UTF16String> seenFirst, seenSecond;
    while (first != RecursiveFileIterator() || second != RecursiveFileIterator()) {
      for (int twice = 0; twice < 2 && first != RecursiveFileIterator(); ++twice)
        seenFirst.push_back(UTF16String((first++).CurrentPath()));
      if (second != RecursiveFileIterator()) seenSecond.push_back((*second++).FullPath());
      ASSERT_LE(seenSecond.size(), whole.size());
    }
    const Names rest(whole.begin() + static_cast<std::ptrdiff_t>(at), whole.end());
    EXPECT_EQ(Relative(seenFirst, false), rest) << at;
    EXPECT_EQ(Relative(seenSecond, false), rest) << at;
  }
}

TEST_F(DirIteratorTest, RecursiveWalkEndsAtOnceWithoutFilesAndNeverLoops) {
  MakeDir("x/y/z");
  EXPECT_EQ(RecursiveFileIterator(Dir(Path()), false), RecursiveFileIterator());
  EXPECT_EQ(RecursiveFileIterator(Dir(Path("missing")), false), RecursiveFileIterator());
  Write("x/y/z/only");
  std::filesystem::create_directory_symlink(root_ / "x", root_ / "x/y/loop");
  EXPECT_EQ(Walk(), (Names{"x/y/z/only"}));
}

TEST_F(DirIteratorTest, NamesThatAreNotUtf8AreListedAndUsable) {
  const std::string bad = "bad\xFF\xFEname";
  { std::ofstream(root_ / bad) << "bytes"; }
  const auto files = Files(Dir(Path()));
  ASSERT_EQ(files.size(), 1u);
  File file(files[0]);
  EXPECT_EQ(file.Size(), 5u);
  EXPECT_EQ(file.FullPathMultiByte(), Native(bad));
  file.Rename(u"good");
  EXPECT_TRUE(OnDisk("good"));
}

TEST_F(DirIteratorTest, ListingsLargerThanOneReadAreWhole) {
  // Long names spread the directory over several reads of the kernel.
  std::set<std::string> made;
  for (int i = 0; i < 1500; ++i) {
    const std::string name = std::to_string(i) + "-" + std::string(90 + i % 7, 'n');
    Write("big/" + name);
    made.insert("big/" + name);
  }
  MakeDir("big/sub");
  const Dir big(Path("big"));
  const auto listed = Relative(Files(big));
  EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), made);
  EXPECT_EQ(listed.size(), made.size());  // each once
  EXPECT_EQ(Relative(Dirs(big)), (Names{"big/sub"}));
  // An abort far into the listing keeps what came before it.
  int asked = 0;
  boost::function<bool()> stopLate = [&] { return ++asked >= 1200; };
  const auto some = Relative(Files(big, false, false, &stopLate));
  EXPECT_EQ(asked, 1200);
  EXPECT_GE(some.size(), 1199u);  // the subdirectory may be among the entries read
  EXPECT_LE(some.size(), 1200u);
  for (const auto& name : some) EXPECT_EQ(made.count(name), 1u) << name;
  EXPECT_EQ(Relative(Files(big, false, false, nullptr, Descending()), false),
            Names(made.rbegin(), made.rend()));
}

TEST_F(DirIteratorTest, IteratorsLendThePathTheirValuesCarry) {
  for (const char* name : {"sub/a\u00e9", "sub/c\U0001F600", "sub/deep/d"}) Write(name);
  const Dir sub(Path("sub"));
  std::set<UTF16String> viaFiles;
  for (auto it = sub.BeginFiles(); it != Dir::EndFiles(); ++it) {
    EXPECT_EQ(UTF16String(it.CurrentPath()), (*it).FullPath());
    viaFiles.insert(UTF16String(it.CurrentPath()));
  }
  EXPECT_EQ(viaFiles, (std::set<UTF16String>{Path("sub/a\u00e9"), Path("sub/c\U0001F600")}));
  auto dirs = sub.BeginSubdirs();
  ASSERT_NE(dirs, Dir::EndSubdirs());
  EXPECT_EQ(UTF16String(dirs.CurrentPath()), Path("sub/deep"));
  EXPECT_EQ((*dirs++).FullPath(), Path("sub/deep"));
  EXPECT_TRUE(dirs.CurrentPath().empty());
  EXPECT_TRUE(Dir::EndFiles().CurrentPath().empty());
  EXPECT_TRUE(Dir::FileIterator().CurrentPath().empty());

  RecursiveFileIterator end(Dir(Path("sub/deep")), false);
  EXPECT_EQ(UTF16String(end.CurrentPath()), Path("sub/deep/d"));
  EXPECT_TRUE((++end).CurrentPath().empty());
  EXPECT_EQ((*end).FullPath(), u"");
}

TEST(Volumes, TheRootFileSystemIsAVolume) {
  std::set<UTF16String> volumes;
  for (auto it = Dir::BeginVolumes(); it != Dir::EndVolumes(); ++it) {
    const Dir volume = *it;
    EXPECT_TRUE(volume.Exists());
    volumes.insert(volume.FullPath());
  }
  EXPECT_EQ(volumes.count(u"/"), 1u);
  EXPECT_EQ(volumes.count(u"/proc"), 0u);
  auto sorted = Dir::BeginVolumes(Descending());
  ASSERT_NE(sorted, Dir::EndVolumes());
  EXPECT_EQ((*sorted).FullPath(), *volumes.rbegin());
}
