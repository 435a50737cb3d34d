// The property-list text: the exact text the writer gives, what the reader
// keeps and reports for each version and each fault, and every way of reading.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <type_traits>

#include "TestText.h"
#include "config/ErrorTestSupport.h"
#include "tvxcore/proplist/PropListXMLHandler.h"

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
      {"scalars, reserved characters escaped, floats at the format's precision (not the shortest)",
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
         l.SetValue(U8("f1"), 0.1f + 0.2f);
         l.SetValue(U8("f2"), 1e20f);
         l.SetValue(U8("d1"), 0.1 + 0.2);
         l.SetValue(U8("d2"), 1e-5);
         l.SetValue(U8("d3"), -0.0);
       },
       Document(Pair("&lt;k&amp;&apos;&gt;",
                     "<string>say &quot;a&lt;b&quot; &amp; &apos;c&gt;d&apos;</string>\n") +
                Pair("a", "<int type='unsigned' size='16'>65535</int>\n") +
                Pair("b", "<int type='unsigned' size='32'>4294967295</int>\n") +
                Pair("c", "<int type='signed' size='32'>-2147483648</int>\n") +
                Pair("d", "<int type='signed' size='64'>-9223372036854775808</int>\n") +
                Pair("d1", "<double>0.3</double>\n") + Pair("d2", "<double>1e-05</double>\n") +
                Pair("d3", "<double>-0</double>\n") +
                Pair("e", "<int type='unsigned' size='64'>18446744073709551615</int>\n") +
                Pair("f", "<false/>\n") + Pair("f1", "<float>0.30000001</float>\n") +
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
  const std::string cutShort =
      "<prop.map version='4'><prop.list><prop.pair><key>a</key><true/></prop.pair>";
  PropList list;
  EXPECT_THAT(ReportedError([&] { utils::ReadPropList(U8(cutShort), list); }, 22),
              HasSubstr("$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListRead="
                        "Error parsing properties list from memory."));
  EXPECT_EQ(list.GetPropertyType(U8("a")), kPropListType_Bool);
}

TEST(PropListReader, NeedsAParserFactory) {
  xml::ResetParserFactory();
  PropList list;
  EXPECT_THAT(ReportedError([&] { utils::ReadPropList(U8(Document("")), list); }, 21),
              HasSubstr("$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryRead="
                        "Missing XML Parser Factory in ReadPropList."));
}

// ReadPropList and LoadPropList take UTF-8 events straight from the expat
// parser; PropListXMLHandler and a host's subclass of it get the public UTF-16
// events (StartElement with its attribute map, EndElement, Characters).
// Every route must leave the same list, the same version and the same
// failures for the same bytes, well-formed or not.

namespace {

// A subclass that overrides the events the reader overrides, as a host
// would, and passes them on: it must see every element and end.
class HostHandler : public PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
  void StartElement(const UTF16String& name,
                    const std::map<UTF16String, UTF16String>& attributes) override {
    seen += "<" + std::string(name.begin(), name.end());
    for (const auto& [attribute, value] : attributes) {
      seen.append(" ")
          .append(attribute.begin(), attribute.end())
          .append("=")
          .append(value.begin(), value.end());
    }
    seen += ">";
    PropListXMLHandler::StartElement(name, attributes);
  }
  void EndElement(const UTF16String& name) override {
    seen += "</" + std::string(name.begin(), name.end()) + ">";
    PropListXMLHandler::EndElement(name);
  }
  static inline std::string seen;
};

struct Outcome {
  int status = -1;    // the parse status, -1 when the parse ended in an exception
  std::string error;  // the key of the report that ended it, if any
  std::size_t reports = 0;
  std::string text;  // what the list then writes, version included

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& o) {
  return out << "status " << o.status << ", error '" << o.error << "', " << o.reports
             << " reports, text:\n"
             << o.text;
}

