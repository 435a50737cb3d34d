// The property list reader as the library itself uses it: a
// PropListXMLHandler that also takes the XML layer's UTF-8 events.
#pragma once

#include "tvxcore/proplist/PropListXMLHandler.h"
#include "xml/internal/UTF8Route.h"

namespace tvxcore::proplist::internal {

// Final, so no host code can stand between the parser and the reader: the
// public UTF-16 events, which a host's subclass of PropListXMLHandler may
// override, are skipped only here. ReadPropList and LoadPropList parse with it.
class RoutedPropListXMLHandler final : public PropListXMLHandler,
                                       public xml::internal::UTF8RoutedHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
  xml::internal::UTF8Handler* UTF8Route() override;
};

}  // namespace tvxcore::proplist::internal
