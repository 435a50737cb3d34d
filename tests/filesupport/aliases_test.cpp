// The platform's aliases as File and Dir: resolving "*.lnk" links and making
// them.
#include <gtest/gtest.h>

#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/Aliases.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;

namespace {
class AliasesTest : public tvxtest::TempDirTest {};
}  // namespace

TEST_F(AliasesTest, ResolveIfAliasFollowsOnlyLinksNamedLnk) {
  Write("data/target.txt");
  MakeDir("data/folder");
  CreateShortCut(File(Path("data/target.txt")), File(Path("file.lnk")));
  CreateShortCut(File(Path("data/folder/")), Dir(Path("dir.lnk")));
  CreateShortCut(File(Path("data/target.txt")), File(Path("CAPS.LNK")));
  CreateShortCut(File(Path("data/gone")), File(Path("broken.lnk")));
  CreateShortCut(File(Path("data/target.txt")), File(Path("plain")));
  CreateShortCut(File(Path("data/folder")), File(Path("file.lnk")));  // taken: left as it is
  Write("real.lnk");

  struct Row {
    const char* name;
    const char* target;  // null: not resolved
    bool isDir;
  };
  const Row rows[] = {
      {"file.lnk", "data/target.txt", false},
      {"dir.lnk", "data/folder", true},
      {"CAPS.LNK", "data/target.txt", false},
      {"broken.lnk", nullptr, false},
      {"plain", nullptr, false},
      {"real.lnk", nullptr, false},
      {"missing.lnk", nullptr, false},
  };
  for (const Row& row : rows) {
    File outFile(u"/untouched");
    Dir outDir(u"/untouched");
    bool isDir = !row.isDir;
    EXPECT_EQ(ResolveIfAlias(File(Path(row.name)), outFile, outDir, isDir), row.target != nullptr)
        << row.name;
    const UTF16String expected = row.target ? Path(row.target) : UTF16String(u"/untouched");
    EXPECT_EQ((row.target && row.isDir ? outDir.FullPath() : outFile.FullPath()), expected)
        << row.name;
    EXPECT_EQ((row.target && row.isDir ? outFile.FullPath() : outDir.FullPath()),
              UTF16String(u"/untouched"))
        << row.name;
    EXPECT_EQ(isDir, row.target ? row.isDir : !row.isDir) << row.name;  // untouched

    // Only a file target replaces the file.
    File file(Path(row.name));
    ResolveIfAliasFileOnly(file);
    EXPECT_EQ(file.FullPath(), row.target && !row.isDir ? Path(row.target) : Path(row.name))
        << row.name;
    // The resolving constructors take a target of their own kind only.
    EXPECT_EQ(File(Dir(Path()), tvxtest::U(row.name), true).FullPath(), file.FullPath());
    EXPECT_EQ(Dir(Dir(Path()), tvxtest::U(row.name), true).FullPath(),
              row.target && row.isDir ? Path(row.target) : Path(row.name))
        << row.name;
  }
}
