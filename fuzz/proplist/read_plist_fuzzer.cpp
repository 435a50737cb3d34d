// Arbitrary bytes through the in-memory property list reader. Whatever it
// accepts must write out and read back without a reported failure and with the
// same keys; nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>

#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;

namespace {

struct Reported {};

class ThrowingManager : public config::ErrorManager {
 public:
  void ReportError(config::ErrorLevel, const char*, std::uint32_t, std::int32_t, bool,
                   const config::ReplacementValue&, const config::ReplacementValue&,
                   const config::ReplacementValue&, const config::ReplacementValue&) override {
    throw Reported{};
  }
};

bool Setup() {
  static ThrowingManager manager;
  config::ErrorManager::Set(&manager);
  std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
  xml::SetParserFactory(factory);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static bool ready = Setup();
  (void)ready;
  proplist::PropList list;
  try {
    proplist::utils::ReadPropList(UTF8String(data, data + size), list);
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
