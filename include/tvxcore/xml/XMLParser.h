// tvxcore/xml/XMLParser.h: the library's small SAX-style XML abstraction.
//
// A handler receives events, a document parser drives one handler over one
// document, and a factory installed by the host makes parsers. Until a host
// installs a factory, GetParser() gives null. Also: escaping of the five
// reserved characters for text written outside the parser.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::xml {

// One attribute of an element, as the parser reports it.
struct Attribute {
  UTF16String qualifiedName;
  UTF16String namespaceURI;
  UTF16String localName;
  UTF16String value;
};

// The result of a parse: 0 success, 10 failure of any kind.
enum XMLParseStatus : int {
  kXMLParseStatus_Success = 0,
  kXMLParseStatus_Failure = 10,
};

// Receives the events of one document. Every operation does nothing by default,
// except that the namespace forms forward to the plain forms with the qualified
// name. Text arrives decoded (entities expanded) and may come in several pieces.
// An exception thrown from an event ends the parse and reaches the caller of
// ParseDocument/ParseBuffer.
class TVXCORE_EXPORT AbstractParseHandler {
 public:
  virtual ~AbstractParseHandler();
  virtual void StartDocument();
  virtual void StartElement(const UTF16String& name,
                            const std::map<UTF16String, UTF16String>& attributes);
  // Builds the map from each attribute's qualified name to its value and calls
  // StartElement with the qualified name.
  virtual void StartElementWithNamespace(const UTF16String& qualifiedName,
                                         const UTF16String& namespaceURI,
                                         const UTF16String& localName,
                                         const std::vector<Attribute>& attributes);
  virtual void EndElement(const UTF16String& name);
  // Calls EndElement with the qualified name.
  virtual void EndElementWithNamespace(const UTF16String& qualifiedName,
                                       const UTF16String& namespaceURI,
                                       const UTF16String& localName);
  virtual void StartCDATA();
  virtual void EndCDATA();
  virtual void Characters(const UTF16String& text);
  virtual void Comment(const UTF16String& text);
  virtual void EndDocument();
  virtual void StartPrefixMapping(const UTF16String& prefix, const UTF16String& uri);
  virtual void EndPrefixMapping(const UTF16String& prefix);
};

// Drives its handler over one document. Owns the handler. A parser is used by
// one thread at a time.
class TVXCORE_EXPORT AbstractDocParser {
 public:
  virtual ~AbstractDocParser();
  virtual bool HasNamespaceSupport() const;
  // Parses the file at `path`.
  virtual XMLParseStatus ParseDocument(const UTF16String& path) = 0;
  // Parses the bytes of `text`; the encoding is detected from the bytes.
  virtual XMLParseStatus ParseBuffer(const UTF8String& text) = 0;

  AbstractDocParser(const AbstractDocParser&) = delete;
  AbstractDocParser& operator=(const AbstractDocParser&) = delete;

 protected:
  // Takes over the handler; `handler` is null afterwards.
  explicit AbstractDocParser(std::unique_ptr<AbstractParseHandler>& handler);
  AbstractParseHandler& Handler() const { return *handler_; }

 private:
  std::unique_ptr<AbstractParseHandler> handler_;
};

// Makes parsers. GetParser takes over the handler.
class TVXCORE_EXPORT DocParserFactory {
 public:
  virtual ~DocParserFactory();
  virtual std::unique_ptr<AbstractDocParser> GetParser(
      std::unique_ptr<AbstractParseHandler>& handler) = 0;
};

// Installs the process's factory, taking it over; the one installed before, if
// another, is deleted. Not locked: install it at start-up.
TVXCORE_EXPORT void SetParserFactory(std::unique_ptr<DocParserFactory>& factory);
// Deletes the installed factory.
TVXCORE_EXPORT void ResetParserFactory();
// True while a factory is installed.
TVXCORE_EXPORT bool Initialized();
// A parser from the installed factory, which takes the handler. With no
// factory: null, and the handler stays with the caller.
TVXCORE_EXPORT std::unique_ptr<AbstractDocParser> GetParser(
    std::unique_ptr<AbstractParseHandler>& handler);

namespace utils {

// Replaces " & ' < > by &quot; &amp; &apos; &lt; &gt;; `out` is replaced.
TVXCORE_EXPORT void EncodeReservedCharacters(const UTF8String& in, UTF8String& out);
TVXCORE_EXPORT void EncodeReservedCharacters(const UTF16String& in, UTF16String& out);
// Undoes exactly the five references above, one level only; anything else,
// such as an unknown name, is copied as it stands. `out` is replaced.
TVXCORE_EXPORT void DecodeReservedCharacters(const UTF8String& in, UTF8String& out);
TVXCORE_EXPORT void DecodeReservedCharacters(const UTF16String& in, UTF16String& out);

}  // namespace utils
}  // namespace tvxcore::xml
