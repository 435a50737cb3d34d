// The expat-backed parser. Expat is a C library: no exception may cross its
// frames. Each callback catches whatever the client handler throws, stops the
// parser and keeps the exception, which is thrown again once XML_Parse has
// returned and the parser has been freed.
//
// Element and text events take one of two routes: the public one, which
// converts every name, attribute and text piece to UTF-16 for the handler,
// or, for a handler of the library that offers it, the UTF-8 route, which
// hands over views of expat's own UTF-8 (xml/internal/UTF8Route.h).
#include "tvxcore/xml/ExpatParser.h"

// The library is built with DTD support; its entity-expansion limits are
// declared only under XML_DTD.
#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>

#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileRead.h"
#include "platform/FileSystem.h"
#include "xml/internal/FileRead.h"
#include "xml/internal/UTF8Route.h"
#include "xml/internal/Utf.h"

#if XML_MAJOR_VERSION < 2 || (XML_MAJOR_VERSION == 2 && XML_MINOR_VERSION < 4)
#error "expat 2.4 or later is needed for its protection against entity expansion"
#endif

namespace tvxcore::xml {
namespace internal {
// Opens the document at `path`; false with the failure when it can't.
bool OpenDocument(const UTF16String& path, platform::ReadOnlyFile& file,
                  FileReadFailure& outFailure);
}  // namespace internal
namespace {

// Separates namespace URI, local name and prefix in the names expat reports.
// U+0001 cannot occur in an XML 1.0 document, not even as a reference.
constexpr char kNamespaceSeparator = '\x01';

// Entity expansion may produce at most this many bytes of output per byte of
// input once the output has passed the activation threshold.
constexpr float kMaximumAmplification = 100.0f;
constexpr unsigned long long kAmplificationThreshold = 4ull << 20;

// Pieces of a file fed to expat: at least this (a file that grows while it
// is read), at most what expat's int length takes.
constexpr std::size_t kMinPiece = 64 * 1024;
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserPtr = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

// The state of one parse: the expat parser, the client handler, the first
// exception the handler threw, and buffers reused from event to event.
class Session {
 public:
  explicit Session(AbstractParseHandler& handler)
      : handler_(handler), route_(internal::UTF8RouteOf(handler)) {
    if (!route_) names_.reserve(kNameCacheSize);  // entries never move
  }

  bool Create() {
    parser_.reset(XML_ParserCreateNS(nullptr, kNamespaceSeparator));
    if (!parser_) return false;
    XML_Parser p = parser_.get();
    XML_SetUserData(p, this);
    XML_SetReturnNSTriplet(p, 1);
    // Nothing outside the document is ever read: no parameter entities, no
    // external DTD subset, and no handler that would load an external entity.
    if (!XML_SetParamEntityParsing(p, XML_PARAM_ENTITY_PARSING_NEVER)) return false;
    if (!XML_SetBillionLaughsAttackProtectionMaximumAmplification(p, kMaximumAmplification) ||
        !XML_SetBillionLaughsAttackProtectionActivationThreshold(p, kAmplificationThreshold)) {
      return false;
    }
    if (route_) {
      // Text is reported only while the handler wants it (WantText).
      XML_SetElementHandler(p, &Session::OnStartElementUTF8, &Session::OnEndElementUTF8);
    } else {
      XML_SetElementHandler(p, &Session::OnStartElement, &Session::OnEndElement);
      XML_SetCharacterDataHandler(p, &Session::OnCharacters);
    }
    XML_SetCdataSectionHandler(p, &Session::OnStartCDATA, &Session::OnEndCDATA);
    XML_SetCommentHandler(p, &Session::OnComment);
    XML_SetNamespaceDeclHandler(p, &Session::OnStartNamespace, &Session::OnEndNamespace);
    return true;
  }

  // Feeds one piece; false on a parse error or a stop by a handler exception.
  bool Feed(const char* data, std::size_t size, bool last) {
    if (!started_) {
      started_ = true;
      handler_.StartDocument();
    }
    // Feed in pieces that fit expat's int length.
    constexpr std::size_t kMaxPiece = 1u << 30;
    do {
      std::size_t piece = size < kMaxPiece ? size : kMaxPiece;
      bool final = last && piece == size;
      if (XML_Parse(parser_.get(), data, static_cast<int>(piece), final) != XML_STATUS_OK) {
        return false;
      }
      data += piece;
      size -= piece;
    } while (size > 0);
    return true;
  }

