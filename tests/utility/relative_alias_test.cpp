// Relative aliases: counts, stored forms, the error table, and finding a
// target after its tree moved, in another normal form or on another volume.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "config/ErrorTestSupport.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/utility/FileUtils.h"
#include "tvxcore/utility/RelativeAlias.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;
namespace fu = tvxcore::utility::FileUtils;
using fu::RelativeAlias;

namespace {

UTF8String U8(std::string_view text) { return UTF8String(text.begin(), text.end()); }

// A native path (any bytes) as the library holds it.
UTF16String FromBytes(const std::string& native) {
  return filesupport::File(filesupport::FileHelper(native)).FullPath();
}
std::string ToBytes(const UTF16String& path) { return filesupport::File(path).FullPathMultiByte(); }

// The error number raised by `action` through an installed manager (checked
// for its level, module and key), and once more without one (a logic_error
// holding the same key). -1 when nothing is raised.
int RaisedNumber(const std::function<void()>& action) {
  tvxtest::RecordingErrorManager manager;
  manager.throwWhenNotDeferred = true;
  config::ErrorManager::Set(&manager);
  int number = -1;
  try {
    action();
  } catch (const tvxtest::RecordedFailure&) {
    const tvxtest::Report report = manager.Reports().back();
    EXPECT_EQ(report.level, config::kErrorLevel_NonFatal);
    EXPECT_EQ(report.module, 0x6Du);
    EXPECT_EQ(report.key, fu::RelativeAliasErrorKey(report.number));
    number = report.number;
  }
  config::ErrorManager::Set(nullptr);
  try {
    action();
    EXPECT_EQ(number, -1) << "nothing raised without a manager";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), fu::RelativeAliasErrorKey(number));
  }
  return number;
}

class RelativeAliasTest : public tvxtest::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
    xml::SetParserFactory(factory);
  }
  void TearDown() override {
    xml::ResetParserFactory();
    TempDirTest::TearDown();
  }
  // The record as stored and read back, in both forms, which must agree.
  static RelativeAlias Stored(const RelativeAlias& alias) {
    const RelativeAlias fromJSON(alias.FlattenTo_UTF8_JSON());
    proplist::PropList list;
    alias.FlattenTo_PropList(list);
    UTF8String xml;
    proplist::utils::WritePropList(xml, list);
    EXPECT_EQ(RelativeAlias(xml), fromJSON);
    return fromJSON;
  }
};

}  // namespace

TEST(RelativeAliasCounts, CountLevelsFromTheCommonFolder) {
  struct Row {
    const char16_t* base;
    bool baseIsDir;
    const char16_t* target;
    bool targetIsDir;
    bool relative;
    unsigned long long baseCount, targetCount;
  };
  const Row rows[] = {
      {u"C:\\a\\b", true, u"C:\\a\\c\\t", false, true, 2, 2},
      {u"C:\\a\\doc", false, u"C:\\a\\c", true, true, 1, 2},
      {u"\\\\srv\\share\\a\\doc", false, u"\\\\srv\\share\\b\\t", false, true, 2, 2},
      {u"/tvx-none/p/q/doc", false, u"/tvx-none/p", true, true, 2, 1},
      {u"/tvx-none/p/a\\b/doc", false, u"/tvx-none/p/a\\c", false, true, 2, 1},
      {u"C:\\a\\doc", false, u"D:\\a\\t", false, false, 0, 0},
      {u"", false, u"/tvx-none/t", false, false, 0, 0},
  };
  for (const Row& row : rows) {
    unsigned long long base = 99, target = 99;
    EXPECT_EQ(RelativeAlias::GetRelativeAscendCounts(row.base, row.baseIsDir, row.target,
                                                     row.targetIsDir, base, target),
              row.relative)
        << tvxtest::S(row.target);
    EXPECT_EQ(base, row.baseCount) << tvxtest::S(row.target);
    EXPECT_EQ(target, row.targetCount) << tvxtest::S(row.target);
  }
  // One volume, no common folder.
  EXPECT_EQ(RaisedNumber([] {
              unsigned long long base = 0, target = 0;
              RelativeAlias::GetRelativeAscendCounts(u"C:x", false, u"C:y", false, base, target);
            }),
            fu::kRelativeAliasInvalidIndex);
}

