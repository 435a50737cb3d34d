// The library's internal UTF-8 route through the XML layer. The public handler
// interface takes UTF-16 text; a handler of the library that reads UTF-8 can
// take element and text events straight from the expat parser instead, as
// pointers into the parser's own (already validated, entity-decoded) UTF-8,
// without a UTF-16 round trip.
//
// A handler offers the route only when nothing a host wrote could notice the
// difference: its dynamic type must be exactly the library's own class, so
// that a host's subclass, which may override the public events, always gets
// them. The events of the route carry the same content as the public ones:
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

// The UTF-8 route of `handler`, or null when it takes only the public UTF-16
// events. Defined beside the library's handlers that have such a route.
UTF8Handler* UTF8RouteOf(AbstractParseHandler& handler);

}  // namespace tvxcore::xml::internal