// What reading `bytes` leaves: through a parser with a `Handler`, or with
// void, through ReadPropList, whose status stays -1.
template <typename Handler>
Outcome Read(const std::string& bytes, bool throwingManager) {
  tvxtest::RecordingErrorManager manager;
  manager.throwWhenNotDeferred = throwingManager;
  config::ErrorManager::Set(&manager);
  Outcome outcome;
  PropList list;
  list.SetValue(U8("before"), true);  // what a failed read leaves must match too
  try {
    if constexpr (std::is_void_v<Handler>) {
      utils::ReadPropList(U8(bytes), list);
    } else {
      std::unique_ptr<xml::AbstractParseHandler> handler = std::make_unique<Handler>(&list);
      std::unique_ptr<xml::AbstractDocParser> parser = xml::GetParser(handler);
      outcome.status = parser->ParseBuffer(U8(bytes));
    }
  } catch (const tvxtest::RecordedFailure& failure) {
    outcome.error = failure.key;
  }
  config::ErrorManager::Set(nullptr);
  outcome.reports = manager.Reports().size();
  outcome.text = tvxtest::WriteText(list);
  return outcome;
}

std::string Map(const std::string& body, const std::string& version = "'4'") {
  return "<?xml version='1.0'?>\n<prop.map version=" + version + ">" + body + "</prop.map>";
}

// A document of every kind of value, nested, at a size that spans many of
// the parser's buffers, with strings of every length so that text falls across
// buffer ends and expat reports it in several pieces.
std::string LargeDocument() {
  PropList root;
  for (int i = 0; i < 200; ++i) {
    PropList* sub = root.NewSubList(U8("sub " + std::to_string(i) + (i % 7 == 0 ? "<&>" : "")));
    tvxtest::FillEveryType(*sub);
    sub->SetValue(U8("long"), U8("a&b <c> " + std::string(i * 3, 'x') + "\xC3\xA9"));
  }
  return tvxtest::WriteText(root);
}

// The list element of a document the writer gave.
std::string Fragment(const std::string& document) {
  const std::size_t start = document.find("<prop.list>");
  return document.substr(start, document.rfind("</prop.map>") - start);
}

using PropListRoutes = tvxtest::ExpatFactoryTest;

