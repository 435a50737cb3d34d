// The debug database through its public interface. It is made once per
// process, so every scenario runs in a fresh one.
#include "tvxcore/debug/DebugDatabase.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <list>
#include <string>
#include <vector>

#include "diagnostics/DiagnosticsFixture.h"
#include "tvxcore/debug/Trace.h"

namespace {

namespace dbg = tvxcore::debug;
using tvxcore::UTF8String;

constexpr char kFile[] = "Debug Database.txt";
constexpr char kOld[] = "Debug Database.txt.old";

using namespace std::string_literals;
using tvxtest::S8;
using tvxtest::U8;

dbg::DebugDatabase& Db() { return dbg::DebugDatabase::Instance(); }

std::vector<std::string> Keys() {
  std::list<UTF8String> keys;
  Db().GetDebugKeys(keys);
  std::vector<std::string> out;
  for (const UTF8String& key : keys) out.push_back(S8(key));
  return out;
}

using DebugDatabase = tvxtest::DiagnosticsTest;

// Each row: what the file holds for a key, the default the code asks with,
// the answer, and what the file holds after the next save.
TEST_F(DebugDatabase, AStoredValueHoldsOnlyWhileTheDefaultStaysTheSame) {
  struct Row {
    std::string stored;  // the line's value and default, "" for no line
    std::string asked, answer, saved;
  };
  const std::vector<Row> rows = {
      {"", "1", "1", "1\t1"},      // a missing key takes the default
      {"2\t1", "1", "2", "2\t1"},  // the user's value holds
      {"2\t1", "3", "3", "3\t3"},  // a new default wipes it
      {"\t1", "1", "1", "1\t1"},   // an empty value takes the default
      {"2\t", "1", "2", "2\t1"},   // a value without default adopts it
  };
  InFreshProcess([&] {
    std::string text;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i].stored.empty()) text += "k" + std::to_string(i) + "\t" + rows[i].stored + "\r\n";
    }
    WritePref(kFile, text);
    SetIdentity();
    std::string expected;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::string key = "k" + std::to_string(i);
      EXPECT_EQ(S8(Db().GetEntry(U8(key), U8(rows[i].asked))), rows[i].answer) << key;
      EXPECT_TRUE(Db().HasEntry(U8(key)));
      expected += key + "\t" + rows[i].saved + "\r\n";
    }
    EXPECT_EQ(ReadPref(kFile), text) << "reading doesn't save";
    Db().SaveDataBase();
    EXPECT_EQ(ReadPref(kFile), expected);
  });
}

TEST_F(DebugDatabase, SettingAndRemovingSaveUnlessASwitchHoldsThemBack) {
  InFreshProcess([&] {
    SetIdentity();
    Db().SetEntry(U8("a"), U8("2"));
    EXPECT_EQ(ReadPref(kFile), "a\t2\t\r\n");
    EXPECT_EQ(S8(Db().GetEntry(U8("a"), U8("1"))), "2") << "SetEntry emptied the default";
    EXPECT_EQ(S8(Db().GetEntry(U8("unset"))), "");
    std::list<std::pair<UTF8String, UTF8String>> entries;
    Db().GetEntries(entries);
    EXPECT_EQ(entries, (decltype(entries){{U8("a"), U8("2")}, {U8("unset"), U8("")}}));

    Db().SetFileWritesDisabled(true);
    Db().RemoveEntry(U8("a"));
    EXPECT_FALSE(Db().HasEntry(U8("a")));
    EXPECT_EQ(ReadPref(kFile), "a\t2\t\r\n");
    Db().SetFileWritesDisabled(false);
    dbg::SetDisableFileWrites(true);
    Db().SaveDataBase();
    EXPECT_EQ(ReadPref(kFile), "a\t2\t\r\n") << "the global switch holds it back too";
    dbg::SetDisableFileWrites(false);
    Db().SaveDataBase();
    EXPECT_EQ(ReadPref(kFile), "unset\t\t\r\n");
  });
}

