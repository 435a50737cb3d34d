#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <string>

#include "TestText.h"
#include "config/ErrorTestSupport.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using tvxtest::Str;
using tvxtest::U16;
using tvxtest::U8;

namespace {

class PropListXML : public ::testing::Test {
 protected:
  void SetUp() override {
    std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
    xml::SetParserFactory(factory);
  }
  void TearDown() override { xml::ResetParserFactory(); }
};

std::string Write(const PropList& list) {
  UTF8String text;
  utils::WritePropList(text, list);
  return Str(text);
}

std::string Fragment(const PropList& list) {
  UTF8String text;
  list.OutputAsXMLFragment(text);
  return Str(text);
}

// Runs `f` under an error manager that throws, and returns the key of the
// failure it reported ("" for none) after checking level and module.
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

std::string Pair(const std::string& key, const std::string& node) {
  return "<prop.pair>\n<key>" + key + "</key>\n" + node + "</prop.pair>\n";
}
std::string List(const std::string& pairs) { return "<prop.list>\n" + pairs + "</prop.list>\n"; }
std::string Document(const std::string& pairs, int version = 4) {
  return "<?xml version='1.0'?>\n<prop.map version='" + std::to_string(version) + "'>\n" +
         List(pairs) + "</prop.map>\n";
}
std::string Array(const std::string& type, const std::string& items) {
  return "<array>\n<array.type>" + type + "</array.type>\n" + items + "</array>\n";
}

}  // namespace

