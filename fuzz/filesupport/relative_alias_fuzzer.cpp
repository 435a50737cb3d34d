// Arbitrary bytes as a stored relative alias record (JSON or a property
// list). Each input either gives a record or one of the library's errors (a
// std::logic_error, as no error manager is installed), in bounded time and
// stack. A record that reads writes JSON that reads back as the same record,
// and resolving it against a base that isn't there never crashes or hangs,
// whatever its counts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/RelativeAlias.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;
using tvxcore::utility::FileUtils::RelativeAlias;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool kFactory = [] {
    std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
    xml::SetParserFactory(factory);
    return true;
  }();
  (void)kFactory;
  const UTF8String text(data, data + size);
  try {
    const RelativeAlias alias(text);
    const UTF16String& path = alias.GetFullPath();
    const bool trailing = !path.empty() && (path.back() == u'/' || path.back() == u'\\');
    if (!trailing && !(RelativeAlias(alias.FlattenTo_UTF8_JSON()) == alias)) std::abort();
    alias.GetPlatformFullPath(nullptr, nullptr, RelativeAlias::kOtherPlatformForm);
    const UTF16String base = u"/nonexistent-tvx-fuzz/doc";
    utility::Flags<unsigned char> result;
    try {
      alias.ResolveAlias(&base, false, false, false, result);
    } catch (const std::logic_error&) {
    }
  } catch (const std::logic_error&) {
  }
  return 0;
}
