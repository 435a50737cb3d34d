#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "proplist/TestText.h"
#include "support/TempDirFixture.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "tvxcore/xml/ExpatParser.h"
#include "tvxcore/xml/XMLParser.h"

using namespace tvxcore;
using namespace tvxcore::xml;
using tvxtest::U8;

namespace {

std::string Narrow(const UTF16String& text) {
  UTF8String bytes = utility::UTF16to8(text);
  return std::string(bytes.begin(), bytes.end());
}

// Writes every event as one line.
class RecordingHandler : public AbstractParseHandler {
 public:
  explicit RecordingHandler(std::vector<std::string>* log) : log_(log) {}
  void StartDocument() override { log_->push_back("start-document"); }
  void StartElementWithNamespace(const UTF16String& qualifiedName, const UTF16String& uri,
                                 const UTF16String& local,
                                 const std::vector<Attribute>& attributes) override {
    std::string line = "start " + Narrow(qualifiedName) + " {" + Narrow(uri) + "} " + Narrow(local);
    for (const Attribute& a : attributes) {
      line += " [" + Narrow(a.qualifiedName) + " {" + Narrow(a.namespaceURI) + "} " +
              Narrow(a.localName) + "=" + Narrow(a.value) + "]";
    }
    log_->push_back(line);
  }
  void EndElementWithNamespace(const UTF16String& qualifiedName, const UTF16String& uri,
                               const UTF16String& local) override {
    log_->push_back("end " + Narrow(qualifiedName) + " {" + Narrow(uri) + "} " + Narrow(local));
  }
  void Characters(const UTF16String& text) override {
    // Pieces are joined: the parser may split text anywhere.
    if (!log_->empty() && log_->back().rfind("text ", 0) == 0) {
      log_->back() += Narrow(text);
    } else {
      log_->push_back("text " + Narrow(text));
    }
  }
  void StartCDATA() override { log_->push_back("start-cdata"); }
  void EndCDATA() override { log_->push_back("end-cdata"); }
  void Comment(const UTF16String& text) override { log_->push_back("comment " + Narrow(text)); }
  void EndDocument() override { log_->push_back("end-document"); }
  void StartPrefixMapping(const UTF16String& prefix, const UTF16String& uri) override {
    log_->push_back("map " + Narrow(prefix) + "=" + Narrow(uri));
  }
  void EndPrefixMapping(const UTF16String& prefix) override {
    log_->push_back("unmap " + Narrow(prefix));
  }

 private:
  std::vector<std::string>* log_;
};

struct Result {
  XMLParseStatus status;
  std::vector<std::string> log;
};

Result Parse(std::string_view text) {
  Result result{kXMLParseStatus_Failure, {}};
  std::unique_ptr<AbstractParseHandler> handler = std::make_unique<RecordingHandler>(&result.log);
  ExpatParserFactory factory;
  auto parser = factory.GetParser(handler);
  EXPECT_EQ(handler, nullptr);
  result.status = parser->ParseBuffer(U8(text));
  return result;
}

class CountingFactory : public DocParserFactory {
 public:
  explicit CountingFactory(int* destroyed) : destroyed_(destroyed) {}
  ~CountingFactory() override { ++*destroyed_; }
  std::unique_ptr<AbstractDocParser> GetParser(
      std::unique_ptr<AbstractParseHandler>& handler) override {
    return ExpatParserFactory().GetParser(handler);
  }

 private:
  int* destroyed_;
};

}  // namespace

TEST(XMLReservedCharacters, EncodeAndDecodeBothStringTypes) {
  const struct {
    bool encode;
    const char* in;
    const char* out;
  } cases[] = {
      {true, "\"&'<>", "&quot;&amp;&apos;&lt;&gt;"},
      {true, "\xC3\xA9&", "\xC3\xA9&amp;"},
      {false, "", ""},
      {false, "&quot;&apos;&amp;&lt;&gt;", "\"'&<>"},
      {false, "&amp;lt;", "&lt;"},    // one level only
      {false, "&foo;", "&foo;"},      // unknown name
      {false, "&quote;", "&quote;"},  // a fifth unit ends the name
      {false, "&quo", "&quo"},        // cut by the end
      {false, "&&lt;", "&<"},         // a second "&" restarts the name
      {false, "&#60;", "&#60;"},      // character references are not decoded
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    UTF8String out8 = U8("stale");
    UTF16String out16 = u"stale";
    if (c.encode) {
      utils::EncodeReservedCharacters(U8(c.in), out8);
      utils::EncodeReservedCharacters(utility::UTF8to16(U8(c.in)), out16);
    } else {
      utils::DecodeReservedCharacters(U8(c.in), out8);
      utils::DecodeReservedCharacters(utility::UTF8to16(U8(c.in)), out16);
    }
    EXPECT_EQ(out8, U8(c.out));
    EXPECT_EQ(out16, utility::UTF8to16(U8(c.out)));
  }
}

