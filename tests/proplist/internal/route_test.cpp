#include <gtest/gtest.h>

#include "proplist/internal/RoutedReader.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "xml/internal/UTF8Route.h"

using namespace tvxcore;

namespace {

class Subclass : public proplist::PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
};

// Only the library's own reader skips the UTF-16 events; the public handler
// and a host's subclass, which may override them, always receive them.
TEST(PropListReaderRoute, OnlyTheLibrarysOwnHandlerOffersUTF8Events) {
  proplist::PropList list;
  proplist::internal::RoutedPropListXMLHandler own(&list);
  proplist::PropListXMLHandler plain(&list);
  Subclass subclass(&list);
  xml::AbstractParseHandler other;
  EXPECT_NE(xml::internal::UTF8RouteOf(own), nullptr);
  EXPECT_EQ(xml::internal::UTF8RouteOf(plain), nullptr);
  EXPECT_EQ(xml::internal::UTF8RouteOf(subclass), nullptr);
  EXPECT_EQ(xml::internal::UTF8RouteOf(other), nullptr);
}

}  // namespace
