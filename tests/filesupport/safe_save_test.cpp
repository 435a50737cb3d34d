#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "filesupport/TempDirFixture.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/threads/Thread.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::N;

namespace {

class SafeSaveTest : public tvxtest::TempDirTest {
 protected:
  std::string Read(const std::string& relative) const {
    std::ifstream in(root_ / relative, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }
  static void WriteFile(const File& file, const std::string& text) {
    std::ofstream(N(file.FullPath()), std::ios::binary | std::ios::trunc) << text;
  }
  std::size_t EntryCount() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(root_)) ++count;
    return count;
  }
};

TEST_F(SafeSaveTest, TempNameIsTitleProcessThreadAndLowerCaseExtensionBesideTarget) {
  struct Case {
    const char* target;
    const char* title;
    const char* extension;
  };
  const Case cases[] = {{"Prefs.XML", "Prefs", ".xml"},
                        {"noext", "noext", ""},
                        {"a.b.TxT", "a.b", ".txt"},
                        {"sub/Deep.Plist", "Deep", ".plist"}};
  auto expected = [&](const Case& c) {
    const std::string parent = std::filesystem::path(Native(c.target)).parent_path().string();
    return parent + "/" + c.title + "." + std::to_string(threads::GetCurrentProcessID()) + "." +
           std::to_string(threads::GetCurrentThreadID()) + c.extension;
  };
  for (const Case& c : cases) {
    SafeSave save(File(Path(c.target)));
    EXPECT_EQ(N(save.GetTempFile().FullPath()), expected(c)) << c.target;
    EXPECT_FALSE(save.GetTempFile().Exists()) << "nothing is made on disk: " << c.target;
  }
  // Another thread gets its own name for the same target.
  std::string mine = N(SafeSave(File(Path("x.dat"))).GetTempFile().FullPath());
  std::string theirs, theirsExpected;
  std::thread([&] {
    theirs = N(SafeSave(File(Path("x.dat"))).GetTempFile().FullPath());
    theirsExpected = Native("x." + std::to_string(threads::GetCurrentProcessID()) + "." +
                            std::to_string(threads::GetCurrentThreadID()) + ".dat");
  }).join();
  EXPECT_EQ(theirs, theirsExpected);
  EXPECT_NE(mine, theirs);
}

TEST_F(SafeSaveTest, CommitPutsNewContentAtTargetWhetherOrNotItExisted) {
  for (bool existed : {true, false}) {
    SCOPED_TRACE(existed ? "target existed" : "no target");
    std::filesystem::remove(Native("prefs.xml"));
    if (existed) Write("prefs.xml", "old contents");
    const File target(Path("prefs.xml"));
    {
      SafeSave save(target);
      File& temp = save.GetTempFile();
      temp.Create(false);
      WriteFile(temp, "new contents");
      EXPECT_EQ(Read("prefs.xml"), existed ? "old contents" : "") << "untouched before commit";
      const std::string tempPath = N(temp.FullPath());
      save.Commit();
      EXPECT_EQ(N(temp.FullPath()), Native("prefs.xml")) << "temp now names the target";
      EXPECT_FALSE(std::filesystem::exists(tempPath));
    }
    EXPECT_EQ(Read("prefs.xml"), "new contents") << "the destructor keeps the result";
    EXPECT_EQ(EntryCount(), 1u);
  }
}

TEST_F(SafeSaveTest, FailedCommitRaisesRenameFileAndLeavesOldTarget) {
  // A non-empty directory at the target's name, and a plain target with no
  // temporary file written: both refuse the rename.
  Write("busy.xml/inside.txt", "kept");
  Write("plain.xml", "old");
  struct Case {
    const char* target;
    bool writeTemp;
  };
  for (const Case& c : {Case{"busy.xml", true}, Case{"plain.xml", false}}) {
    SCOPED_TRACE(c.target);
    std::string tempPath;
    {
      SafeSave save(File(Path(c.target)));
      tempPath = N(save.GetTempFile().FullPath());
      if (c.writeTemp) {
        save.GetTempFile().Create(false);
        WriteFile(save.GetTempFile(), "new");
      }
      try {
        save.Commit();
        ADD_FAILURE() << "Commit succeeded";
      } catch (const rename_file& error) {
        EXPECT_STREQ(error.what(),
                     "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.");
        EXPECT_EQ(N(error.GetFile().FullPath()), tempPath);
        EXPECT_EQ(N(error.GetNewName()), c.target);
      }
      EXPECT_EQ(std::filesystem::exists(tempPath), c.writeTemp);
    }
    EXPECT_FALSE(std::filesystem::exists(tempPath)) << "the destructor removes the temp file";
  }
  EXPECT_EQ(Read("busy.xml/inside.txt"), "kept");
  EXPECT_EQ(Read("plain.xml"), "old");
}

TEST_F(SafeSaveTest, AbandonedSaveRemovesItsTempFileAndLeavesTarget) {
  Write("doc.txt", "original");
  for (bool created : {true, false}) {
    SCOPED_TRACE(created ? "temp created" : "temp never created");
    std::string tempPath;
    {
      SafeSave save(File(Path("doc.txt")));
      tempPath = N(save.GetTempFile().FullPath());
      if (created) {
        save.GetTempFile().Create(false);
        WriteFile(save.GetTempFile(), "half written");
      }
    }
    EXPECT_FALSE(std::filesystem::exists(tempPath));
    EXPECT_EQ(Read("doc.txt"), "original");
    EXPECT_EQ(EntryCount(), 1u);
  }
}

}  // namespace
