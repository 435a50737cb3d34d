#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <string>

#include "TestText.h"
#include "config/ErrorTestSupport.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using ::testing::HasSubstr;
using tvxtest::Array;
using tvxtest::List;
using tvxtest::Pair;
using tvxtest::Str;
using tvxtest::U16;
using tvxtest::U8;
using tvxtest::WriteText;

namespace {

using PropListXML = tvxtest::ExpatFactoryTest;

// Runs `f` under an error manager that throws, and returns the key of the
// failure it reported ("" for none) after checking level, module and number.
std::string ReportedError(const std::function<void()>& f, std::int32_t number) {
  tvxtest::RecordingErrorManager manager;
  manager.throwWhenNotDeferred = true;
  config::ErrorManager::Set(&manager);
  std::string key;
  try {
    f();
  } catch (const tvxtest::RecordedFailure& failure) {
    key = failure.key;
  }
  config::ErrorManager::Set(nullptr);
  auto reports = manager.Reports();
  EXPECT_LE(reports.size(), 1u);
  for (const auto& report : reports) {
    EXPECT_EQ(report.level, config::kErrorLevel_NonFatal);
    EXPECT_EQ(report.module, 104u);
    EXPECT_EQ(report.number, number);
    EXPECT_TRUE(report.recordable);
  }
  return key;
}

std::string Document(const std::string& pairs, int version = 4) {
  return "<?xml version='1.0'?>\n<prop.map version='" + std::to_string(version) + "'>\n" +
         List(pairs) + "</prop.map>\n";
}

}  // namespace

