#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <list>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "TestText.h"
#include "config/ErrorTestSupport.h"
#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/proplist/PropListFiles.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using tvxtest::N;
using tvxtest::U16;
using tvxtest::U8;
using tvxtest::WriteText;

namespace {

constexpr char kLoadKey[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListLoad=Error parsing properties "
    "list from file \"^1\".";
constexpr char kRenameKey[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListCorruptRename=Error parsing "
    "properties list from file \"^1\". It has been renamed to \"^2\" for backup. Proceeding.";
constexpr char kReadKey[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ReadingPropertiesListLoad=Could not read properties "
    "list from file \"^1\": ^2.";
constexpr char kMissingFactoryKey[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryLoad=Missing XML Parser Factory "
    "in LoadPropList.";

class PropListFiles : public tvxtest::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    tvxtest::InstallExpat();
    config::ErrorManager::Set(&errors_);
  }
  void TearDown() override {
    config::ErrorManager::Set(nullptr);
    xml::ResetParserFactory();
    TempDirTest::TearDown();
  }
  static PropList Sample() {
    PropList list;
    tvxtest::FillEveryType(list);
    return list;
  }
  // A list that holds something, to show a failed load empties it.
  static PropList Filled() {
    PropList list;
    list.SetValue(U8("before"), std::int32_t{1});
    return list;
  }

  tvxtest::RecordingErrorManager errors_;
};

// Each list is saved over what was there and loads back as it was: values
// that straddle the reader's buffers, what XML 1.0 cannot carry (escaped by
// the writer, restored by the reader), and a folder with a Latin-1 name, as
// old archives leave them, reached by the path the library lists for it.
TEST_F(PropListFiles, SavedListsLoadBackIdentically) {
  PropList large;
  for (int i = 0; i < 40; ++i) {
    large.SetValue(U8(std::string("s").append(std::to_string(i))),
                   U8(std::string(5000 + i, static_cast<char>('a' + i % 26)) + "&<\xC3\xA9>"));
  }
  large.SetValue(U8("u"), UTF16String(100000, u'\u00e9'));
  large.NewSubList(U8("t"))->SetValue(U8("d"), PropList::List<double>(3000, 0.25));
  const PropList sample = Sample();
  PropList odd = sample;
  tvxtest::FillUnrepresentable(*odd.NewSubList(U8("odd")));
  tvxtest::FillUnrepresentable(odd);
  MakeDir("caf\xE9");
  const auto latin1 = filesupport::Dir(Path()).BeginSubdirs();
  ASSERT_NE(latin1, filesupport::Dir::EndSubdirs());
  const struct {
    std::string name;
    UTF16String path;
    const PropList& list;
  } cases[] = {
      {"prefs.xml", Path("prefs.xml"), sample},
      {"large.xml", Path("large.xml"), large},
      {"odd.xml", Path("odd.xml"), odd},
      {"caf\xE9/prefs.xml", filesupport::File(*latin1, U16(u"prefs.xml")).FullPath(), sample},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Write(c.name, "previous contents");
    utils::SavePropList(c.path, c.list);
    EXPECT_EQ(Read(c.name), WriteText(c.list)) << "the file holds exactly the XML form";
    PropList loaded;
    utils::LoadPropList(c.path, loaded, true);
    EXPECT_EQ(WriteText(loaded), WriteText(c.list));
    EXPECT_EQ(Read(c.name), WriteText(c.list)) << "a good file is never put aside";
    EXPECT_FALSE(OnDisk(c.name + ".old"));
  }
  EXPECT_TRUE(errors_.Reports().empty());
  EXPECT_EQ(Entries(), (std::set<std::string>{"caf\xE9", "large.xml", "odd.xml", "prefs.xml"}));
}

TEST_F(PropListFiles, FailedLoadsEmptyTheListAndReportKeyAndPath) {
  const std::string valid = WriteText(Sample());
  // A truncated document: the reader has stored values before it fails.
  const std::string corrupt = valid.substr(0, valid.size() * 2 / 3);
  const struct {
    const char* label;
    bool exists, oldExists, renameCorrupt;
    const char* expectedKey;
  } cases[] = {
      {"missing, rename asked", false, false, true, kLoadKey},
      {"corrupt, kept", true, false, false, kLoadKey},
      {"corrupt, put aside", true, false, true, kRenameKey},
      {"corrupt, older backup replaced", true, true, true, kRenameKey},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::filesystem::remove(Native("p.xml"));
    std::filesystem::remove(Native("p.xml.old"));
    if (c.exists) Write("p.xml", corrupt);
    if (c.oldExists) Write("p.xml.old", "an older backup");
    const std::size_t before = errors_.Reports().size();
    const bool putAside = c.exists && c.renameCorrupt;

    PropList list = Filled();
    utils::LoadPropList(Path("p.xml"), list, c.renameCorrupt);

    EXPECT_EQ(WriteText(list), WriteText(PropList())) << "nothing of the file, nothing of before";
    const auto reports = errors_.Reports();
    ASSERT_EQ(reports.size(), before + 1);
    const tvxtest::Report& report = reports.back();
    EXPECT_EQ(report.key, c.expectedKey);
    EXPECT_EQ(report.level, config::kErrorLevel_NonFatal);
    EXPECT_EQ(report.module, 104u);
    EXPECT_EQ(report.number, 22);
    EXPECT_EQ(N(report.values[0].GetString()), Native("p.xml"));
    EXPECT_EQ(N(report.values[1].GetString()), putAside ? "p.xml.old" : "");
    EXPECT_EQ(report.values[2].GetKind(), config::ReplacementValue::kKind_Empty);
    EXPECT_EQ(report.values[3].GetKind(), config::ReplacementValue::kKind_Empty);
    EXPECT_EQ(OnDisk("p.xml"), c.exists && !putAside);
    EXPECT_EQ(OnDisk("p.xml.old"), putAside) << "a rename only when asked and the file is corrupt";
    if (putAside) {
      EXPECT_EQ(Read("p.xml.old"), corrupt);
    }
  }
}

// Only a file that was read and did not parse is corrupt: a directory, or a
// file that can't be read, is reported as such, with the system's reason,
// and nothing is moved.
TEST_F(PropListFiles, UnreadableFilesAreReportedAndNeverPutAside) {
  const std::string corrupt = WriteText(Sample()).substr(0, 200);
  std::filesystem::permissions(root_, std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  MakeDir("dir.xml");
  Write("dir.xml/inside", "kept");
  Write("locked.xml", corrupt);
  std::filesystem::permissions(Native("locked.xml"), std::filesystem::perms::none);
  const struct {
    const char* name;
    const char* reason;
  } cases[] = {{"dir.xml", "Is a directory"}, {"locked.xml", "Permission denied"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    // In a child without root's power to read anything; it answers which
    // check failed.
    const int result = tvxtest::RunUnprivileged([&] {
      tvxtest::RecordingErrorManager errors;
      config::ErrorManager::Set(&errors);
      PropList list = Filled();
      utils::LoadPropList(Path(c.name), list, true);
      const auto reports = errors.Reports();
      if (reports.size() != 1) return 1;
      const tvxtest::Report& report = reports[0];
      if (report.key != kReadKey || report.number != 23 || report.module != 104) return 2;
      if (N(report.values[0].GetString()) != Native(c.name)) return 3;
      if (N(report.values[1].GetString()) != c.reason) return 4;
      if (!list.IsEmpty()) return 5;
      return 0;
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(OnDisk(c.name));
    EXPECT_FALSE(OnDisk(std::string(c.name) + ".old")) << "nothing is put aside";
  }
  EXPECT_EQ(Read("dir.xml/inside"), "kept");
  std::filesystem::permissions(Native("locked.xml"), std::filesystem::perms::owner_all);
  EXPECT_EQ(Read("locked.xml"), corrupt);
}

// A file nested 200,000 lists deep loads, copies, writes, is assigned,
// replaced, cleared and destroyed in constant stack; in a child process, so
// that an overflow fails the test.
TEST_F(PropListFiles, DeeplyNestedFilesLoadCopyWriteAndDestroy) {
  constexpr int kDepth = 200000;
  std::string text = "<?xml version='1.0'?>\n<prop.map version='4'>\n";
  for (int i = 0; i < kDepth; ++i) text += "<prop.list>\n<prop.pair>\n<key>k</key>\n";
  text += "<prop.list>\n<prop.pair>\n<key>v</key>\n<true/>\n</prop.pair>\n</prop.list>\n";
  for (int i = 0; i < kDepth; ++i) text += "</prop.pair>\n</prop.list>\n";
  text += "</prop.map>\n";
  Write("deep.xml", text);
  EXPECT_EQ(tvxtest::RunInChild([&] {
              PropList list;
              utils::LoadPropList(Path("deep.xml"), list, false);
              if (!errors_.Reports().empty()) return 1;
              PropList copy(list);
              list.NewSubList(U8("k"))->SetValue(U8("v"), 7);
              if (WriteText(copy) != text) return 2;
              utils::SavePropList(Path("copy.xml"), copy);
              PropList assigned;
              assigned.SetValue(U8("old"), true);
              assigned = copy;               // the old tree and the copy's
              copy.SetValue(U8("k"), true);  // a deep sub-list replaced by a scalar
              list.Clear();                  // and one cleared
              const PropList* node = &assigned;
              for (int i = 0; i < kDepth && node; ++i) node = node->GetSubList(U8("k"));
              bool deepest = false;
              if (!node || !node->GetValue(U8("v"), deepest) || !deepest) return 3;
              return 0;
            }),
            0)
      << "-1: the child crashed";
  EXPECT_EQ(Read("copy.xml"), text);
}

TEST_F(PropListFiles, LoadWithoutParserOrWithThrowingManagerLeavesNoPartialList) {
  utils::SavePropList(Path("p.xml"), Sample());
  xml::ResetParserFactory();
  PropList untouched = Filled();
  utils::LoadPropList(Path("p.xml"), untouched, true);
  ASSERT_EQ(errors_.Reports().size(), 1u);
  EXPECT_EQ(errors_.Reports()[0].key, kMissingFactoryKey);
  EXPECT_EQ(errors_.Reports()[0].number, 21);
  EXPECT_EQ(WriteText(untouched), WriteText(Filled())) << "no parse, nothing changed";
  EXPECT_TRUE(OnDisk("p.xml")) << "a missing parser is no corrupt file";

  // A newer version whose report the manager throws mid-parse.
  tvxtest::InstallExpat();
  std::string newer = WriteText(Sample());
  newer.replace(newer.find("version='4'"), 11, "version='5'");
  Write("newer.xml", newer);
  errors_.throwWhenNotDeferred = true;
  PropList list = Filled();
  EXPECT_THROW(utils::LoadPropList(Path("newer.xml"), list, true), tvxtest::RecordedFailure);
  EXPECT_EQ(errors_.Reports().back().number, 20);
  EXPECT_EQ(WriteText(list), WriteText(PropList()));
}

// A failed save names the user's file, never the temporary one, and leaves
// what was there.
TEST_F(PropListFiles, FailedSavesNameTheTargetAndKeepWhatWasThere) {
  Write("taken.xml/inside", "kept");
  try {
    utils::SavePropList(Path("taken.xml"), Sample());
    ADD_FAILURE() << "saving onto a directory succeeded";
  } catch (const filesupport::rename_file& e) {
    EXPECT_EQ(N(e.GetFile().FullPath()), Native("taken.xml"));
  }
  EXPECT_EQ(Read("taken.xml/inside"), "kept");
  EXPECT_EQ(Entries().size(), 1u) << "the temporary file is gone";
}

TEST_F(PropListFiles, RectanglesAndPointsRoundTripThroughTextAndDefaultToZero) {
  PropList list;
  const geom::RectT<long> rect{-5, 6, 700, 800};
  const geom::RectT<float> rectF{0.5f, -1.25f, 3e10f, 4.0f};
  const geom::PointT<long> point{-2147483647L, 2147483647L};
  const geom::PointT<float> pointF{-0.0625f, 1e-3f};
  utils::WriteRect32(U8("r"), rect, list);
  utils::WriteRectF32(U8("rf"), rectF, list);
  utils::WritePoint32(U8("p"), point, list);
  utils::WritePointF32(U8("pf"), pointF, list);
  list.SetValue(U8("short"), PropList::List<std::int32_t>{9, 8});
  list.SetValue(U8("long"), PropList::List<float>{1, 2, 3, 4, 5});

  // Through the file text, as a stored list would come back.
  PropList back;
  utils::ReadPropList(U8(WriteText(list)), back);

  EXPECT_EQ(utils::ReadRect32(U8("r"), back), rect);
  EXPECT_EQ(utils::ReadRectF32(U8("rf"), back), rectF);
  EXPECT_EQ(utils::ReadPoint32(U8("p"), back), point);
  EXPECT_EQ(utils::ReadPointF32(U8("pf"), back), pointF);
  PropList::List<std::int32_t> items;
  ASSERT_TRUE(back.GetValue(U8("r"), items));
  EXPECT_EQ(items, (PropList::List<std::int32_t>{-5, 6, 700, 800})) << "left, top, right, bottom";

  for (const char* key : {"missing", "rf"}) {
    EXPECT_EQ(utils::ReadRect32(U8(key), back), geom::RectT<long>{}) << key;
    EXPECT_EQ(utils::ReadPoint32(U8(key), back), geom::PointT<long>{}) << key;
  }
  EXPECT_EQ(utils::ReadRect32(U8("short"), back), (geom::RectT<long>{9, 8, 0, 0}));
  EXPECT_EQ(utils::ReadRectF32(U8("long"), back), (geom::RectT<float>{1, 2, 3, 4}));
}

// A save killed at any moment leaves the old file or the new one, whole.
TEST_F(PropListFiles, SaveKilledAtRandomMomentsLeavesOldOrNewContent) {
  auto big = [](char tag) {
    PropList list;
    for (int i = 0; i < 16000; ++i) {
      list.SetValue(U8(tag + std::to_string(i)), U8(std::string(90, tag) + std::to_string(i)));
    }
    return list;
  };
  const PropList contents[2] = {big('a'), big('b')};
  const std::string texts[2] = {WriteText(contents[0]), WriteText(contents[1])};
  const UTF16String target = Path("big.xml");
  utils::SavePropList(target, contents[0]);
  int onDisk = 0;

  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> delayMicros(0, 40000);
  for (int round = 0; round < 30; ++round) {
    const int next = 1 - onDisk;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      try {
        utils::SavePropList(target, contents[next]);
      } catch (...) {
        _exit(2);
      }
      _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(delayMicros(random)));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status)) {
      ASSERT_EQ(WEXITSTATUS(status), 0) << "the save failed in round " << round;
    }
    const std::string now = Read("big.xml");
    if (now == texts[next]) {
      onDisk = next;
    } else {
      ASSERT_TRUE(now == texts[onDisk]) << "torn or missing in round " << round;
      ASSERT_FALSE(WIFEXITED(status)) << "a finished save must show its content";
    }
  }
}

}  // namespace