TEST_F(RelativeAliasTest, FollowsATreeThatMoved) {
  struct Row {
    std::string target;  // below the tree; "/" at the end: a folder
    std::string base;    // the document, or a folder with "/" at the end
  };
  const Row rows[] = {
      {"media/clip.mov", "projects/2024/edit.prproj"},
      {"media/", "projects/edit.prproj"},
      {"media/a.wav", "projects/"},
      {"edit/a.wav", "edit/"},
      {"edit/", "edit/"},
      {"media/\xff\xfe name.wav", "doc.prproj"},  // bytes that aren't UTF-8
  };
  int index = 0;
  for (const Row& row : rows) {
    const std::string tree = "tree" + std::to_string(index++);
    const bool isDir = row.target.back() == '/';
    const bool baseIsDir = row.base.back() == '/';
    std::filesystem::create_directories(root_ / tree);
    if (isDir)
      MakeDir(tree + "/" + row.target);
    else
      Write(tree + "/" + row.target);
    const UTF16String target = FromBytes(Native(tree + "/" + row.target));
    const UTF16String base = FromBytes(Native(tree + "/" + row.base));
    const RelativeAlias made(target, isDir, &base, baseIsDir);
    ASSERT_TRUE(made.HasRelativePath()) << row.target;
    const RelativeAlias alias = Stored(made);

    utility::Flags<unsigned char> result;
    EXPECT_EQ(ToBytes(alias.ResolveAlias(&base, baseIsDir, false, true, result)),
              ToBytes(filesupport::Dir(target).FullPath()));
    EXPECT_EQ(result.Bits(), RelativeAlias::kResolved) << row.target;

    std::filesystem::rename(root_ / tree, root_ / (tree + "-moved"));
    const UTF16String movedBase = FromBytes(Native(tree + "-moved/" + row.base));
    const UTF16String found = alias.ResolveAlias(&movedBase, baseIsDir, false, true, result);
    EXPECT_EQ(
        ToBytes(found),
        ToBytes(filesupport::Dir(FromBytes(Native(tree + "-moved/" + row.target))).FullPath()))
        << row.target;
    EXPECT_EQ(result.Bits(), RelativeAlias::kResolved | RelativeAlias::kRelocated) << row.target;
    // Without the base only the recorded path is tried, and it is gone.
    EXPECT_EQ(alias.ResolveAlias(nullptr, false, false, false, result), UTF16String());
    EXPECT_EQ(result.Bits(), 0);
  }
}

TEST_F(RelativeAliasTest, FindsANameStoredInAnotherNormalForm) {
  const std::string composed = "caf\xc3\xa9.wav";     // NFC
  const std::string decomposed = "cafe\xcc\x81.wav";  // NFD
  struct Row {
    const std::string& onDisk;
    const std::string& inRecord;
    bool withBase;
  };
  const Row rows[] = {{composed, decomposed, false}, {decomposed, composed, true}};
  int index = 0;
  for (const Row& row : rows) {
    const std::string dir = "n" + std::to_string(index++);
    Write(dir + "/media/" + row.onDisk);
    const UTF16String base = Path(dir + "/doc");
    const RelativeAlias alias(Path(dir + "/media/" + row.inRecord), false, &base, false);
    utility::Flags<unsigned char> result;
    const UTF16String found =
        alias.ResolveAlias(row.withBase ? &base : nullptr, false, false, true, result);
    EXPECT_EQ(found, Path(dir + "/media/" + row.onDisk)) << index;
    EXPECT_TRUE(result.IsSet(RelativeAlias::kResolved)) << index;
    EXPECT_FALSE(result.IsSet(RelativeAlias::kRelocated)) << index;  // the same name
  }
}