  bool FeedBuffer(std::size_t size, bool last) {
    return XML_ParseBuffer(parser_.get(), static_cast<int>(size), last) == XML_STATUS_OK;
  }
  void* GetBuffer(std::size_t size) { return XML_GetBuffer(parser_.get(), static_cast<int>(size)); }
  void Start() {
    if (!started_) {
      started_ = true;
      handler_.StartDocument();
    }
  }

  // Ends the parse: frees expat, then throws the handler's exception if there
  // was one, else gives the status.
  XMLParseStatus Finish(bool ok) {
    parser_.reset();
    if (error_) std::rethrow_exception(error_);
    if (!ok) return kXMLParseStatus_Failure;
    handler_.EndDocument();
    return kXMLParseStatus_Success;
  }

 private:
  static Session& Of(void* userData) { return *static_cast<Session*>(userData); }

  template <typename F>
  void Guard(F&& f) {
    if (error_) return;
    try {
      f();
    } catch (...) {
      error_ = std::current_exception();
      XML_StopParser(parser_.get(), XML_FALSE);
    }
  }

  static void Assign(const char* text, UTF16String& out) {
    out.clear();
    if (text) internal::AppendUTF8AsUTF16(text, std::char_traits<char>::length(text), out);
  }

  // One name as the handler sees it.
  struct SplitNameEntry {
    std::string text;  // as expat reports it
    UTF16String qualified, uri, local;
  };

  // Splits "uri<sep>local<sep>prefix", "uri<sep>local" or "local" and builds
  // the qualified name "prefix:local" or "local".
  static void SplitName(std::string_view all, SplitNameEntry& entry) {
    entry.text.assign(all);
    entry.qualified.clear();
    entry.uri.clear();
    entry.local.clear();
    std::size_t first = all.find(kNamespaceSeparator);
    if (first == std::string_view::npos) {
      internal::AppendUTF8AsUTF16(all.data(), all.size(), entry.local);
      entry.qualified = entry.local;
      return;
    }
    internal::AppendUTF8AsUTF16(all.data(), first, entry.uri);
    std::string_view rest = all.substr(first + 1);
    std::size_t second = rest.find(kNamespaceSeparator);
    std::string_view localText = rest.substr(0, second);
    internal::AppendUTF8AsUTF16(localText.data(), localText.size(), entry.local);
    if (second != std::string_view::npos) {
      std::string_view prefix = rest.substr(second + 1);
      internal::AppendUTF8AsUTF16(prefix.data(), prefix.size(), entry.qualified);
      entry.qualified.push_back(u':');
    }
    entry.qualified += entry.local;
  }

  // Documents use few distinct names, so each is converted once per parse and
  // kept; a document with many names converts the rest as they come.
  const SplitNameEntry& Name(const char* name) {
    std::string_view text(name);
    for (const SplitNameEntry& entry : names_) {
      if (entry.text.size() == text.size() && std::string_view(entry.text) == text) return entry;
    }
    if (names_.size() < kNameCacheSize) {
      names_.emplace_back();
      SplitName(text, names_.back());
      return names_.back();
    }
    SplitName(text, scratch_);
    return scratch_;
  }

  static void XMLCALL OnStartElement(void* userData, const XML_Char* name,
                                     const XML_Char** attributes) {
    Session& s = Of(userData);
    s.Guard([&] {
      const SplitNameEntry& element = s.Name(name);
      std::size_t count = 0;
      while (attributes[2 * count]) ++count;
      s.attributes_.resize(count);
      for (std::size_t i = 0; i < count; ++i) {
        Attribute& a = s.attributes_[i];
        const SplitNameEntry& attribute = s.Name(attributes[2 * i]);
        a.qualifiedName = attribute.qualified;
        a.namespaceURI = attribute.uri;
        a.localName = attribute.local;
        Assign(attributes[2 * i + 1], a.value);
      }
      // An element name outside the cache shares the scratch entry with
      // attribute names, so it is split again.
      const SplitNameEntry& e = count ? s.Name(name) : element;
      s.handler_.StartElementWithNamespace(e.qualified, e.uri, e.local, s.attributes_);
    });
  }

  static void XMLCALL OnEndElement(void* userData, const XML_Char* name) {
    Session& s = Of(userData);
    s.Guard([&] {
      const SplitNameEntry& e = s.Name(name);
      s.handler_.EndElementWithNamespace(e.qualified, e.uri, e.local);
    });
  }

