// The library's own reader takes UTF-8 events straight from the expat parser;
// a subclass of PropListXMLHandler gets the public UTF-16 events (through
// StartElementWithNamespace, or through the attribute map of StartElement).
// Every route must leave the same list, the same version and the same
// failures for the same bytes, well-formed or not.
#include <gtest/gtest.h>

#include <cstdint>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "TestText.h"
#include "config/ErrorTestSupport.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using tvxtest::Str;
using tvxtest::U16;
using tvxtest::U8;

namespace {

// A subclass that changes nothing: the parser must give it the UTF-16 events.
class SubclassedHandler : public PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
};

// A subclass that takes the plain StartElement, with its attribute map.
class MapHandler : public PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
  void StartElementWithNamespace(const UTF16String& qualifiedName, const UTF16String& namespaceURI,
                                 const UTF16String& localName,
                                 const std::vector<xml::Attribute>& attributes) override {
    xml::AbstractParseHandler::StartElementWithNamespace(qualifiedName, namespaceURI, localName,
                                                         attributes);
  }
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

template <typename Handler>
Outcome Read(const std::string& bytes, bool throwingManager) {
  tvxtest::RecordingErrorManager manager;
  manager.throwWhenNotDeferred = throwingManager;
  config::ErrorManager::Set(&manager);
  Outcome outcome;
  PropList list;
  list.SetValue(U8("before"), true);  // what a failed read leaves must match too
  try {
    std::unique_ptr<xml::AbstractParseHandler> handler = std::make_unique<Handler>(&list);
    std::unique_ptr<xml::AbstractDocParser> parser = xml::GetParser(handler);
    outcome.status = parser->ParseBuffer(U8(bytes));
  } catch (const tvxtest::RecordedFailure& failure) {
    outcome.error = failure.key;
  }
  config::ErrorManager::Set(nullptr);
  outcome.reports = manager.Reports().size();
  UTF8String text;
  utils::WritePropList(text, list);
  outcome.text = Str(text);
  return outcome;
}

std::string Map(const std::string& body, const std::string& version = "'4'") {
  return "<?xml version='1.0'?>\n<prop.map version=" + version + ">" + body + "</prop.map>";
}

// A document of every kind of value, nested, at a size that spans many of
// the parser's buffers, with text that expat reports in several pieces.
std::string LargeDocument() {
  std::mt19937 rng(7);
  PropList root;
  for (int s = 0; s < 6; ++s) {
    PropList* sub = root.NewSubList(U8("sub " + std::to_string(s)));
    for (int i = 0; i < 300; ++i) {
      UTF8String key = U8("k" + std::to_string(i) + (i % 7 == 0 ? "<&>" : ""));
      switch (rng() % 12) {
        case 0:
          sub->SetValue(key, U8("a&b <c> \"d\" 'e' " + std::string(rng() % 200, 'x')));
          break;
        case 1:
          sub->SetValue(key, U16(u"\u00e9\u4e2d\U0001F600 &<>"));
          break;
        case 2:
          sub->SetValue(key, (rng() & 1) != 0);
          break;
        case 3:
          sub->SetValue(key, static_cast<std::uint16_t>(rng()));
          break;
        case 4:
          sub->SetValue(key, static_cast<std::uint32_t>(rng()));
          break;
        case 5:
          sub->SetValue(key, static_cast<std::int32_t>(rng()));
          break;
        case 6:
          sub->SetValue(key, static_cast<std::int64_t>((std::uint64_t{rng()} << 32) | rng()));
          break;
        case 7:
          sub->SetValue(key, (std::uint64_t{rng()} << 32) | rng());
          break;
        case 8:
          sub->SetValue(key, std::uniform_real_distribution<float>(-1, 1)(rng));
          break;
        case 9:
          sub->SetValue(key, std::list<double>{1.5, -2e300, 3});
          break;
        case 10:
          sub->SetValue(key, std::list<UTF16String>{U16(u"\u00e9"), U16(u"<\U0001F600>")});
          break;
        default:
          sub->SetValue(key, std::list<bool>{});
          break;
      }
    }
  }
  UTF8String text;
  utils::WritePropList(text, root);
  return Str(text);
}

