#include "tvxcore/utility/ImmutableString.h"

#include "tvxcore/utility/UnicodeConversion.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using tvxcore::UTF16String;
using tvxcore::UTF8Char;
using tvxcore::UTF8String;
using tvxcore::utility::ImmutableString;

const UTF8Char* U8(const char* text) { return reinterpret_cast<const UTF8Char*>(text); }

int Sign(int value) { return (value > 0) - (value < 0); }

TEST(ImmutableString, EqualTextsShareOneRecordWhateverTheSource) {
  ImmutableString::PurgeUnusedStrings();
  const std::string text = "shared text";
  struct Row {
    const char* name;
    std::function<ImmutableString()> make;
  };
  const std::vector<Row> rows = {
      {"char*", [&] { return ImmutableString::CreateDynamic(text.c_str()); }},
      {"UTF8Char*", [&] { return ImmutableString::CreateDynamic(U8(text.c_str())); }},
      {"UTF8Char* and length",
       [&] { return ImmutableString::CreateDynamic(U8("shared text and more"), text.size()); }},
      {"UTF8String", [&] { return ImmutableString::CreateDynamic(UTF8String(U8(text.c_str()))); }},
      {"std::string", [&] { return ImmutableString::CreateDynamic(text); }},
      {"UTF16String", [&] { return ImmutableString::CreateDynamic(UTF16String(u"shared text")); }},
      {"UTF16Char*", [&] { return ImmutableString::CreateDynamic(u"shared text"); }},
  };
  ImmutableString first = ImmutableString::CreateDynamic(text);
  ASSERT_NE(first.GetInternalRepresentation(), nullptr);
  EXPECT_NE(static_cast<const void*>(first.Bytes()), static_cast<const void*>(text.c_str()));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ImmutableString s = row.make();
    EXPECT_EQ(s.GetInternalRepresentation(), first.GetInternalRepresentation());
    EXPECT_EQ(s.Bytes(), first.Bytes());
    EXPECT_EQ(s.Length(), text.size());
    EXPECT_TRUE(s == first);
  }
  ImmutableString other = ImmutableString::CreateDynamic("shared texT");
  EXPECT_NE(other.GetInternalRepresentation(), first.GetInternalRepresentation());
  EXPECT_NE(other, first);
}

TEST(ImmutableString, FirstCreatorDecidesStaticOrDynamic) {
  ImmutableString::PurgeUnusedStrings();
  static const char kStaticFirst[] = "static first";
  static const char kDynamicFirst[] = "dynamic first";
  std::string dynamicCopy = kStaticFirst;
  {
    ImmutableString a = ImmutableString::CreateStatic(kStaticFirst);
    ImmutableString b = ImmutableString::CreateDynamic(dynamicCopy);
    EXPECT_EQ(a.GetInternalRepresentation(), b.GetInternalRepresentation());
    EXPECT_EQ(b.c_str(), kStaticFirst);  // no copy was made
    EXPECT_EQ(b.GetInternalRepresentation()->isDynamic, 0);
  }
  EXPECT_FALSE(ImmutableString::PurgeUnusedStrings());  // a static record is never freed
  EXPECT_EQ(ImmutableString::CreateStatic(kStaticFirst).c_str(), kStaticFirst);

  ImmutableString d = ImmutableString::CreateDynamic(std::string(kDynamicFirst));
  ImmutableString s = ImmutableString::CreateStatic(kDynamicFirst);
  EXPECT_EQ(s.GetInternalRepresentation(), d.GetInternalRepresentation());
  EXPECT_NE(s.c_str(), kDynamicFirst);
  EXPECT_EQ(s.GetInternalRepresentation()->refCount.load(), 2u);
}

TEST(ImmutableString, EmptyTextsAreTheNullString) {
  const std::vector<ImmutableString> empties = {
      ImmutableString(),
      ImmutableString::CreateDynamic(""),
      ImmutableString::CreateDynamic(static_cast<const char*>(nullptr)),
      ImmutableString::CreateDynamic(U8("abc"), 0),
      ImmutableString::CreateDynamic(std::string()),
      ImmutableString::CreateDynamic(UTF16String()),
      ImmutableString::CreateStatic(""),
  };
  for (std::size_t i = 0; i < empties.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(empties[i].GetInternalRepresentation(), nullptr);
    EXPECT_EQ(empties[i].Bytes(), ImmutableString::sNullString);
    EXPECT_EQ(empties[i].Length(), 0u);
    EXPECT_EQ(empties[i], ImmutableString());
    EXPECT_EQ(empties[i].Compare(""), 0);
    EXPECT_LT(empties[i].Compare("a"), 0);
  }
}