  static void XMLCALL OnCharacters(void* userData, const XML_Char* text, int length) {
    Session& s = Of(userData);
    s.Guard([&] {
      s.text_.clear();
      internal::AppendUTF8AsUTF16(text, static_cast<std::size_t>(length), s.text_);
      s.handler_.Characters(s.text_);
    });
  }

  // Installs the text handler only while the UTF-8 route wants text, so
  // that expat doesn't even report the rest (the format's line breaks).
  void WantText(bool wanted) {
    if (wanted == textWanted_) return;
    textWanted_ = wanted;
    XML_SetCharacterDataHandler(parser_.get(), wanted ? &Session::OnCharactersUTF8 : nullptr);
  }

  // The qualified name of a name as expat reports it: the name itself when it
  // has no namespace, else "prefix:local" (built in `scratch`) or "local".
  static std::string_view Qualified(const char* name, std::string& scratch) {
    // Names are short: one pass finds the end or the first separator.
    const char* p = name;
    while (static_cast<unsigned char>(*p) > static_cast<unsigned char>(kNamespaceSeparator)) ++p;
    if (*p == '\0') return std::string_view(name, static_cast<std::size_t>(p - name));
    std::string_view rest(p + 1);
    std::size_t second = rest.find(kNamespaceSeparator);
    std::string_view local = rest.substr(0, second);
    if (second == std::string_view::npos) return local;
    scratch.assign(rest.substr(second + 1));
    scratch.push_back(':');
    scratch.append(local);
    return scratch;
  }

  static void XMLCALL OnStartElementUTF8(void* userData, const XML_Char* name,
                                         const XML_Char** attributes) {
    Session& s = Of(userData);
    s.Guard([&] {
      if (!attributes[0]) {  // most elements have no attributes
        s.WantText(s.route_->StartElement(Qualified(name, s.elementName_), {}));
        return;
      }
      std::size_t count = 0;
      while (attributes[2 * count]) ++count;
      if (s.attributesUTF8_.size() < count) {
        s.attributesUTF8_.resize(count);
        s.attributeNames_.resize(count);
      }
      for (std::size_t i = 0; i < count; ++i) {
        s.attributesUTF8_[i] = {Qualified(attributes[2 * i], s.attributeNames_[i]),
                                std::string_view(attributes[2 * i + 1])};
      }
      s.WantText(s.route_->StartElement(
          Qualified(name, s.elementName_),
          std::span<const internal::UTF8Attribute>(s.attributesUTF8_.data(), count)));
    });
  }

  static void XMLCALL OnEndElementUTF8(void* userData, const XML_Char* name) {
    Session& s = Of(userData);
    s.Guard([&] { s.WantText(s.route_->EndElement(Qualified(name, s.elementName_))); });
  }

  static void XMLCALL OnCharactersUTF8(void* userData, const XML_Char* text, int length) {
    Session& s = Of(userData);
    s.Guard([&] { s.route_->Characters(text, static_cast<std::size_t>(length)); });
  }

  static void XMLCALL OnStartCDATA(void* userData) {
    Session& s = Of(userData);
    s.Guard([&] { s.handler_.StartCDATA(); });
  }

  static void XMLCALL OnEndCDATA(void* userData) {
    Session& s = Of(userData);
    s.Guard([&] { s.handler_.EndCDATA(); });
  }

  static void XMLCALL OnComment(void* userData, const XML_Char* text) {
    Session& s = Of(userData);
    s.Guard([&] {
      Assign(text, s.text_);
      s.handler_.Comment(s.text_);
    });
  }

  static void XMLCALL OnStartNamespace(void* userData, const XML_Char* prefix,
                                       const XML_Char* uri) {
    Session& s = Of(userData);
    s.Guard([&] {
      Assign(prefix, s.local_);
      Assign(uri, s.uri_);
      s.handler_.StartPrefixMapping(s.local_, s.uri_);
    });
  }

  static void XMLCALL OnEndNamespace(void* userData, const XML_Char* prefix) {
    Session& s = Of(userData);
    s.Guard([&] {
      Assign(prefix, s.local_);
      s.handler_.EndPrefixMapping(s.local_);
    });
  }