TEST_F(DebugDatabase, AHandEditedFileReadsTrimmed) {
  InFreshProcess([&] {
    WritePref(kFile,
              "  spaced key \t  value with blanks \t default \r\n"
              "extra\tcr\tdone\r\r\n"
              "\t\tempty key\n"
              "   \r\n"
              "tabs\t\t\tv\n");
    SetIdentity();
    EXPECT_EQ(Keys(), (std::vector<std::string>{"", "extra", "spaced key", "tabs"}));
    EXPECT_EQ(S8(Db().GetEntry(U8("spaced key"), U8("default"))), "value with blanks");
    EXPECT_EQ(S8(Db().GetEntry(U8("extra"), U8("done"))), "cr");
    EXPECT_EQ(S8(Db().GetEntry(U8("tabs"))), "");
    Db().SetEntry(U8("new"), U8("1"));
    EXPECT_EQ(ReadPref(kFile),
              "\t\tempty key\r\nextra\tcr\tdone\r\nnew\t1\t\r\n"
              "spaced key\tvalue with blanks\tdefault\r\ntabs\t\t\r\n");
    EXPECT_TRUE(PrefExists(kOld)) << "the fourth field of \"tabs\" was not kept";
  });
}

TEST_F(DebugDatabase, NothingIsTouchedBeforeTheClientName) {
  InFreshProcess([&] {
    WritePref(kFile, "early\tfile\tx\r\nother\t5\t5\r\n");
    EXPECT_EQ(S8(Db().GetEntry(U8("early"), U8("x"))), "x");
    Db().SetEntry(U8("mine"), U8("1"));
    EXPECT_EQ(ReadPref(kFile), "early\tfile\tx\r\nother\t5\t5\r\n");
    SetIdentity();
    EXPECT_EQ(S8(Db().GetEntry(U8("early"), U8("x"))), "file") << "the file's entry wins";
    EXPECT_EQ(Keys(), (std::vector<std::string>{"early", "mine", "other"}));
    Db().SaveDataBase();
    EXPECT_EQ(ReadPref(kFile), "early\tfile\tx\r\nmine\t1\t\r\nother\t5\t5\r\n");
  });
}

// Damaged files: what can be read is kept, the file itself is copied aside
// whole before the first save (a cleared table is saved empty at exit), and
// the saved file reads back the same.
TEST_F(DebugDatabase, DamagedFilesAreKeptAsideAndNeverMadeWorse) {
  struct Row {
    std::string text, saved;
  };
  const std::vector<Row> rows = {
      {"a\t1\t1\r\n\0\0garbage\tafter\r\n"s, "a\t1\t1\r\n"},
      {"a\t1\t1\r\njunk line\r\nb\t2", "a\t1\t1\r\nb\t2\t\r\n"},
      {"a\t1\t1\r\na\t3\t3\r\n", "a\t3\t3\r\n"},
  };
  for (const Row& row : rows) {
    InFreshProcess([&] {
      std::filesystem::remove(PrefDir() / kOld);
      WritePref(kFile, row.text);
      SetIdentity();
      Db().Clear();  // forces a save at exit that must not lose the file
      EXPECT_TRUE(Keys().empty());
      EXPECT_EQ(ReadPref(kFile), row.text) << "Clear doesn't save";
    });
    InFreshProcess([&] {
      EXPECT_EQ(ReadPref(kOld), row.text);
      EXPECT_EQ(ReadPref(kFile), "");
      WritePref(kFile, row.text);
      std::filesystem::remove(PrefDir() / kOld);
      SetIdentity();
      Db().SetEntry(U8("!"), U8("9"));
      EXPECT_EQ(ReadPref(kFile), "!\t9\t\r\n" + row.saved);
      EXPECT_EQ(ReadPref(kOld), row.text);
    });
    InFreshProcess([&] {
      std::filesystem::remove(PrefDir() / kOld);
      SetIdentity();
      Db().SetEntry(U8("!"), U8("9"));
      EXPECT_EQ(ReadPref(kFile), "!\t9\t\r\n" + row.saved);
      EXPECT_FALSE(PrefExists(kOld)) << "the saved file reads back whole";
    });
  }
}

}  // namespace