TEST(ImmutableString, CompareIsByteOrderWithShorterFirst) {
  struct Row {
    const char* a;
    const char* b;
    int sign;
  };
  const Row rows[] = {
      {"b", "aa", 1},  // the table keeps "b" first; clients never see that order
      {"aa", "b", -1}, {"abc", "abc", 0}, {"ab", "abc", -1}, {"abc", "ab", 1}, {"\xC3\xA9", "z", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.a) + " vs " + row.b);
    ImmutableString a = ImmutableString::CreateDynamic(row.a);
    ImmutableString b = ImmutableString::CreateDynamic(row.b);
    EXPECT_EQ(Sign(a.Compare(b)), row.sign);
    EXPECT_EQ(Sign(a.Compare(row.b)), row.sign);
    EXPECT_EQ(Sign(a.Compare(U8(row.b))), row.sign);
    EXPECT_EQ(Sign(a.Compare(std::string(row.b))), row.sign);
    EXPECT_EQ(Sign(a.Compare(UTF8String(U8(row.b)))), row.sign);
    EXPECT_EQ(Sign(a.Compare(tvxcore::utility::UTF8to16(UTF8String(U8(row.b))))), row.sign);
    EXPECT_EQ(a < b, row.sign < 0);
    EXPECT_EQ(a == b, row.sign == 0);
  }
  ImmutableString e = ImmutableString::CreateDynamic(u"\u00e9t\u00e9");
  EXPECT_EQ(e.Compare(u"\u00e9t\u00e9"), 0);
  EXPECT_EQ(e.Compare("\xC3\xA9t\xC3\xA9"), 0);
  EXPECT_EQ(e.ToString(), UTF16String(u"\u00e9t\u00e9"));
  EXPECT_EQ(Sign(e.Compare(static_cast<const char*>(nullptr))), 1);
}

TEST(ImmutableString, PurgeFreesOnlyWhatNobodyHolds) {
  ImmutableString::PurgeUnusedStrings();
  ImmutableString held = ImmutableString::CreateDynamic("held across purges");
  ImmutableString::InternalRepresentation* heldRecord = held.GetInternalRepresentation();
  {
    ImmutableString copy = held;
    ImmutableString assigned;
    assigned = copy;
    EXPECT_EQ(heldRecord->refCount.load(), 3u);
  }
  EXPECT_EQ(heldRecord->refCount.load(), 1u);
  EXPECT_FALSE(ImmutableString::PurgeUnusedStrings());

  // Gone and not taken up again: freed by the first purge only.
  ImmutableString::CreateDynamic("comes and goes");
  EXPECT_TRUE(ImmutableString::PurgeUnusedStrings());
  EXPECT_FALSE(ImmutableString::PurgeUnusedStrings());

  // Taken up again before the purge: survives it, and is purged after its
  // next release.
  ImmutableString::InternalRepresentation* revivedRecord;
  {
    ImmutableString::CreateDynamic("revived");
    ImmutableString again = ImmutableString::CreateDynamic("revived");
    revivedRecord = again.GetInternalRepresentation();
    EXPECT_FALSE(ImmutableString::PurgeUnusedStrings());
    EXPECT_EQ(again.Compare("revived"), 0);
    EXPECT_EQ(ImmutableString::CreateDynamic("revived").GetInternalRepresentation(), revivedRecord);
  }
  EXPECT_TRUE(ImmutableString::PurgeUnusedStrings());

  // The held string is still the table's record for its text.
  EXPECT_EQ(held.Compare("held across purges"), 0);
  EXPECT_EQ(ImmutableString::CreateDynamic("held across purges").GetInternalRepresentation(),
            heldRecord);
}

TEST(ImmutableString, LongTextsAndEmbeddedZeros) {
  std::string big(1 << 20, 'x');
  for (std::size_t i = 0; i < big.size(); i += 4093) big[i] = static_cast<char>('a' + i % 26);
  ImmutableString a = ImmutableString::CreateDynamic(big);
  std::string bigCopy = big;
  ImmutableString b = ImmutableString::CreateDynamic(bigCopy);
  EXPECT_EQ(a.GetInternalRepresentation(), b.GetInternalRepresentation());
  ASSERT_EQ(a.Length(), big.size());
  EXPECT_EQ(std::memcmp(a.Bytes(), big.data(), big.size()), 0);
  EXPECT_EQ(a.Bytes()[a.Length()], 0);
  bigCopy.back() = 'y';
  EXPECT_LT(a.Compare(bigCopy), 0);
  EXPECT_NE(ImmutableString::CreateDynamic(bigCopy), a);

  const std::string zeros("a\0b", 3);
  ImmutableString z = ImmutableString::CreateDynamic(zeros);
  EXPECT_EQ(z.Length(), 3u);
  EXPECT_EQ(z.Compare(zeros), 0);
  EXPECT_NE(z, ImmutableString::CreateDynamic(std::string("a\0c", 3)));
  EXPECT_EQ(z.ToString(), UTF16String(u"a"));
}

TEST(ImmutableString, ManyThreadsInternWhilePurgesRun) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 2000;
  constexpr int kTexts = 97;
  std::atomic<bool> stop{false};
  std::atomic<int> mismatches{0};
  std::thread purger([&] {
    while (!stop.load()) ImmutableString::PurgeUnusedStrings();
  });
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&, t] {
      std::vector<ImmutableString> kept;
      for (int round = 0; round < kRounds; ++round) {
        std::string text = "text " + std::to_string((round * 7 + t) % kTexts);
        ImmutableString s = ImmutableString::CreateDynamic(text);
        ImmutableString copy = s;
        if (copy.Compare(text) != 0 ||
            copy.GetInternalRepresentation() !=
                ImmutableString::CreateDynamic(text).GetInternalRepresentation())
          mismatches.fetch_add(1);
        if (round % 5 == 0) kept.push_back(copy);
        if (kept.size() > 16) kept.erase(kept.begin());
      }
      for (const ImmutableString& s : kept)
        if (s.Compare(s.c_str()) != 0 || std::strncmp(s.c_str(), "text ", 5) != 0)
          mismatches.fetch_add(1);
    });
  }
  for (std::thread& w : workers) w.join();
  stop.store(true);
  purger.join();
  EXPECT_EQ(mismatches.load(), 0);
  ImmutableString::PurgeUnusedStrings();
  EXPECT_FALSE(ImmutableString::PurgeUnusedStrings());
}

}  // namespace