  AbstractParseHandler& handler_;
  internal::UTF8Handler* route_;  // null: the public UTF-16 route
  ParserPtr parser_;
  std::exception_ptr error_;
  bool started_ = false;
  static constexpr std::size_t kNameCacheSize = 32;
  std::vector<SplitNameEntry> names_;
  SplitNameEntry scratch_;
  UTF16String uri_, local_, text_;
  std::vector<Attribute> attributes_;
  // The UTF-8 route: whether its text handler is installed, and buffers
  // reused from element to element for the qualified names that had to be
  // built and for the attribute views of the current element.
  bool textWanted_ = false;
  std::string elementName_;
  std::vector<std::string> attributeNames_;
  std::vector<internal::UTF8Attribute> attributesUTF8_;
};

class ExpatDocParser final : public AbstractDocParser {
 public:
  explicit ExpatDocParser(std::unique_ptr<AbstractParseHandler>& handler)
      : AbstractDocParser(handler) {}

  bool HasNamespaceSupport() const override { return true; }

  XMLParseStatus ParseDocument(const UTF16String& path) override {
    readFailure_ = {};
    platform::ReadOnlyFile file;
    if (!internal::OpenDocument(path, file, readFailure_)) return kXMLParseStatus_Failure;
    Session session(Handler());
    if (!session.Create()) return kXMLParseStatus_Failure;
    session.Start();
    // The whole file goes to expat in one piece, read straight into expat's
    // buffer: expat rescans a token that a piece leaves unfinished from its
    // start with every further piece, so fixed pieces make one long token
    // (a 200 MB attribute) quadratic. A file that grows while it is read
    // comes in pieces that double, which keeps the rescans linear.
    std::uint64_t total = 0;
    std::size_t piece = PieceSize(file.Size() + 1);
    bool ok = true;
    for (;;) {
      auto* buffer = static_cast<unsigned char*>(session.GetBuffer(piece));
      if (!buffer) {
        ok = false;
        break;
      }
      std::size_t got = 0;
      if (const int error = file.Read(buffer, piece, got)) {
        readFailure_ = {error, file.FailureText()};
        ok = false;
        break;
      }
      const bool last = got < piece;
      if (!session.FeedBuffer(got, last)) {
        ok = false;
        break;
      }
      if (last) break;
      total += got;
      piece = PieceSize(total);
    }
    return session.Finish(ok);
  }

  const internal::FileReadFailure& ReadFailure() const { return readFailure_; }

  XMLParseStatus ParseBuffer(const UTF8String& text) override {
    Session session(Handler());
    if (!session.Create()) return kXMLParseStatus_Failure;
    bool ok = session.Feed(reinterpret_cast<const char*>(text.data()), text.size(), true);
    return session.Finish(ok);
  }

 private:
  // A piece of `wanted` bytes within what expat takes in one call.
  static std::size_t PieceSize(std::uint64_t wanted) {
    if (wanted < kMinPiece) return kMinPiece;
    if (wanted > kMaxPiece) return kMaxPiece;
    return static_cast<std::size_t>(wanted);
  }

  internal::FileReadFailure readFailure_;
};

}  // namespace

namespace internal {

bool OpenDocument(const UTF16String& path, platform::ReadOnlyFile& file,
                  FileReadFailure& outFailure) {
  // The kernel's bytes for the path, as every file of the library names
  // them: a name that isn't UTF-8 comes back to the bytes it was listed from.
  std::string narrow;
  if (!filesupport::internal::ToNative(path, narrow)) {
    outFailure = {platform::kErrorInvalidName, "Invalid file name"};
    return false;
  }
  if (const int error = file.Open(narrow)) {
    outFailure = {error, file.FailureText()};
    return false;
  }
  return true;
}

bool LastReadFailure(const AbstractDocParser& parser, FileReadFailure& out) {
  const auto* ours = dynamic_cast<const ExpatDocParser*>(&parser);
  if (!ours) return false;
  out = ours->ReadFailure();
  return true;
}

FileReadFailure ProbeFile(const UTF16String& path) {
  platform::ReadOnlyFile file;
  FileReadFailure failure;
  OpenDocument(path, file, failure);
  return failure;
}

}  // namespace internal

std::unique_ptr<AbstractDocParser> ExpatParserFactory::GetParser(
    std::unique_ptr<AbstractParseHandler>& handler) {
  if (!handler) return nullptr;
  return std::make_unique<ExpatDocParser>(handler);
}

}  // namespace tvxcore::xml
