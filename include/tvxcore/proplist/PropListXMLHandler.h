// tvxcore/proplist/PropListXMLHandler.h: the reader of the property list XML
// format, a handler for the parsers of tvxcore/xml/XMLParser.h.
//
// Most code reads lists through proplist::utils (PropListUtils.h) instead.
#pragma once

#include <map>
#include <memory>

#include "tvxcore/Export.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/xml/XMLParser.h"

namespace tvxcore::proplist {
namespace internal {
class PropListReader;
}

// Fills a list from the events of one document, as a state machine over
// elements. The reader is forgiving: unknown elements, an "int" without a
// usable size, text outside value elements and values without a key are
// dropped or stored silently (an unreadable number is stored as 0, a value
// without a key goes under the empty key). An array takes the type of its last
// element, and an empty array the type of its "array.type". A "prop.map"
// version above PropList::GetCurrentVersion() is reported on the error road;
// a lower one becomes the root list's version. Keys and string values are
// taken with the writer's escapes of units XML cannot carry undone
// (U+E01B and four hexadecimal digits; see PropNodes.h).
//
// The root list is not owned and must outlive the parse. One instance serves
// one document; it is given to xml::GetParser, which hands it to the parser.
class TVXCORE_EXPORT PropListXMLHandler : public xml::AbstractParseHandler {
 public:
  explicit PropListXMLHandler(PropList* root);
  ~PropListXMLHandler() override;

  // The handler overrides exactly these events; the namespace forms of the
  // base class forward to them, so a host's subclass that overrides any of
  // them is called for every element.
  void StartElement(const UTF16String& name,
                    const std::map<UTF16String, UTF16String>& attributes) override;
  void EndElement(const UTF16String& name) override;
  void Characters(const UTF16String& text) override;

 private:
  friend class internal::PropListReader;
  // The state machine; it also takes the parser layer's internal UTF-8 events
  // when this handler is used as it stands, not through a subclass.
  std::unique_ptr<internal::PropListReader> reader_;
};

}  // namespace tvxcore::proplist