// Each input goes through every route; where `fragment` is given, the parse
// succeeds and leaves exactly that list, deviations included, without a report.
TEST_F(PropListRoutes, EveryRouteReadsEveryInputAlikeAndAsDocumented) {
  const std::string i32 = "<int type='signed' size='32'>";
  const std::string u64 = "<int type='unsigned' size='64'>";
  const std::string pair = Pair("k", "<true/>");
  const std::string large = LargeDocument();
  const struct {
    const char* name;
    std::string bytes;
    std::optional<std::string> fragment;
  } cases[] = {
      {"every kind of value, large", large, Fragment(large)},
      {"unknown element loses only its value, the key text stays for the next value",
       Map(List(Pair("a", "<future>9</future>") + Pair("b", "<true/>"))),
       List(Pair("ab", "<true/>\n"))},
      {"int without size or with an unknown size is dropped",
       Map(List(Pair("a", "<int type='signed'>5</int>") +
                Pair("b", "<int type='signed' size='8'>5</int>"))),
       List("")},
      {"unreadable numbers are 0 (\"1e\" and \"inf\" too, as to a stream), a readable prefix is "
       "kept, a number may come in pieces, one past the range is the largest",
       Map(List(Pair("a", i32 + "abc</int>") + Pair("b", "<double>12.5abc</double>") +
                Pair("c", i32 + "  42 </int>") + Pair("d", i32 + "</int>") +
                Pair("e", i32 + "99999999999</int>") + Pair("f", "<float>-</float>") +
                Pair("g", u64 + "-1</int>") + Pair("h", "<double>1e</double>") +
                Pair("i", i32 + "-4<!---->2</int>") +
                Pair("j", "<double>1.797693134862316e+308</double>") +
                Pair("k", "<double>inf</double>"))),
       List(Pair("a", i32 + "0</int>\n") + Pair("b", "<double>12.5</double>\n") +
            Pair("c", i32 + "42</int>\n") + Pair("d", i32 + "0</int>\n") +
            Pair("e", i32 + "2147483647</int>\n") + Pair("f", "<float>0</float>\n") +
            Pair("g", u64 + "18446744073709551615</int>\n") + Pair("h", "<double>0</double>\n") +
            Pair("i", i32 + "-42</int>\n") +
            Pair("j", "<double>1.797693134862316e+308</double>\n") +
            Pair("k", "<double>0</double>\n"))},
      {"text outside values is dropped, a value without a key goes under the empty key, "
       "keys and strings come in pieces",
       Map("<prop.list>x<prop.pair>y<key>k&amp;<!--c-->1</key>z<string>v&lt;<![CDATA[<w>]]>"
           "&#x10000;</string>w</prop.pair><prop.pair><double>1.5</double></prop.pair>"
           "</prop.list>"),
       List(Pair("", "<double>1.5</double>\n") +
            Pair("k&amp;1", "<string>v&lt;&lt;w&gt;\xF0\x90\x80\x80</string>\n"))},
      {"bool reads as true whatever its text; bool items are true, false and bool",
       Map(List(Pair("a", "<bool/>") + Pair("b", "<bool>false</bool>") +
                Pair("c", "<array><true/><false/><bool/></array>"))),
       List(Pair("a", "<true/>\n") + Pair("b", "<true/>\n") +
            Pair("c", Array("<bool/>", "<true/>\n<false/>\n<true/>\n")))},
      {"size 16 is unsigned whatever the type says",
       Map(List(Pair("a", "<int type='signed' size='16'>-1</int>") +
                Pair("b", "<int type='other' size='32'>7</int>"))),
       List(Pair("a", "<int type='unsigned' size='16'>65535</int>\n") +
            Pair("b", "<int type='unsigned' size='32'>7</int>\n"))},
      {"a mixed array takes the type of its last element",
       Map(List(Pair("a", "<array>" + i32 + "1</int><double>2.5</double></array>") +
                Pair("b", "<array><double>2.5</double>" + i32 + "7</int></array>"))),
       List(Pair("a", Array("<double/>", "<double>1</double>\n<double>2.5</double>\n")) +
            Pair("b",
                 Array("<int type='signed' size='32'/>", i32 + "2</int>\n" + i32 + "7</int>\n")))},
      {"arrays mixing numbers and strings",
       Map(List(Pair("a", "<array><double>2.5</double><ustring>x</ustring></array>") +
                Pair("b", "<array><ustring>\xC3\xA9</ustring><string>s</string></array>"))),
       {}},
      {"an empty array needs a known array.type, which is ignored when there are items",
       Map(List(
           Pair("a", "<array></array>") +
           Pair("b", "<array><array.type><thing/></array.type></array>") +
           Pair("c", "<array><array.type><false/></array.type></array>") +
           Pair("d", "<array><array.type><int type='unsigned' size='64'/></array.type></array>") +
           Pair("e", "<array><array.type><string/></array.type><float>1.5</float></array>"))),
       List(Pair("c", Array("<bool/>", "")) +
            Pair("d", Array("<int type='unsigned' size='64'/>", "")) +
            Pair("e", Array("<float/>", "<float>1.5</float>\n")))},
      {"a later value replaces an earlier one of another type",
       Map(List(Pair("a", "<string>x</string>") + Pair("a", "<false/>"))),
       List(Pair("a", "<false/>\n"))},
      {"namespaces: prefixed names are other names, a default namespace changes nothing",
       Map("<prop.list xmlns='urn:d' xmlns:p='urn:p'><prop.pair><key>a</key>"
           "<p:string>x</p:string></prop.pair><prop.pair><key>b</key>"
           "<int p:type='signed' size='32'>-1</int></prop.pair><prop.pair><key>c</key>"
           "<int type='signed' p:size='32'>-1</int><string>y</string></prop.pair>"
           "<p:prop.list/></prop.list>"),
       {}},
      {"sub-lists, and two top-level lists without prop.map fill one root",
       "<r>" + List(Pair("s", List(Pair("t", "<true/>")))) + List(Pair("u", "<false/>")) + "</r>",
       List(Pair("s", List(Pair("t", "<true/>\n"))) + Pair("u", "<false/>\n"))},
      {"units XML cannot carry, escaped by the writer",
       [] {
         PropList list;
         tvxtest::FillUnrepresentable(list);
         return tvxtest::WriteText(list);
       }(),
       {}},
      {"escape characters not followed by four hexadecimal digits are text",
       Map(List(Pair("\xEE\x80\x9B",
                     "<string>\xEE\x80\x9B"
                     "12g4\xEE\x80\x9B"
                     "123</string>") +
                Pair("u",
                     "<ustring>\xEE\x80\x9B"
                     "0041\xEE\x80\x9B</ustring>"))),
       List(Pair("u",
                 "<ustring>A\xEE\x80\x9B"
                 "E01B</ustring>\n") +
            Pair("\xEE\x80\x9B"
                 "E01B",
                 "<string>\xEE\x80\x9B"
                 "E01B12g4\xEE\x80\x9B"
                 "E01B123</string>\n"))},
      {"older version", Map(List(pair), "'1'"), {}},
      {"newer version", Map(List(pair), "'5'"), {}},
      {"unreadable version", Map("<prop.list/>", "'x'"), {}},
      {"encoding from a byte order mark",
       tvxtest::UTF16LE(u"<prop.list><prop.pair><key>\u00e9</key><ustring>\U0001F600</ustring>"
                        u"</prop.pair></prop.list>"),
       {}},
      {"cut short", Map(List(pair)).substr(0, 80), {}},
      {"surrogate reference", "<prop.list><prop.pair><key>a</key><string>&#xD800;</string>", {}},
      {"empty", "", {}},
      {"entity bomb",
       tvxtest::EntityBombDoctype() + "<prop.map>" + List(Pair("k", "<string>&e8;</string>")) +
           "</prop.map>",
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.fragment) {
      tvxtest::RecordingErrorManager manager;
      config::ErrorManager::Set(&manager);
      PropList list;
      utils::ReadPropList(U8(c.bytes), list);
      config::ErrorManager::Set(nullptr);
      EXPECT_TRUE(manager.Reports().empty());
      UTF8String text;
      list.OutputAsXMLFragment(text);
      EXPECT_EQ(tvxtest::Str(text), *c.fragment);
    }
    for (bool throwing : {true, false}) {
      SCOPED_TRACE(throwing ? "throwing manager" : "returning manager");
      const Outcome library = Read<PropListXMLHandler>(c.bytes, throwing);
      EXPECT_EQ(library, Read<HostHandler>(c.bytes, throwing));
      EXPECT_EQ(Read<void>(c.bytes, throwing).text, library.text) << "the UTF-8 route";
      if (c.fragment) {
        EXPECT_EQ(library.status, xml::kXMLParseStatus_Success);
      }
    }
  }
}

