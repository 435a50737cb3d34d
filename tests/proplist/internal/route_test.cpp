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

  // Fed directly, the route fills the list as the document would.
  xml::internal::UTF8Handler& route = *xml::internal::UTF8RouteOf(own);
  const xml::internal::UTF8Attribute attributes[] = {{"type", "signed"}, {"size", "32"}};
  EXPECT_FALSE(route.StartElement("prop.list", {}));
  EXPECT_TRUE(route.StartElement("key", {}));
  route.Characters("n", 1);
  EXPECT_FALSE(route.EndElement("key"));
  EXPECT_TRUE(route.StartElement("int", attributes));
  route.Characters("-4", 2);
  route.Characters("2", 1);
  EXPECT_FALSE(route.EndElement("int"));
  EXPECT_FALSE(route.EndElement("prop.list"));
  std::int32_t value = 0;
  EXPECT_TRUE(list.GetValue(UTF8String(reinterpret_cast<const UTF8Char*>("n"), 1), value));
  EXPECT_EQ(value, -42);
}

}  // namespace