TEST_F(RelativeAliasTest, TargetOnAnotherVolumeKeepsItsAbsolutePath) {
  // /dev/shm is a RAM disk of its own wherever the test runs on Linux.
  const std::filesystem::path other = "/dev/shm";
  UTF16String mine, theirs;
  ASSERT_TRUE(fu::GetVolumePath(Path(), mine));
  if (!std::filesystem::is_directory(other) ||
      !fu::GetVolumePath(tvxtest::U(other.string()), theirs) || mine == theirs)
    GTEST_SKIP() << "no second volume beside " << Native();
  const std::filesystem::path file = other / ("tvx-alias-" + root_.filename().string());
  std::ofstream(file) << "x";
  const UTF16String target = tvxtest::U(file.string());
  const UTF16String base = Path("doc");
  const RelativeAlias alias = Stored(RelativeAlias(target, false, &base, false));
  EXPECT_FALSE(alias.HasRelativePath());
  EXPECT_EQ(alias.GetAscendCount_Target(), 0u);
  utility::Flags<unsigned char> result;
  EXPECT_EQ(alias.ResolveAlias(&base, false, true, true, result), target);
  EXPECT_EQ(result.Bits(), RelativeAlias::kResolved);
  std::filesystem::remove(file);
  EXPECT_EQ(alias.ResolveAlias(&base, false, true, false, result), UTF16String());
}

TEST_F(RelativeAliasTest, DamagedAndHostileRecordsRaiseTheirErrors) {
  Write("doc");
  Write("t");
  const UTF16String base = Path("doc");
  const RelativeAlias good(Path("t"), false, &base, false);
  UTF16String deep = u"/";
  for (int i = 0; i < 100000; ++i) deep += u"a/";
  deep += u"t";
  struct Row {
    const char* what;
    std::function<void(RelativeAlias&)> damage;
    int number;  // -1: resolves to nothing, without an error
  };
  const Row rows[] = {
      {"wrong magic", [](RelativeAlias& a) { a.magic = 0x41436C72; }, fu::kRelativeAliasMagic},
      {"no target count", [](RelativeAlias& a) { a.ascendCountTarget = 0; },
       fu::kRelativeAliasInvalidAscendCount},
      {"100000 target components", [](RelativeAlias& a) { a.ascendCountTarget = 100000; },
       fu::kRelativeAliasInvalidAscendCount},
      {"climbing 100000 levels, gone",
       [this](RelativeAlias& a) {
         a.fullPath = Path("gone");
         a.ascendCountBase = 100000;
       },
       -1},
      {"no path", [](RelativeAlias& a) { a.fullPath.clear(); }, fu::kRelativeAliasDirNotFound},
      {"climbing in the path", [](RelativeAlias& a) { a.fullPath = u"/tmp/../../etc/t"; },
       fu::kRelativeAliasInvalidPath},
      {"a relative path", [](RelativeAlias& a) { a.fullPath = u"t"; },
       fu::kRelativeAliasInvalidPath},
      {"100000 levels deep, gone",
       [&deep](RelativeAlias& a) {
         a.fullPath = deep;
         a.ascendCountTarget = 100001;
       },
       -1},
  };
  for (const Row& row : rows) {
    RelativeAlias alias = good;
    row.damage(alias);
    EXPECT_EQ(RaisedNumber([&] {
                utility::Flags<unsigned char> result = 3;
                const UTF16String found = alias.ResolveAlias(&base, false, true, false, result);
                EXPECT_EQ(found, UTF16String());
                EXPECT_EQ(result.Bits(), 0);
              }),
              row.number)
        << row.what;
    if (row.number == -1) {
      EXPECT_EQ(RaisedNumber([&] {
                  utility::Flags<unsigned char> result;
                  alias.ResolveAlias(&base, false, true, true, result);
                }),
                fu::kRelativeAliasNotFound)
          << row.what;
    }
  }
  // Paths a record can't be made of.
  for (const char16_t* path : {u"", u"relative/t", u"/a/./t", u"/a/../t"})
    EXPECT_EQ(RaisedNumber([&] { RelativeAlias(path, false, nullptr, false); }),
              fu::kRelativeAliasInvalidPath)
        << tvxtest::S(path);
}

