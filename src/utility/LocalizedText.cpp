#include "utility/internal/LocalizedText.h"

#include <atomic>
#include <cstring>

#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility::internal {
namespace {
std::atomic<TextTranslator> g_translator{nullptr};
}  // namespace

void SetTextTranslator(TextTranslator translator) noexcept {
  g_translator.store(translator, std::memory_order_release);
}

UTF16String LocalizedText(const char* key) {
  if (key == nullptr) return UTF16String();
  if (TextTranslator translate = g_translator.load(std::memory_order_acquire))
    return translate(key);
  const char* equals = std::strchr(key, '=');
  const char* text = equals != nullptr ? equals + 1 : key;
  return UTF8to16(UTF8String(AsciiToUTF8Impl(text)));
}

}  // namespace tvxcore::utility::internal
