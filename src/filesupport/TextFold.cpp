#include "filesupport/internal/TextFold.h"

#include "tvxcore/utility/CaseMapping.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::filesupport::internal {

UTF16String ComposeNfc(const UTF16String& text) {
  return utility::NormalizedString(text, utility::kUnicodeNormalizationComposed);
}

UTF16String FoldCase(const UTF16String& text) { return utility::FoldCase(text); }

bool FoldForFileNameCompare(const UTF16String& text, UTF16String& out) {
  out = utility::FoldCase(text);
  for (auto& unit : out) {
    if (unit >= 0xFF01 && unit <= 0xFF5E)
      unit = static_cast<UTF16Char>(unit - 0xFF01 + 0x21);  // full-width ASCII
    else if (unit == 0x3000)
      unit = u' ';  // ideographic space
    if (unit >= 0x30A1 && unit <= 0x30F6) unit = static_cast<UTF16Char>(unit - 0x60);  // katakana
  }
  return true;
}

}  // namespace tvxcore::filesupport::internal