// Element and attribute names come qualified, attributes in a map.
TEST_F(PropListRoutes, HostSubclassSeesEveryElementThroughTheEventsItOverrides) {
  HostHandler::seen.clear();
  Read<HostHandler>(Map(List(Pair("k",
                                  "<p:x xmlns:p='urn:p' p:k='v' b='w'/>"
                                  "<int type='signed' size='32'>5</int>"))),
                    true);
  EXPECT_EQ(HostHandler::seen,
            "<prop.map version=4><prop.list><prop.pair><key></key><p:x b=w p:k=v></p:x>"
            "<int size=32 type=signed></int></prop.pair></prop.list></prop.map>");
}

// A host's own list class: the setters it overrides must be called for each
// value read into it, scalar or array; its sub-lists are the library's own and
// take the values directly.
class RecordingList : public PropList {
 public:
  using PropList::SetValue;
  void SetValue(Key key, const double& value) override {
    Record(key);
    PropList::SetValue(key, value);
  }
  void SetValue(Key key, const List<double>& value) override {
    Record(key);
    PropList::SetValue(key, value);
  }
  std::string calls;

 private:
  void Record(Key key) { calls.append(key.begin(), key.end()).append(" "); }
};

TEST_F(PropListRoutes, HostListClassSeesEverySetterCallOfTheReader) {
  const std::string inner = Pair("in", "<double>2</double>");
  const std::string bytes =
      Map(List(Pair("a", "<double>1.5</double>") +
               Pair("b", "<int type='signed' size='32'>7</int>") + Pair("c", "<string>s</string>") +
               Pair("d",
                    "<array><array.type><double/></array.type><double>1</double>"
                    "<double>2</double></array>") +
               "<prop.pair><key>sub</key>" + List(inner) + "</prop.pair>"));
  RecordingList list;
  utils::ReadPropList(U8(bytes), list);
  EXPECT_EQ(list.calls, "a d ");
  PropList plain;
  utils::ReadPropList(U8(bytes), plain);
  EXPECT_EQ(WriteText(list), WriteText(plain));
}

}  // namespace
