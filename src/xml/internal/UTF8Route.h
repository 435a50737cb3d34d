// The library's internal UTF-8 route through the XML layer. The public handler
// interface takes UTF-16 text; a handler of the library that reads UTF-8 can
// take element and text events straight from the expat parser instead, as
// pointers into the parser's own (already validated, entity-decoded) UTF-8,
// without a UTF-16 round trip.
//
// A handler offers the route only when nothing a host wrote could notice the
// difference: the library offers it from its own final classes, never from a
// public class that a host may derive from and whose public events it may
// override. The events of the route carry the same content as the public ones:
// qualified names, attributes in document order, text pieces as they come.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "tvxcore/xml/XMLParser.h"

namespace tvxcore::xml::internal {

// One attribute: its qualified name ("prefix:local" or "local") and its value.
struct UTF8Attribute {
  std::string_view qualifiedName;
  std::string_view value;
};

// Receives the element and text events of one document in UTF-8. The views
// are valid only during the call. The other events (document, comments, CDATA,
// prefix mappings) still reach the AbstractParseHandler itself.
//
// The element events answer whether the handler wants the text that follows,
// up to the next element event; text it doesn't want is not delivered at all.
// Before the first element no text is wanted.
class UTF8Handler {
 public:
  virtual bool StartElement(std::string_view qualifiedName,
                            std::span<const UTF8Attribute> attributes) = 0;
  virtual bool EndElement(std::string_view qualifiedName) = 0;
  virtual void Characters(const char* text, std::size_t size) = 0;

 protected:
  ~UTF8Handler() = default;
};

// A handler of the library that offers the UTF-8 route. The expat parser finds
// it with a dynamic_cast on the handler it is given, once per document, so the
// XML layer knows nothing of the handlers above it.
class UTF8RoutedHandler {
 public:
  // The handler's UTF-8 events; null when it takes the public UTF-16 ones.
  virtual UTF8Handler* UTF8Route() = 0;

 protected:
  ~UTF8RoutedHandler() = default;
};

// The UTF-8 route of `handler`, or null when it takes only the public UTF-16
// events.
inline UTF8Handler* UTF8RouteOf(AbstractParseHandler& handler) {
  auto* routed = dynamic_cast<UTF8RoutedHandler*>(&handler);
  return routed != nullptr ? routed->UTF8Route() : nullptr;
}

}  // namespace tvxcore::xml::internal
