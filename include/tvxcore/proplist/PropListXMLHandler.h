// tvxcore/proplist/PropListXMLHandler.h: the reader of the property list XML
// format, a handler for the parsers of tvxcore/xml/XMLParser.h.
//
// Most code reads lists through proplist::utils (PropListUtils.h) instead.
#pragma once

#include <list>
#include <map>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/xml/XMLParser.h"

namespace tvxcore::proplist {

// Fills a list from the events of one document, as a state machine over
// elements. The reader is forgiving: unknown elements, an "int" without a
// usable size, text outside value elements and values without a key are
// dropped or stored silently (an unreadable number is stored as 0, a value
// without a key goes under the empty key). An array takes the type of its last
// element, and an empty array the type of its "array.type". A "prop.map"
// version above PropList::GetCurrentVersion() is reported on the error road;
// a lower one becomes the root list's version.
//
// The root list is not owned and must outlive the parse. One instance serves
// one document; it is given to xml::GetParser, which hands it to the parser.
class TVXCORE_EXPORT PropListXMLHandler : public xml::AbstractParseHandler {
 public:
  explicit PropListXMLHandler(PropList* root);
  ~PropListXMLHandler() override;

  void StartElement(const UTF16String& name,
                    const std::map<UTF16String, UTF16String>& attributes) override;
  // Same effect as StartElement, without building the attribute map.
  void StartElementWithNamespace(const UTF16String& qualifiedName, const UTF16String& namespaceURI,
                                 const UTF16String& localName,
                                 const std::vector<xml::Attribute>& attributes) override;
  void EndElement(const UTF16String& name) override;
  void Characters(const UTF16String& text) override;

 private:
  template <typename FindAttribute>
  void Start(const UTF16String& name, const FindAttribute& find);
  void StoreScalar();
  void StoreArray();
  const UTF8String& Narrow(const UTF16String& text);

  PropList* root_;
  UTF16String keyText_;
  UTF16String valueText_;
  std::list<PropList*> stack_;
  PropList* current_ = nullptr;
  int state_ = 0;  // 0 idle, 1 in a key, 2 in a value element
  int valueKind_ = 0;
  bool inArray_ = false;
  bool inArrayType_ = false;
  int arrayTypeKind_ = 0;
  bool arrayTypeKnown_ = false;
  // The items of the open array; the first arrayItemCount_ are in use, the
  // rest keep their storage for the next array.
  std::vector<UTF16String> arrayItems_;
  std::size_t arrayItemCount_ = 0;
  UTF8String narrow_;
};

}  // namespace tvxcore::proplist