class PropListRoutes : public ::testing::Test {
 protected:
  void SetUp() override {
    std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
    xml::SetParserFactory(factory);
  }
  void TearDown() override { xml::ResetParserFactory(); }
};

TEST_F(PropListRoutes, LibraryReaderAndSubclassesAgreeOnEveryInput) {
  const std::string i32 = "<int type='signed' size='32'>";
  std::string bomb = "<!DOCTYPE m [<!ENTITY e0 'xxxxxxxxxx'>";
  for (int i = 1; i <= 8; ++i) {
    bomb += "<!ENTITY e" + std::to_string(i) + " '";
    for (int j = 0; j < 10; ++j) bomb += "&e" + std::to_string(i - 1) + ";";
    bomb += "'>";
  }
  bomb += "]><prop.map><prop.list><prop.pair><key>k</key><string>&e8;</string></prop.pair>";
  bomb += "</prop.list></prop.map>";
  const std::string utf16 = [] {
    std::string text = "\xFF\xFE";  // little-endian with a byte order mark
    for (char16_t c : std::u16string(u"<prop.list><prop.pair><key>\u00e9</key><ustring>"
                                     u"\U0001F600</ustring></prop.pair></prop.list>")) {
      text.push_back(static_cast<char>(c & 0xFF));
      text.push_back(static_cast<char>(c >> 8));
    }
    return text;
  }();

  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"every kind of value, large", LargeDocument()},
      {"unknown elements and ints without a usable size",
       Map("<prop.list><prop.pair><key>a</key><future>9</future></prop.pair>"
           "<prop.pair><key>b</key><int type='signed'>5</int></prop.pair>"
           "<prop.pair><key>c</key><int type='signed' size='8'>5</int><true/></prop.pair>"
           "</prop.list>")},
      {"unreadable numbers and readable prefixes",
       Map("<prop.list><prop.pair><key>a</key>" + i32 + "abc</int></prop.pair>" +
           "<prop.pair><key>b</key><double>12.5abc</double></prop.pair><prop.pair><key>c</key>" +
           i32 + " 42 </int></prop.pair><prop.pair><key>d</key>" + i32 +
           "99999999999</int></prop.pair><prop.pair><key>e</key><float>-</float></prop.pair>" +
           "<prop.pair><key>f</key><int type='unsigned' size='64'>-1</int></prop.pair>" +
           "<prop.pair><key>g</key><double>0x1p3</double></prop.pair></prop.list>")},
      {"text outside values, values without keys, keys in pieces",
       Map("<prop.list>x<prop.pair>y<key>k&amp;<!--c-->1</key>z<string>v&lt;<![CDATA[<w>]]>"
           "&#x10000;</string>w</prop.pair><prop.pair><double>1.5</double></prop.pair>"
           "</prop.list>")},
      {"bool forms and mixed arrays",
       Map("<prop.list><prop.pair><key>a</key><bool>false</bool></prop.pair>"
           "<prop.pair><key>b</key><array><true/><false/><bool/></array></prop.pair>"
           "<prop.pair><key>c</key><array>" +
           i32 + "1</int><double>2.5</double></array></prop.pair>" +
           "<prop.pair><key>d</key><array><double>2.5</double><ustring>x</ustring></array>" +
           "</prop.pair><prop.pair><key>e</key><array><ustring>\xC3\xA9</ustring><string>s" +
           "</string></array></prop.pair></prop.list>")},
      {"empty arrays with and without a known type",
       Map("<prop.list><prop.pair><key>a</key><array></array></prop.pair>"
           "<prop.pair><key>b</key><array><array.type><thing/></array.type></array></prop.pair>"
           "<prop.pair><key>c</key><array><array.type><int type='unsigned' size='64'/>"
           "</array.type></array></prop.pair><prop.pair><key>d</key><array><array.type>"
           "<string/></array.type><float>1.5</float></array></prop.pair></prop.list>")},
      {"namespaces: prefixed names are other names, a default namespace changes nothing",
       Map("<prop.list xmlns='urn:d' xmlns:p='urn:p'><prop.pair><key>a</key>"
           "<p:string>x</p:string></prop.pair><prop.pair><key>b</key>"
           "<int p:type='signed' size='32'>-1</int></prop.pair><prop.pair><key>c</key>"
           "<int type='signed' p:size='32'>-1</int><string>y</string></prop.pair>"
           "<p:prop.list/></prop.list>")},
      {"sub-lists and a second top-level list without prop.map",
       "<r><prop.list><prop.pair><key>s</key><prop.list><prop.pair><key>t</key><true/>"
       "</prop.pair></prop.list></prop.pair></prop.list><prop.list><prop.pair><key>u</key>"
       "<false/></prop.pair></prop.list></r>"},
      {"older version",
       Map("<prop.list><prop.pair><key>k</key><true/></prop.pair></prop.list>", "'1'")},
      {"newer version",
       Map("<prop.list><prop.pair><key>k</key><true/></prop.pair></prop.list>", "'5'")},
      {"unreadable version", Map("<prop.list/>", "'x'")},
      {"encoding from a byte order mark", utf16},
      {"declared encoding",
       "<?xml version='1.0' encoding='ISO-8859-1'?><prop.list><prop.pair><key>\xE9</key>"
       "<string>\xE9\xFF</string></prop.pair></prop.list>"},
      {"cut short", Map("<prop.list><prop.pair><key>a</key><true/></prop.pair>").substr(0, 80)},
      {"mismatched end", "<prop.list><prop.pair><key>a</key><true/></prop.pair></prop.map>"},
      {"invalid UTF-8",
       "<prop.list><prop.pair><key>a</key><true/></prop.pair><prop.pair>"
       "<key>\xC3(</key><true/></prop.pair></prop.list>"},
      {"unbound prefix", "<prop.list><prop.pair><key>a</key><true/></prop.pair><q:x/>"},
      {"surrogate reference", "<prop.list><prop.pair><key>a</key><string>&#xD800;</string>"},
      {"empty", ""},
      {"entity bomb", bomb},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (bool throwing : {true, false}) {
      SCOPED_TRACE(throwing ? "throwing manager" : "returning manager");
      Outcome library = Read<PropListXMLHandler>(c.bytes, throwing);
      EXPECT_EQ(library, Read<SubclassedHandler>(c.bytes, throwing));
      EXPECT_EQ(library, Read<MapHandler>(c.bytes, throwing));
    }
  }
}

TEST_F(PropListRoutes, LibraryReaderReadsWhatItWroteAndReportsWhatItCannotRead) {
  // The agreement above must not be agreement in doing nothing.
  const std::string large = LargeDocument();
  Outcome read = Read<PropListXMLHandler>(large, true);
  EXPECT_EQ(read.status, xml::kXMLParseStatus_Success);
  EXPECT_EQ(read.text, large.substr(0, large.find("<prop.pair>")) +
                           "<prop.pair>\n<key>before</key>\n<true/>\n</prop.pair>\n" +
                           large.substr(large.find("<prop.pair>")));

  Outcome newer = Read<PropListXMLHandler>(Map("<prop.list/>", "'5'"), true);
  EXPECT_EQ(newer.status, -1);
  EXPECT_NE(newer.error.find("VersionGreaterThan"), std::string::npos) << newer.error;
  Outcome broken = Read<PropListXMLHandler>("<prop.list><key>a</key>", true);
  EXPECT_EQ(broken.status, xml::kXMLParseStatus_Failure);
  EXPECT_EQ(broken.reports, 0u);
}

}  // namespace
