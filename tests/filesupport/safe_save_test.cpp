#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <typeinfo>

#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/threads/Thread.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::N;

namespace {

class SafeSaveTest : public tvxtest::TempDirTest {
 protected:
  // Creates the save's temporary file holding `text`; returns its path.
  static std::string WriteTemp(SafeSave& save, const std::string& text) {
    save.GetTempFile().Create(false);
    const std::string path = N(save.GetTempFile().FullPath());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    return path;
  }
};

// ".<process>.<thread>" of the calling thread.
std::string Ids() {
  return "." + std::to_string(threads::GetCurrentProcessID()) + "." +
         std::to_string(threads::GetCurrentThreadID());
}

TEST_F(SafeSaveTest, TempNameIsTitleProcessThreadAndLowerCaseExtensionBesideTarget) {
  // Each target with its temporary name, "%" standing for Ids().
  const std::pair<const char*, std::string> cases[] = {{"Prefs.XML", "Prefs%.xml"},
                                                       {"noext", "noext%"},
                                                       {"a.b.TxT", "a.b%.txt"},
                                                       {"sub/Deep.Plist", "sub/Deep%.plist"}};
  for (auto [target, name] : cases) {
    SafeSave save(File(Path(target)));
    EXPECT_EQ(N(save.GetTempFile().FullPath()), Native(name.replace(name.find('%'), 1, Ids())))
        << target;
    EXPECT_FALSE(save.GetTempFile().Exists()) << "nothing is made on disk: " << target;
  }
  // Another thread gets its own name for the same target.
  std::string theirs, theirsExpected;
  std::thread([&] {
    theirs = N(SafeSave(File(Path("x.dat"))).GetTempFile().FullPath());
    theirsExpected = Native("x" + Ids() + ".dat");
  }).join();
  EXPECT_EQ(theirs, theirsExpected);
  EXPECT_NE(theirs, Native("x" + Ids() + ".dat"));
}

TEST_F(SafeSaveTest, CommitPutsNewContentAtTargetAndAnAbandonedSaveLeavesIt) {
  struct Row {
    bool existed, writeTemp, commit;
  };
  for (const Row row : {Row{true, true, true}, Row{false, true, true}, Row{true, true, false},
                        Row{true, false, false}}) {
    SCOPED_TRACE(std::string(row.existed ? "target existed" : "no target") +
                 (row.writeTemp ? ", temp written" : ", no temp") +
                 (row.commit ? ", committed" : ", abandoned"));
    std::filesystem::remove(Native("prefs.xml"));
    if (row.existed) Write("prefs.xml", "old contents");
    std::string tempPath;
    {
      SafeSave save(File(Path("prefs.xml")));
      tempPath = row.writeTemp ? WriteTemp(save, "new contents") : N(save.GetTempFile().FullPath());
      EXPECT_EQ(Read("prefs.xml"), row.existed ? "old contents" : "") << "untouched before commit";
      if (row.commit) {
        save.Commit();
        EXPECT_EQ(N(save.GetTempFile().FullPath()), Native("prefs.xml")) << "temp names the target";
        EXPECT_FALSE(std::filesystem::exists(tempPath));
      }
    }
    EXPECT_FALSE(std::filesystem::exists(tempPath));
    EXPECT_EQ(Read("prefs.xml"), row.commit ? "new contents" : "old contents");
    EXPECT_EQ(Entries().size(), 1u);
  }
}

TEST_F(SafeSaveTest, FailedCommitRaisesRenameFileAndLeavesOldTarget) {
  // A non-empty directory at the target's name, and a plain target with no
  // temporary file written: both refuse the rename.
  Write("busy.xml/inside.txt", "kept");
  Write("plain.xml", "old");
  for (const bool writeTemp : {true, false}) {
    const std::string target = writeTemp ? "busy.xml" : "plain.xml";
    SCOPED_TRACE(target);
    std::string tempPath;
    {
      SafeSave save(File(Path(target)));
      tempPath = writeTemp ? WriteTemp(save, "new") : N(save.GetTempFile().FullPath());
      try {
        save.Commit();
        ADD_FAILURE() << "Commit succeeded";
      } catch (const rename_file& error) {
        EXPECT_STREQ(error.what(),
                     "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.");
        EXPECT_EQ(N(error.GetFile().FullPath()), Native(target)) << "the user's file is named";
        EXPECT_EQ(N(error.GetNewName()), target);
      }
      EXPECT_EQ(std::filesystem::exists(tempPath), writeTemp);
    }
    EXPECT_FALSE(std::filesystem::exists(tempPath)) << "the destructor removes the temp file";
  }
  EXPECT_EQ(Read("busy.xml/inside.txt"), "kept");
  EXPECT_EQ(Read("plain.xml"), "old");
}

TEST_F(SafeSaveTest, SavedFileKeepsThePermissionBitsOfTheOneItReplaces) {
  namespace fs = std::filesystem;
  const mode_t mask = ::umask(022);
  ::umask(mask);
  const auto usual = fs::perms(0666 & ~mask);
  // The target's bits before the save (0 for no target), and whether the
  // temporary file is made by CreateTempFile or by the caller.
  const std::pair<int, bool> cases[] = {{0600, false}, {0600, true}, {0640, false},
                                        {0444, true},  {0, false},   {0, true}};
  for (auto [bits, viaSave] : cases) {
    SCOPED_TRACE(std::to_string(bits) + (viaSave ? " CreateTempFile" : " File::Create"));
    fs::remove(Native("settings.plist"));
    if (bits != 0) {
      Write("settings.plist", "old");
      fs::permissions(root_ / "settings.plist", fs::perms(bits));
    }
    SafeSave save(File(Path("settings.plist")));
    if (viaSave) {
      EXPECT_EQ(&save.CreateTempFile(), &save.GetTempFile());
      // Never more open to others than the old file, not even while being
      // written; its owner may write it.
      EXPECT_EQ(fs::status(N(save.GetTempFile().FullPath())).permissions(),
                bits != 0 ? fs::perms(bits | 0600) : usual);
      std::ofstream(N(save.GetTempFile().FullPath()), std::ios::binary | std::ios::trunc) << "new";
    } else {
      WriteTemp(save, "new");
    }
    save.Commit();
    EXPECT_EQ(Read("settings.plist"), "new");
    EXPECT_EQ(fs::status(root_ / "settings.plist").permissions(),
              bits != 0 ? fs::perms(bits) : usual);
  }
}

TEST_F(SafeSaveTest, TempFileThatCantBeMadeIsReportedForTheTarget) {
  namespace fs = std::filesystem;
  MakeDir("ro");
  Write("ro/r.plist", "old");
  fs::permissions(root_, fs::perms::others_exec | fs::perms::group_exec, fs::perm_options::add);
  fs::permissions(root_ / "ro", fs::perms(0555));
  // The target, the exception expected and whether it needs a folder that
  // refuses (and so the save run without root's power).
  struct Row {
    const char* target;
    const std::type_info& expected;
    bool unprivileged;
  };
  const Row rows[] = {{"missing/r.plist", typeid(create_invalidpath_exception), false},
                      {"ro/r.plist", typeid(create_accessdenied_exception), true}};
  for (const Row& row : rows) {
    auto attempt = [&] {
      try {
        SafeSave(File(Path(row.target))).CreateTempFile();
      } catch (const create_exception& e) {
        return typeid(e) == row.expected && e.GetFile().FullPath() == Path(row.target) ? 0 : 1;
      }
      return 2;
    };
    EXPECT_EQ(row.unprivileged ? tvxtest::RunUnprivileged(attempt) : attempt(), 0) << row.target;
  }
  EXPECT_EQ(Read("ro/r.plist"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "ro"), {}), 1);
}

}  // namespace