TEST_F(RelativeAliasTest, StoredTextThatIsNoRecordRaisesItsError) {
  struct Row {
    std::string text;
    int number;
  };
  const Row rows[] = {
      {"", fu::kRelativeAliasInvalidPath},
      {"{", fu::kRelativeAliasMagic},
      {"{\"fullpath\":\"/t\"}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":[]}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":{\"ascendcount_base\":\"1\"}}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":{\"fullpath\":\"/\xff\"}}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":{\"fullpath\":5}}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":{\"target_is_folder\":1}}", fu::kRelativeAliasMagic},
      {"{\"SerializerWrappedObject\":{\"ascendcount_base\":-1}}",
       fu::kRelativeAliasInvalidAscendCount},
      {"{\"SerializerWrappedObject\":{\"ascendcount_target\":1.5}}",
       fu::kRelativeAliasInvalidAscendCount},
      {"{\"SerializerWrappedObject\":{}}", -1},
  };
  for (const Row& row : rows)
    EXPECT_EQ(RaisedNumber([&] { RelativeAlias alias(U8(row.text)); }), row.number) << row.text;

  // A property list that isn't one comes with the property list's own error.
  EXPECT_THROW(RelativeAlias(U8("<prop.map")), std::logic_error);
}

TEST_F(RelativeAliasTest, StoredFormsReadBackWhatWasWritten) {
  const UTF16String server = u"srv", volume = u"share";
  const UTF16String nonText = FromBytes("/media/\xff\xc0 take \"1\"\\2\t.wav");
  const RelativeAlias rows[] = {
      RelativeAlias(u"/home/me/a.wav", false, RelativeAlias::kMadeOnThisPlatform, &server, &volume),
      RelativeAlias(u"C:\\Users\\me\\clip \"x\".mov", false, 0, nullptr, nullptr),
      RelativeAlias(nonText, true, 3, &volume, nullptr),
      RelativeAlias(u"/caf\u00e9/\U0001F3AC\x01", false, 1, nullptr, nullptr),
      RelativeAlias(u"", false, 0, nullptr, nullptr),
  };
  for (RelativeAlias alias : rows) {
    alias.SetAscendCount_Base(7);
    alias.SetAscendCount_Target(1ULL << 40);
    EXPECT_EQ(Stored(alias), alias) << tvxtest::S(alias.GetFullPath());
  }
  // A folder may be marked by a separator at the end of its path alone.
  proplist::PropList list;
  list.SetValue(U8("fullpath"), UTF16String(u"/a/b/"));
  const RelativeAlias folder(list);
  EXPECT_EQ(folder.GetFullPath(), u"/a/b");
  EXPECT_TRUE(folder.IsDir());
  EXPECT_EQ(folder.GetName(), u"b");
  const RelativeAlias empty{proplist::PropList()};
  EXPECT_TRUE(RelativeAlias::MagicNumberValid(empty));
  EXPECT_EQ(empty, RelativeAlias(u"", false, 0, nullptr, nullptr));
}

TEST(RelativeAliasPlatformForms, PathsMoveBetweenThisPlatformAndWindows) {
  struct Row {
    const char16_t* stored;
    unsigned long flags;
    const char16_t* server;
    bool wantWindows;
    const char16_t* expected;
  };
  const Row rows[] = {
      {u"C:\\Users\\me\\a.wav", 0, u"", false, u"/mnt/c/Users/me/a.wav"},
      {u"d:\\", 0, u"", false, u"/mnt/d"},
      {u"/mnt/c/Users/me/a.wav", 1, u"", true, u"C:\\Users\\me\\a.wav"},
      {u"\\\\tvx-none-srv\\share\\dir\\f", 0, u"tvx-none-srv", false, u"/Volumes/share/dir/f"},
      {u"/Volumes/share/dir/f", 1, u"srv", true, u"\\\\srv\\share\\dir\\f"},
      {u"/home/me/a\\b", 1, u"", true, u"\\home\\me\\a\\b"},
      {u"/home/me/a.wav", 1, u"", false, u"/home/me/a.wav"},
  };
  for (const Row& row : rows) {
    const UTF16String server = row.server;
    const RelativeAlias alias(row.stored, false, row.flags, &server, nullptr);
    UTF16String serverOut = u"?", volumeOut = u"?";
    EXPECT_EQ(alias.GetPlatformFullPath(&serverOut, &volumeOut,
                                        row.wantWindows ? RelativeAlias::kOtherPlatformForm : 0),
              row.expected)
        << tvxtest::S(row.stored);
    EXPECT_EQ(serverOut, server);
    EXPECT_EQ(volumeOut, UTF16String());
  }
}