TEST(XMLParserFactory, OwnershipPassesOnlyWhenAFactoryIsInstalled) {
  ResetParserFactory();
  EXPECT_FALSE(Initialized());
  std::vector<std::string> log;
  std::unique_ptr<AbstractParseHandler> handler = std::make_unique<RecordingHandler>(&log);
  AbstractParseHandler* raw = handler.get();
  EXPECT_EQ(GetParser(handler), nullptr);
  EXPECT_EQ(handler.get(), raw);  // still the caller's

  int destroyed = 0;
  std::unique_ptr<DocParserFactory> factory = std::make_unique<CountingFactory>(&destroyed);
  DocParserFactory* installed = factory.get();
  SetParserFactory(factory);
  EXPECT_EQ(factory, nullptr);
  EXPECT_TRUE(Initialized());

  // The installed factory handed in again stays installed and alive.
  std::unique_ptr<DocParserFactory> again(installed);
  SetParserFactory(again);
  EXPECT_EQ(destroyed, 0);
  EXPECT_TRUE(Initialized());

  auto parser = GetParser(handler);
  ASSERT_NE(parser, nullptr);
  EXPECT_EQ(handler, nullptr);
  EXPECT_TRUE(parser->HasNamespaceSupport());
  EXPECT_EQ(parser->ParseBuffer(U8("<a/>")), kXMLParseStatus_Success);
  EXPECT_EQ(log, (std::vector<std::string>{"start-document", "start a {} a", "end a {} a",
                                           "end-document"}));

  // A different factory replaces and deletes the first.
  int destroyedSecond = 0;
  std::unique_ptr<DocParserFactory> second = std::make_unique<CountingFactory>(&destroyedSecond);
  SetParserFactory(second);
  EXPECT_EQ(destroyed, 1);
  ResetParserFactory();
  EXPECT_EQ(destroyedSecond, 1);
  EXPECT_FALSE(Initialized());
}

TEST(ExpatParser, DeliversEventsWithQualifiedNamesFirst) {
  const std::string hugeValue(8 << 20, 'v');
  const struct {
    std::string text;
    std::vector<std::string> log;
  } cases[] = {
      {"<?xml version='1.0'?>\n<!-- head --><r xmlns='urn:d' xmlns:p='urn:p' p:x='1' "
       "y='&lt;2&gt;'><p:e>a&amp;b&#233;</p:e><![CDATA[<raw>]]></r>",
       {"start-document", "comment  head ", "map =urn:d", "map p=urn:p",
        "start r {urn:d} r [p:x {urn:p} x=1] [y {} y=<2>]", "start p:e {urn:p} e",
        "text a&b\xC3\xA9", "end p:e {urn:p} e", "start-cdata", "text <raw>", "end-cdata",
        "end r {urn:d} r", "unmap p", "unmap ", "end-document"}},
      // The encoding comes from a byte order mark or the declaration.
      {tvxtest::UTF16LE(u"<a>\u00e9</a>"),
       {"start-document", "start a {} a", "text \xC3\xA9", "end a {} a", "end-document"}},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>",
       {"start-document", "start a {} a", "text \xC3\xA9", "end a {} a", "end-document"}},
      // A small, legitimate internal entity expands.
      {"<!DOCTYPE d [<!ENTITY e 'expanded'>]><d>&e;</d>",
       {"start-document", "start d {} d", "text expanded", "end d {} d", "end-document"}},
      // An attribute value far larger than the parser's buffers comes whole.
      {"<a k='" + hugeValue + "'/>",
       {"start-document", "start a {} a [k {} k=" + hugeValue + "]", "end a {} a", "end-document"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 80));
    const Result r = Parse(c.text);
    EXPECT_EQ(r.status, kXMLParseStatus_Success);
    EXPECT_TRUE(r.log == c.log) << ::testing::PrintToString(r.log).substr(0, 2000);
  }
}

