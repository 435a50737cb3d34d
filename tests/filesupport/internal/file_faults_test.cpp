// Failures only a fault injected into the platform layer can bring about on
// demand: flushes and writes that fail, a directory swapped for a link while
// a deletion runs. None of them may cost the user a byte.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <typeinfo>

#include "platform/TestSeams.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
namespace fs = std::filesystem;
namespace seams = tvxcore::platform::seams;

namespace {

class FileFaultTest : public tvxtest::TempDirTest {
 protected:
  void TearDown() override {
    seams::FailNext(seams::Fault::kSync, 0);
    seams::FailNext(seams::Fault::kWrite, 0);
    seams::SetBeforeDescend(nullptr);
    TempDirTest::TearDown();
  }
};

// Whether `call` throws exactly `type` for `file`.
bool Throws(const std::function<void()>& call, const std::type_info& type,
            const UTF16String& file) {
  try {
    call();
  } catch (const file_exception& e) {
    return typeid(e) == type && e.GetFile().FullPath() == file;
  }
  return false;
}

TEST_F(FileFaultTest, SaveWhoseFlushFailsLeavesTheTargetAndNamesIt) {
  for (const int err : {EIO, ENOSPC, EDQUOT}) {
    for (const bool existed : {true, false}) {
      SCOPED_TRACE(std::to_string(err) + (existed ? " over a target" : " new target"));
      fs::remove(root_ / "doc.txt");
      if (existed) Write("doc.txt", "the good old version");
      {
        SafeSave save(File(Path("doc.txt")));
        std::ofstream(tvxtest::N(save.CreateTempFile().FullPath()), std::ios::binary)
            << "the new one, of which the device lost some";
        seams::FailNext(seams::Fault::kSync, err);
        EXPECT_TRUE(Throws([&] { save.Commit(); }, typeid(file_exception), Path("doc.txt")));
        EXPECT_FALSE(save.GetTempFile().Exists()) << "the unreliable copy is gone at once";
      }
      EXPECT_EQ(Read("doc.txt"), existed ? "the good old version" : "");
      EXPECT_EQ(Entries(), existed ? std::set<std::string>{"doc.txt"} : std::set<std::string>{});
    }
  }
}

TEST_F(FileFaultTest, CopyThatFailsHalfWayLeavesTheDestinationAsItWas) {
  namespace fu = utility::FileUtils;
  Write("src", std::string(4 << 20, 's'));
  // A write that fails after the first chunk, and a flush that fails at the
  // end; the fault belongs to the destination, which is named.
  for (const seams::Fault fault : {seams::Fault::kWrite, seams::Fault::kSync}) {
    Write("dst", "old");
    auto failLater = [](double fraction, void* context) {
      if (fraction > 0 && fraction < 1)
        seams::FailNext(*static_cast<seams::Fault*>(context), ENOSPC);
      return false;
    };
    seams::Fault injected = fault;
    EXPECT_TRUE(
        Throws([&] { fu::CopyWithProgress(Path("src"), Path("dst"), failLater, &injected); },
               typeid(file_exception), Path("dst")));
    EXPECT_EQ(Read("dst"), "old");
    EXPECT_EQ(Entries(), (std::set<std::string>{"dst", "src"}));
  }
}

TEST_F(FileFaultTest, DirectorySwappedForALinkDuringDeleteIsRemovedAsTheLink) {
  Write("outside/keep.txt", "mine");
  for (const bool linkToDir : {true, false}) {
    SCOPED_TRACE(linkToDir ? "link to a directory" : "link to a file");
    for (const char* name : {"top/a/f1", "top/a/f2", "top/b/f3", "top/c"}) Write(name);
    // Just before the deletion enters "a", "a" goes elsewhere and a link
    // to the outside takes its name.
    seams::SetBeforeDescend([&](const std::string& name) {
      if (name != "a") return;
      fs::rename(root_ / "top/a", root_ / "moved");
      if (linkToDir)
        fs::create_directory_symlink(root_ / "outside", root_ / "top/a");
      else
        fs::create_symlink(root_ / "outside/keep.txt", root_ / "top/a");
    });
    Dir(Path("top")).Delete();
    seams::SetBeforeDescend(nullptr);
    EXPECT_FALSE(OnDisk("top"));
    EXPECT_EQ(Read("outside/keep.txt"), "mine");
    EXPECT_EQ(Entries("moved"), (std::set<std::string>{"f1", "f2"}))
        << "left the tree: not touched";
    fs::remove_all(root_ / "moved");
  }
}

}  // namespace