TEST(PropListWriter, WritesTheExactText) {
  const struct {
    const char* name;
    std::function<void(PropList&)> fill;
    std::string text;
  } cases[] = {
      {"empty", [](PropList&) {}, Document("")},
      {"bools",
       [](PropList& l) {
         l.SetValue(U8("t"), true);
         l.SetValue(U8("f"), false);
       },
       Document(Pair("f", "<false/>\n") + Pair("t", "<true/>\n"))},
      {"reserved characters",
       [](PropList& l) { l.SetValue(U8("<k&'>"), U8("say \"a<b\" & 'c>d'")); },
       Document(Pair("&lt;k&amp;&apos;&gt;",
                     "<string>say &quot;a&lt;b&quot; &amp; &apos;c&gt;d&apos;</string>\n"))},
      {"unicode string", [](PropList& l) { l.SetValue(U8("u"), U16(u"\u00e9<\U0001F600")); },
       Document(Pair("u", "<ustring>\xC3\xA9&lt;\xF0\x9F\x98\x80</ustring>\n"))},
      {"integers",
       [](PropList& l) {
         l.SetValue(U8("a"), std::uint16_t{65535});
         l.SetValue(U8("b"), std::uint32_t{4294967295u});
         l.SetValue(U8("c"), std::int32_t{-2147483647 - 1});
         l.SetValue(U8("d"), std::numeric_limits<std::int64_t>::min());
         l.SetValue(U8("e"), std::numeric_limits<std::uint64_t>::max());
       },
       Document(Pair("a", "<int type='unsigned' size='16'>65535</int>\n") +
                Pair("b", "<int type='unsigned' size='32'>4294967295</int>\n") +
                Pair("c", "<int type='signed' size='32'>-2147483648</int>\n") +
                Pair("d", "<int type='signed' size='64'>-9223372036854775808</int>\n") +
                Pair("e", "<int type='unsigned' size='64'>18446744073709551615</int>\n"))},
      {"floating precision",
       [](PropList& l) {
         l.SetValue(U8("f1"), 0.1f);
         l.SetValue(U8("f2"), 1.0f / 3.0f);
         l.SetValue(U8("f3"), 1e20f);
         l.SetValue(U8("f4"), 100.0f);
         l.SetValue(U8("d1"), 0.1);
         l.SetValue(U8("d2"), 1.0 / 3.0);
         l.SetValue(U8("d3"), 1e-5);
         l.SetValue(U8("d4"), 123456789012345678.0);
         l.SetValue(U8("d5"), -0.0);
       },
       Document(Pair("d1", "<double>0.1</double>\n") +
                Pair("d2", "<double>0.3333333333333333</double>\n") +
                Pair("d3", "<double>1e-05</double>\n") +
                Pair("d4", "<double>1.234567890123457e+17</double>\n") +
                Pair("d5", "<double>-0</double>\n") + Pair("f1", "<float>0.1</float>\n") +
                Pair("f2", "<float>0.33333334</float>\n") + Pair("f3", "<float>1e+20</float>\n") +
                Pair("f4", "<float>100</float>\n"))},
      {"sub-list",
       [](PropList& l) {
         l.NewSubList(U8("s"))->NewSubList(U8("t"))->SetValue(U8("x"), std::int64_t{1});
       },
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
         l.SetValue(U8("g"), std::list<std::int64_t>{});
         l.SetValue(U8("h"), std::list<std::uint64_t>{});
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
    EXPECT_EQ(Write(list), c.text);
  }
}

TEST(PropListWriter, ReplacesTheTargetText) {
  PropList list;
  UTF8String text = U8("old content");
  utils::WritePropList(text, list);
  EXPECT_EQ(Str(text), Document(""));
}

TEST_F(PropListXML, EveryTypeAndNestingRoundTrips) {
  PropList list;
  list.SetValue(U8("ustring"), U16(u"\u00e9t\u00e9 \"<&>\" \U0001F600"));
  list.SetValue(U8("string"), U8("a \"quoted\" <tag> & 'more'"));
  list.SetValue(U8("empty string"), UTF8String());
  list.SetValue(U8("empty ustring"), UTF16String());
  list.SetValue(U8("bool"), true);
  list.SetValue(U8("false"), false);
  list.SetValue(U8("u16"), std::uint16_t{65535});
  list.SetValue(U8("u32"), std::uint32_t{4294967295u});
  list.SetValue(U8("i32"), std::int32_t{-2147483647 - 1});
  list.SetValue(U8("i64"), std::numeric_limits<std::int64_t>::min());
  list.SetValue(U8("u64"), std::numeric_limits<std::uint64_t>::max());
  list.SetValue(U8("float"), -1.5e-3f);
  list.SetValue(U8("double"), 6.25e300);
  PropList* sub = list.NewSubList(U8("sub"));
  sub->SetValue(U8("a.double"), std::list<double>{0.5, -2, 1e10});
  sub->NewSubList(U8("deeper"))->SetValue(U8("a.bool"), std::list<bool>{false, true});
  sub->NewSubList(U8("empty sub"));
  list.SetValue(U8("a.ustring"), std::list<UTF16String>{U16(u"x<"), U16(u"\u4e2d")});
  list.SetValue(U8("a.string"), std::list<UTF8String>{U8("&"), UTF8String()});
  list.SetValue(U8("a.u16"), std::list<std::uint16_t>{1, 65535});
  list.SetValue(U8("a.u32"), std::list<std::uint32_t>{0, 4294967295u});
  list.SetValue(U8("a.i32"), std::list<std::int32_t>{-1, 2});
  list.SetValue(U8("a.i64"), std::list<std::int64_t>{-5});
  list.SetValue(U8("a.u64"), std::list<std::uint64_t>{6});
  list.SetValue(U8("a.float"), std::list<float>{0.25f, 3});
  PropList* empties = list.NewSubList(U8("empties"));
  empties->SetValue(U8("ustring"), std::list<UTF16String>{});
  empties->SetValue(U8("string"), std::list<UTF8String>{});
  empties->SetValue(U8("bool"), std::list<bool>{});
  empties->SetValue(U8("u16"), std::list<std::uint16_t>{});
  empties->SetValue(U8("u32"), std::list<std::uint32_t>{});
  empties->SetValue(U8("i32"), std::list<std::int32_t>{});
  empties->SetValue(U8("i64"), std::list<std::int64_t>{});
  empties->SetValue(U8("u64"), std::list<std::uint64_t>{});
  empties->SetValue(U8("float"), std::list<float>{});
  empties->SetValue(U8("double"), std::list<double>{});

  UTF8String text;
  utils::WritePropList(text, list);
  PropList read;
  utils::ReadPropList(text, read);
  EXPECT_EQ(Write(read), Str(text));

  // Types survive, empty arrays included.
  std::list<UTF8String> names;
  list.GetPropertyNames(names);
  for (const UTF8String& name : names) {
    EXPECT_EQ(read.GetPropertyType(name), list.GetPropertyType(name)) << Str(name);
  }
  empties = read.GetSubList(U8("empties"));
  ASSERT_NE(empties, nullptr);
  EXPECT_EQ(empties->GetPropertyType(U8("i32")), kPropListType_Int32Array);
  EXPECT_EQ(empties->GetPropertyType(U8("ustring")), kPropListType_UnicodeStringArray);
  UTF16String ustring;
  ASSERT_TRUE(read.GetValue(U8("ustring"), ustring));
  EXPECT_EQ(ustring, U16(u"\u00e9t\u00e9 \"<&>\" \U0001F600"));
  UTF8String empty = U8("not empty");
  ASSERT_TRUE(read.GetValue(U8("empty string"), empty));
  EXPECT_TRUE(empty.empty());
  std::list<double> doubles;
  ASSERT_TRUE(read.GetSubList(U8("sub"))->GetValue(U8("a.double"), doubles));
  EXPECT_EQ(doubles, (std::list<double>{0.5, -2, 1e10}));
}

TEST_F(PropListXML, DoublesComeBackWithinSixteenDigits) {
  PropList list;
  const double values[] = {1.0 / 3.0, 0.1, 2.0 / 3.0 * 1e-200, 1.7976931348623157e308, M_PI};
  std::list<double> array(std::begin(values), std::end(values));
  list.SetValue(U8("a"), array);
  UTF8String text;
  utils::WritePropList(text, list);
  PropList read;
  utils::ReadPropList(text, read);
  std::list<double> back;
  ASSERT_TRUE(read.GetValue(U8("a"), back));
  ASSERT_EQ(back.size(), array.size());
  auto it = back.begin();
  for (double v : values) {
    // The largest double rounds up past the range at 16 digits; reading it
    // back gives the largest finite value, as the stream's extraction does.
    double b = *it++;
    EXPECT_FALSE(std::isinf(b));
    EXPECT_NEAR(b, v, std::abs(v) * 1e-15);
  }
}

TEST_F(PropListXML, ReaderDeviationsAreSilentAndAsDocumented) {
  const std::string i32 = "<int type='signed' size='32'>";
  const struct {
    const char* name;
    std::string body;      // the content of a prop.map
    std::string fragment;  // what the list then writes
  } cases[] = {
      {"unknown element loses only its value, the key text stays for the next value",
       "<prop.list><prop.pair><key>a</key><future>9</future></prop.pair>"
       "<prop.pair><key>b</key><true/></prop.pair></prop.list>",
       List(Pair("ab", "<true/>\n"))},
      {"int without size or with an unknown size is dropped",
       "<prop.list><prop.pair><key>a</key><int type='signed'>5</int></prop.pair>"
       "<prop.pair><key>b</key><int type='signed' size='8'>5</int></prop.pair></prop.list>",
       List("")},
      {"unreadable numbers are 0, a readable prefix is kept",
       "<prop.list><prop.pair><key>a</key>" + i32 + "abc</int></prop.pair>" +
           "<prop.pair><key>b</key><double>12.5abc</double></prop.pair>" +
           "<prop.pair><key>c</key>" + i32 + "  42 </int></prop.pair>" + "<prop.pair><key>d</key>" +
           i32 + "</int></prop.pair>" + "<prop.pair><key>e</key>" + i32 +
           "99999999999</int></prop.pair></prop.list>",
       List(Pair("a", i32 + "0</int>\n") + Pair("b", "<double>12.5</double>\n") +
            Pair("c", i32 + "42</int>\n") + Pair("d", i32 + "0</int>\n") +
            Pair("e", i32 + "2147483647</int>\n"))},
      {"text outside value elements is dropped",
       "<prop.list>x<prop.pair>y<key>k</key>z<string>v</string>w</prop.pair></prop.list>",
       List(Pair("k", "<string>v</string>\n"))},
      {"a value without a key goes under the empty key",
       "<prop.list><prop.pair><double>1.5</double></prop.pair></prop.list>",
       List(Pair("", "<double>1.5</double>\n"))},
      {"bool reads as true, whatever its text",
       "<prop.list><prop.pair><key>a</key><bool/></prop.pair>"
       "<prop.pair><key>b</key><bool>false</bool></prop.pair></prop.list>",
       List(Pair("a", "<true/>\n") + Pair("b", "<true/>\n"))},
      {"size 16 is unsigned whatever the type says",
       "<prop.list><prop.pair><key>a</key><int type='signed' size='16'>-1</int></prop.pair>"
       "<prop.pair><key>b</key><int type='other' size='32'>7</int></prop.pair></prop.list>",
       List(Pair("a", "<int type='unsigned' size='16'>65535</int>\n") +
            Pair("b", "<int type='unsigned' size='32'>7</int>\n"))},
      {"a mixed array takes the type of its last element",
       "<prop.list><prop.pair><key>a</key><array>" + i32 + "1</int><double>2.5</double>" +
           "</array></prop.pair><prop.pair><key>b</key><array><double>2.5</double>" + i32 +
           "7</int></array></prop.pair></prop.list>",
       List(Pair("a", Array("<double/>", "<double>1</double>\n<double>2.5</double>\n")) +
            Pair("b",
                 Array("<int type='signed' size='32'/>", i32 + "2</int>\n" + i32 + "7</int>\n")))},
      {"bool items: true, false and bool",
       "<prop.list><prop.pair><key>a</key><array><true/><false/><bool/></array>"
       "</prop.pair></prop.list>",
       List(Pair("a", Array("<bool/>", "<true/>\n<false/>\n<true/>\n")))},
      {"an empty array needs a known array.type, else its key is lost",
       "<prop.list><prop.pair><key>a</key><array></array></prop.pair>"
       "<prop.pair><key>b</key><array><array.type><thing/></array.type></array></prop.pair>"
       "<prop.pair><key>c</key><array><array.type><false/></array.type></array></prop.pair>"
       "</prop.list>",
       List(Pair("c", Array("<bool/>", "")))},
      {"array.type is ignored when the array has items",
       "<prop.list><prop.pair><key>a</key><array><array.type><string/></array.type>"
       "<float>1.5</float></array></prop.pair></prop.list>",
       List(Pair("a", Array("<float/>", "<float>1.5</float>\n")))},
      {"a later value replaces an earlier one of another type",
       "<prop.list><prop.pair><key>a</key><string>x</string></prop.pair>"
       "<prop.pair><key>a</key><false/></prop.pair></prop.list>",
       List(Pair("a", "<false/>\n"))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PropList list;
    utils::ReadPropList(U8("<prop.map version='4'>" + c.body + "</prop.map>"), list);
    EXPECT_EQ(Fragment(list), c.fragment);
  }

  // Without prop.map the version stays; two top-level lists fill one root.
  PropList list;
  UTF8String text =
      U8("<r><prop.list><prop.pair><key>a</key><true/></prop.pair></prop.list>"
         "<prop.list><prop.pair><key>b</key><false/></prop.pair></prop.list></r>");
  utils::ReadPropList(text, list);
  EXPECT_EQ(list.GetVersion(), 4);
  EXPECT_EQ(Fragment(list), List(Pair("a", "<true/>\n") + Pair("b", "<false/>\n")));
}

TEST_F(PropListXML, OlderVersionsAreKeptAndNewerOnesRefused) {
  const std::string body = List(Pair("k", "<true/>\n"));
  for (int version : {0, 1, 3, 4}) {
    PropList list;
    utils::ReadPropList(U8(Document(Pair("k", "<true/>\n"), version)), list);
    EXPECT_EQ(list.GetVersion(), version);
    EXPECT_EQ(Write(list), Document(Pair("k", "<true/>\n"), version));
  }
  for (const char* version : {"5", "65535", "70000", "-1"}) {
    SCOPED_TRACE(version);
    PropList list;
    std::string error = ReportedError(
        [&] {
          utils::ReadPropList(
              U8(std::string("<prop.map version='") + version + "'>" + body + "</prop.map>"), list);
        },
        20);
    EXPECT_NE(error.find("$$$/tvxcore/proplist/Error/PropListXMLHandler/VersionGreaterThan="
                         "Cannot read PropList data; version greater than expected."),
              std::string::npos)
        << error;
    EXPECT_TRUE(list.IsEmpty());
  }
  // A manager that lets the report return: the parse goes on, the version stays.
  {
    tvxtest::RecordingErrorManager manager;
    config::ErrorManager::Set(&manager);
    PropList list;
    utils::ReadPropList(U8("<prop.map version='9'>" + body + "</prop.map>"), list);
    config::ErrorManager::Set(nullptr);
    EXPECT_EQ(manager.Reports().size(), 1u);
    EXPECT_EQ(list.GetVersion(), 4);
    EXPECT_EQ(list.GetPropertyType(U8("k")), kPropListType_Bool);
  }
  // Unreadable version text counts as 0; no attribute leaves the version alone.
  PropList unreadable;
  utils::ReadPropList(U8("<prop.map version='x'>" + body + "</prop.map>"), unreadable);
  EXPECT_EQ(unreadable.GetVersion(), 0);
  PropList none;
  utils::ReadPropList(U8("<prop.map>" + body + "</prop.map>"), none);
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
      "<prop.map version='4'><prop.list><prop.pair><key>a</key><true/>"
      "</prop.pair>";
  std::string bomb = "<!DOCTYPE m [<!ENTITY e0 'xxxxxxxxxx'>";
  for (int i = 1; i <= 8; ++i) {
    bomb += "<!ENTITY e" + std::to_string(i) + " '";
    for (int j = 0; j < 10; ++j) bomb += "&e" + std::to_string(i - 1) + ";";
    bomb += "'>";
  }
  bomb +=
      "]><prop.map><prop.list><prop.pair><key>k</key><string>&e8;</string>"
      "</prop.pair></prop.list></prop.map>";
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
      {"entity bomb", bomb, false},
      {"lone surrogate written by the library",
       [] {
         PropList l;
         l.SetValue(U8("s"), UTF16String(1, u'\xD800'));
         return Write(l);
       }(),
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PropList list;
    std::string error = ReportedError([&] { utils::ReadPropList(U8(c.text), list); }, 22);
    EXPECT_NE(error.find("$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListRead="
                         "Error parsing properties list from memory."),
              std::string::npos)
        << error;
    EXPECT_EQ(list.GetPropertyType(U8("a")), c.keepsA ? kPropListType_Bool : kPropListType_None);
  }
}

TEST(PropListReader, NeedsAParserFactory) {
  xml::ResetParserFactory();
  PropList list;
  std::string error = ReportedError([&] { utils::ReadPropList(U8(Document("")), list); }, 21);
  EXPECT_NE(error.find("$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryRead="
                       "Missing XML Parser Factory in ReadPropList."),
            std::string::npos)
      << error;
}