TEST(PropListWriter, WritesTheExactText) {
  const struct {
    const char* name;
    std::function<void(PropList&)> fill;
    std::string text;
  } cases[] = {
      {"empty", [](PropList&) {}, Document("")},
      {"scalars, with reserved characters escaped and floats at their own precision",
       [](PropList& l) {
         l.SetValue(U8("t"), true);
         l.SetValue(U8("f"), false);
         l.SetValue(U8("<k&'>"), U8("say \"a<b\" & 'c>d'"));
         l.SetValue(U8("u"), U16(u"\u00e9<\U0001F600"));
         l.SetValue(U8("a"), std::uint16_t{65535});
         l.SetValue(U8("b"), std::uint32_t{4294967295u});
         l.SetValue(U8("c"), std::int32_t{-2147483647 - 1});
         l.SetValue(U8("d"), std::numeric_limits<long long>::min());
         l.SetValue(U8("e"), std::numeric_limits<unsigned long long>::max());
         l.SetValue(U8("f1"), 1.0f / 3.0f);
         l.SetValue(U8("f2"), 1e20f);
         l.SetValue(U8("d1"), 1.0 / 3.0);
         l.SetValue(U8("d2"), 1e-5);
         l.SetValue(U8("d3"), -0.0);
       },
       Document(Pair("&lt;k&amp;&apos;&gt;",
                     "<string>say &quot;a&lt;b&quot; &amp; &apos;c&gt;d&apos;</string>\n") +
                Pair("a", "<int type='unsigned' size='16'>65535</int>\n") +
                Pair("b", "<int type='unsigned' size='32'>4294967295</int>\n") +
                Pair("c", "<int type='signed' size='32'>-2147483648</int>\n") +
                Pair("d", "<int type='signed' size='64'>-9223372036854775808</int>\n") +
                Pair("d1", "<double>0.3333333333333333</double>\n") +
                Pair("d2", "<double>1e-05</double>\n") + Pair("d3", "<double>-0</double>\n") +
                Pair("e", "<int type='unsigned' size='64'>18446744073709551615</int>\n") +
                Pair("f", "<false/>\n") + Pair("f1", "<float>0.33333334</float>\n") +
                Pair("f2", "<float>1e+20</float>\n") + Pair("t", "<true/>\n") +
                Pair("u", "<ustring>\xC3\xA9&lt;\xF0\x9F\x98\x80</ustring>\n"))},
      {"units XML cannot carry, escaped so that they read back",
       [](PropList& l) {
         UTF16String u = U16(u"a");
         u += {1, 0xD800, u'\r', 0xE01B};
         l.SetValue(U8("c\x01"), u);
         l.SetValue(U8("s"), U8(std::string_view("\xFF\0", 2)));
       },
       Document(Pair("c\xEE\x80\x9B"
                     "0001",
                     "<ustring>a\xEE\x80\x9B"
                     "0001\xEE\x80\x9B"
                     "D800&#13;\xEE\x80\x9B"
                     "E01B</ustring>\n") +
                Pair("s",
                     "<string>\xEE\x80\x9B"
                     "00FF\xEE\x80\x9B"
                     "0000</string>\n"))},
      {"sub-list",
       [](PropList& l) { l.NewSubList(U8("s"))->NewSubList(U8("t"))->SetValue(U8("x"), 1LL); },
       Document(
           Pair("s", List(Pair("t", List(Pair("x", "<int type='signed' size='64'>1</int>\n"))))))},
      {"arrays",
       [](PropList& l) {
         l.SetValue(U8("a"), std::list<bool>{true, false});
         l.SetValue(U8("b"), std::list<std::int32_t>{});
         l.SetValue(U8("c"), std::list<UTF8String>{U8("x&y")});
         l.SetValue(U8("d"), std::list<UTF16String>{});
         l.SetValue(U8("e"), std::list<std::uint16_t>{});
         l.SetValue(U8("f"), std::list<std::uint32_t>{});
         l.SetValue(U8("g"), std::list<long long>{});
         l.SetValue(U8("h"), std::list<unsigned long long>{});
         l.SetValue(U8("i"), std::list<float>{});
         l.SetValue(U8("j"), std::list<double>{0.5, 2});
       },
       Document(Pair("a", Array("<bool/>", "<true/>\n<false/>\n")) +
                Pair("b", Array("<int type='signed' size='32'/>", "")) +
                Pair("c", Array("<string/>", "<string>x&amp;y</string>\n")) +
                Pair("d", Array("<ustring/>", "")) +
                Pair("e", Array("<int type='unsigned' size='16'/>", "")) +
                Pair("f", Array("<int type='unsigned' size='32'/>", "")) +
                Pair("g", Array("<int type='signed' size='64'/>", "")) +
                Pair("h", Array("<int type='unsigned' size='64'/>", "")) +
                Pair("i", Array("<float/>", "")) +
                Pair("j", Array("<double/>", "<double>0.5</double>\n<double>2</double>\n")))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PropList list;
    c.fill(list);
    UTF8String text = U8("stale content, replaced");
    utils::WritePropList(text, list);
    EXPECT_EQ(Str(text), c.text);
  }
}

TEST_F(PropListXML, DoublesComeBackWithinSixteenDigits) {
  // The largest double rounds up past the range at 16 digits; reading it back
  // gives the largest finite value, as the stream's extraction does.
  const std::list<double> values{1.0 / 3.0, 0.1, 2.0 / 3.0 * 1e-200, 1.7976931348623157e308, M_PI};
  PropList list;
  list.SetValue(U8("a"), values);
  PropList read;
  utils::ReadPropList(U8(WriteText(list)), read);
  std::list<double> back;
  ASSERT_TRUE(read.GetValue(U8("a"), back));
  ASSERT_EQ(back.size(), values.size());
  auto b = back.begin();
  for (double v : values) {
    EXPECT_FALSE(std::isinf(*b));
    EXPECT_NEAR(*b, v, std::abs(v) * 1e-15);
    ++b;
  }
}

TEST_F(PropListXML, OlderVersionsAreKeptAndNewerOnesRefused) {
  const std::string pair = Pair("k", "<true/>\n");
  for (int version : {0, 1, 3, 4}) {
    PropList list;
    utils::ReadPropList(U8(Document(pair, version)), list);
    EXPECT_EQ(list.GetVersion(), version);
    EXPECT_EQ(WriteText(list), Document(pair, version));
  }
  auto read = [&](const std::string& attribute, PropList& list) {
    utils::ReadPropList(U8("<prop.map" + attribute + ">" + List(pair) + "</prop.map>"), list);
  };
  for (const char* version : {"5", "65535", "70000", "-1"}) {
    SCOPED_TRACE(version);
    PropList list;
    EXPECT_THAT(ReportedError([&] { read(std::string(" version='") + version + "'", list); }, 20),
                HasSubstr("$$$/tvxcore/proplist/Error/PropListXMLHandler/VersionGreaterThan="
                          "Cannot read PropList data; version greater than expected."));
    EXPECT_TRUE(list.IsEmpty());
  }
  // A manager that lets the report return: the parse goes on, the version stays.
  tvxtest::RecordingErrorManager manager;
  config::ErrorManager::Set(&manager);
  PropList newer;
  read(" version='9'", newer);
  config::ErrorManager::Set(nullptr);
  EXPECT_EQ(manager.Reports().size(), 1u);
  EXPECT_EQ(newer.GetVersion(), 4);
  EXPECT_EQ(newer.GetPropertyType(U8("k")), kPropListType_Bool);
  // Unreadable version text counts as 0; no attribute leaves the version alone.
  PropList unreadable, none;
  read(" version='x'", unreadable);
  EXPECT_EQ(unreadable.GetVersion(), 0);
  read("", none);
  EXPECT_EQ(none.GetVersion(), 4);
}

TEST_F(PropListXML, VersionOneListsReadDoublesFromUnicodeStrings) {
  const std::string pairs =
      Pair("d", "<ustring>2.5</ustring>\n") + Pair("t", "<ustring>text</ustring>\n");
  PropList old;
  utils::ReadPropList(U8(Document(pairs, 1)), old);
  double d = -1;
  ASSERT_TRUE(old.GetValue(U8("d"), d));
  EXPECT_EQ(d, 2.5);
  d = -1;
  EXPECT_TRUE(old.GetValue(U8("t"), d));  // true even when the text is no number
  EXPECT_EQ(d, 0);
  float f = -1;
  EXPECT_FALSE(old.GetValue(U8("d"), f));  // no other type has this path

  PropList current;
  utils::ReadPropList(U8(Document(pairs, 4)), current);
  d = -1;
  EXPECT_FALSE(current.GetValue(U8("d"), d));
  EXPECT_EQ(d, -1);
}

TEST_F(PropListXML, BadTextIsReportedAndKeepsWhatWasReadBefore) {
  const std::string good =
      "<prop.map version='4'><prop.list><prop.pair><key>a</key><true/></prop.pair>";
  const struct {
    const char* name;
    std::string text;
    bool keepsA;
  } cases[] = {
      {"cut short", good, true},
      {"mismatched end", good + "</prop.map>", true},
      {"invalid UTF-8", good + "<prop.pair><key>\xC3(</key></prop.pair></prop.list></prop.map>",
       true},
      {"empty", "", false},
      {"entity bomb",
       tvxtest::EntityBombDoctype() +
           "<prop.map><prop.list><prop.pair><key>k</key><string>&e8;</string></prop.pair>"
           "</prop.list></prop.map>",
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PropList list;
    EXPECT_THAT(ReportedError([&] { utils::ReadPropList(U8(c.text), list); }, 22),
                HasSubstr("$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListRead="
                          "Error parsing properties list from memory."));
    EXPECT_EQ(list.GetPropertyType(U8("a")), c.keepsA ? kPropListType_Bool : kPropListType_None);
  }
}

TEST(PropListReader, NeedsAParserFactory) {
  xml::ResetParserFactory();
  PropList list;
  EXPECT_THAT(ReportedError([&] { utils::ReadPropList(U8(Document("")), list); }, 21),
              HasSubstr("$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryRead="
                        "Missing XML Parser Factory in ReadPropList."));
}
