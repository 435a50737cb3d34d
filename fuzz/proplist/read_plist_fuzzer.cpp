// Arbitrary bytes through the in-memory property list reader. Whatever it
// accepts must write out and read back without a reported failure and with the
// same keys; nothing may crash, leak or hang. The library's reader (UTF-8
// events) and a subclass of it (the public UTF-16 events) must agree on every
// input: the same success or failure, the same list.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>

#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "tvxcore/xml/ExpatParser.h"

#include "PlistFuzzSupport.h"

using namespace tvxcore;

namespace {

using plist_fuzz::Reported;
using plist_fuzz::Setup;

class Subclass : public proplist::PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
};

// Parses through a handler of type H; true when the parse succeeded without a
// report. `text` receives what the list then writes.
template <typename H>
bool ReadWith(const UTF8String& bytes, UTF8String& text) {
  proplist::PropList list;
  bool ok;
  try {
    std::unique_ptr<xml::AbstractParseHandler> handler = std::make_unique<H>(&list);
    std::unique_ptr<xml::AbstractDocParser> parser = xml::GetParser(handler);
    ok = parser->ParseBuffer(bytes) == xml::kXMLParseStatus_Success;
  } catch (const Reported&) {
    ok = false;
  }
  proplist::utils::WritePropList(text, list);
  return ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static bool ready = Setup();
  (void)ready;
  const UTF8String bytes(data, data + size);
  UTF8String libraryText, subclassText;
  bool libraryOk = ReadWith<proplist::PropListXMLHandler>(bytes, libraryText);
  bool subclassOk = ReadWith<Subclass>(bytes, subclassText);
  if (libraryOk != subclassOk || libraryText != subclassText) std::abort();

  proplist::PropList list;
  try {
    proplist::utils::ReadPropList(bytes, list);
  } catch (const Reported&) {
    return 0;
  }
  UTF8String text;
  proplist::utils::WritePropList(text, list);
  proplist::PropList again;
  try {
    proplist::utils::ReadPropList(text, again);
  } catch (const Reported&) {
    std::abort();  // the library wrote text it cannot read
  }
  std::list<UTF8String> first, second;
  list.GetPropertyNames(first);
  again.GetPropertyNames(second);
  if (first != second || list.GetVersion() != again.GetVersion()) std::abort();
  return 0;
}
