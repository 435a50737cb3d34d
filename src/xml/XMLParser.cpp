#include "tvxcore/xml/XMLParser.h"

#include <string_view>

#include "xml/internal/Escape.h"

namespace tvxcore::xml {

AbstractParseHandler::~AbstractParseHandler() = default;
void AbstractParseHandler::StartDocument() {}
void AbstractParseHandler::StartElement(const UTF16String&,
                                        const std::map<UTF16String, UTF16String>&) {}
void AbstractParseHandler::StartElementWithNamespace(const UTF16String& qualifiedName,
                                                     const UTF16String&, const UTF16String&,
                                                     const std::vector<Attribute>& attributes) {
  std::map<UTF16String, UTF16String> map;
  for (const Attribute& attribute : attributes) {
    map.emplace(attribute.qualifiedName, attribute.value);
  }
  StartElement(qualifiedName, map);
}
void AbstractParseHandler::EndElement(const UTF16String&) {}
void AbstractParseHandler::EndElementWithNamespace(const UTF16String& qualifiedName,
                                                   const UTF16String&, const UTF16String&) {
  EndElement(qualifiedName);
}
void AbstractParseHandler::StartCDATA() {}
void AbstractParseHandler::EndCDATA() {}
void AbstractParseHandler::Characters(const UTF16String&) {}
void AbstractParseHandler::Comment(const UTF16String&) {}
void AbstractParseHandler::EndDocument() {}
void AbstractParseHandler::StartPrefixMapping(const UTF16String&, const UTF16String&) {}
void AbstractParseHandler::EndPrefixMapping(const UTF16String&) {}

AbstractDocParser::AbstractDocParser(std::unique_ptr<AbstractParseHandler>& handler)
    : handler_(std::move(handler)) {}
AbstractDocParser::~AbstractDocParser() = default;
bool AbstractDocParser::HasNamespaceSupport() const { return false; }

DocParserFactory::~DocParserFactory() = default;

namespace {
// The installed factory. Set at start-up, before other threads parse.
std::unique_ptr<DocParserFactory>& InstalledFactory() {
  static std::unique_ptr<DocParserFactory> factory;
  return factory;
}
}  // namespace

void SetParserFactory(std::unique_ptr<DocParserFactory>& factory) {
  auto& installed = InstalledFactory();
  if (factory.get() == installed.get()) {
    // The installed factory handed in again stays installed, and owned once.
    (void)factory.release();
    return;
  }
  installed = std::move(factory);
}

void ResetParserFactory() { InstalledFactory().reset(); }

bool Initialized() { return InstalledFactory() != nullptr; }

std::unique_ptr<AbstractDocParser> GetParser(std::unique_ptr<AbstractParseHandler>& handler) {
  auto& installed = InstalledFactory();
  if (!installed) return nullptr;
  return installed->GetParser(handler);
}

namespace utils {
namespace {

template <typename String>
void Encode(const String& in, String& out) {
  String result;
  result.reserve(in.size());
  internal::AppendEncoded(in.data(), in.size(), result);
  out.swap(result);
}

// One reference name is collected after "&": at most four units, checked at a
// ";" or at the fifth unit. Only the five reserved names followed by ";" are
// replaced; everything else is copied as it stood.
template <typename String>
void Decode(const String& in, String& out) {
  using Char = typename String::value_type;
  String result;
  result.reserve(in.size());
  bool collecting = false;
  Char name[4];
  std::size_t nameSize = 0;
  auto flushName = [&] {
    result.push_back(Char('&'));
    result.append(name, nameSize);
    nameSize = 0;
  };
  auto is = [&](const char* literal) {
    std::size_t i = 0;
    for (; literal[i]; ++i) {
      if (i >= nameSize || name[i] != Char(literal[i])) return false;
    }
    return i == nameSize;
  };
  for (Char c : in) {
    if (!collecting) {
      if (c == Char('&')) {
        collecting = true;
        nameSize = 0;
      } else {
        result.push_back(c);
      }
      continue;
    }
    if (c == Char(';')) {
      if (is("quot")) {
        result.push_back(Char('"'));
      } else if (is("apos")) {
        result.push_back(Char('\''));
      } else if (is("amp")) {
        result.push_back(Char('&'));
      } else if (is("lt")) {
        result.push_back(Char('<'));
      } else if (is("gt")) {
        result.push_back(Char('>'));
      } else {
        flushName();
        result.push_back(c);
      }
      nameSize = 0;
      collecting = false;
    } else if (c == Char('&')) {
      flushName();  // a new reference starts here
    } else if (nameSize < 4) {
      name[nameSize++] = c;
    } else {
      flushName();
      result.push_back(c);
      collecting = false;
    }
  }
  if (collecting) flushName();
  out.swap(result);
}

}  // namespace

void EncodeReservedCharacters(const UTF8String& in, UTF8String& out) { Encode(in, out); }
void EncodeReservedCharacters(const UTF16String& in, UTF16String& out) { Encode(in, out); }
void DecodeReservedCharacters(const UTF8String& in, UTF8String& out) { Decode(in, out); }
void DecodeReservedCharacters(const UTF16String& in, UTF16String& out) { Decode(in, out); }

}  // namespace utils
}  // namespace tvxcore::xml