TEST(ExpatParser, BadInputGivesStatusTen) {
  const std::string hugeName(1 << 16, 'n');
  const std::string cases[] = {
      "",
      "<a>&undefined;</a>",
      "<a>\xED\xA0\x80</a>",  // an encoded surrogate
      "<p:a/>",               // undeclared prefix
      "<" + hugeName + "></" + hugeName + "x>",
      std::string("<a>\0</a>", 8),
      // Expansion past what memory allows, to a handler that keeps the text.
      tvxtest::EntityBombDoctype() + "<lolz>&e8;</lolz>",
  };
  for (const std::string& text : cases) {
    SCOPED_TRACE(text.substr(0, 40));
    auto r = Parse(text);
    EXPECT_EQ(r.status, kXMLParseStatus_Failure);
    EXPECT_TRUE(r.log.empty() || r.log.back() != "end-document");
  }
}

class ExpatFileTest : public tvxtest::TempDirTest {
 protected:
  // Writes `text` to `name` unless it is null, and parses the file.
  Result ParseFile(const std::string& name, const char* text) {
    if (text) Write(name, text);
    Result result{kXMLParseStatus_Failure, {}};
    std::unique_ptr<AbstractParseHandler> handler = std::make_unique<RecordingHandler>(&result.log);
    result.status = ExpatParserFactory().GetParser(handler)->ParseDocument(Path(name));
    return result;
  }
};

TEST_F(ExpatFileTest, ParsesFilesAcrossChunksAndRefusesMissingOnes) {
  std::string big = "<r>";
  for (int i = 0; i < 20000; ++i) big += "<i n='" + std::to_string(i) + "'>t</i>";
  auto r = ParseFile("big.xml", (big + "</r>").c_str());
  EXPECT_EQ(r.status, kXMLParseStatus_Success);
  EXPECT_EQ(r.log.size(), 2u + 2u + 3u * 20000u);
  EXPECT_EQ(r.log.back(), "end-document");

  EXPECT_EQ(ParseFile("missing.xml", nullptr).status, kXMLParseStatus_Failure);
  EXPECT_EQ(ParseFile("bad.xml", "<r><i></r>").status, kXMLParseStatus_Failure);
}

TEST_F(ExpatFileTest, NeverLoadsExternalEntitiesOrDTDs) {
  Write("secret.txt", "SECRET");
  Write("ext.dtd", "<!ENTITY leak 'SECRET'>");
  const std::string secret = "'file://" + Native("secret.txt") + "'";
  const std::string dtd = "'file://" + Native("ext.dtd") + "'";
  for (const std::string& doc : {
           "<!DOCTYPE r [<!ENTITY x SYSTEM " + secret + ">]><r>&x;</r>",
           "<!DOCTYPE r SYSTEM " + dtd + "><r>&leak;</r>",
           "<!DOCTYPE r [<!ENTITY % p SYSTEM " + dtd + "> %p;]><r>&leak;</r>",
       }) {
    SCOPED_TRACE(doc);
    for (const std::string& line : ParseFile("doc.xml", doc.c_str()).log) {
      EXPECT_EQ(line.find("SECRET"), std::string::npos);
    }
  }
}

TEST(ExpatParser, HandlerExceptionPassesThroughAndStopsTheParse) {
  struct Throwing : AbstractParseHandler {
    explicit Throwing(int* seen) : seen_(seen) {}
    void StartElement(const UTF16String& name, const std::map<UTF16String, UTF16String>&) override {
      ++*seen_;
      if (name == u"stop") throw std::runtime_error("handler says stop");
    }
    int* seen_;
  };
  const struct {
    const char* doc;
    int elementsSeen;  // the throwing one included, nothing after it
  } cases[] = {
      {"<r><a/><stop/><b/><c/></r>", 3},
      {"<stop>", 1},               // the document is not even complete
      {"<r><stop/>&bad;</r>", 2},  // the exception wins over the later parse error
  };
  for (const auto& [doc, elementsSeen] : cases) {
    SCOPED_TRACE(doc);
    int seen = 0;
    std::unique_ptr<AbstractParseHandler> handler = std::make_unique<Throwing>(&seen);
    auto parser = ExpatParserFactory().GetParser(handler);
    try {
      parser->ParseBuffer(U8(doc));
      ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "handler says stop");
    }
    EXPECT_EQ(seen, elementsSeen);
    // The parser is reusable after the exception.
    EXPECT_EQ(parser->ParseBuffer(U8("<fine/>")), kXMLParseStatus_Success);
  }
}
