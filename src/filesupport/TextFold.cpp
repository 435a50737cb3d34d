#include "filesupport/internal/TextFold.h"

#include <unicode/normalizer2.h>
#include <unicode/ustring.h>

#include <climits>

namespace tvxcore::filesupport::internal {
namespace {

bool FoldCaseInto(const UTF16String& text, UTF16String& out) {
  if (text.empty()) {
    out.clear();
    return true;
  }
  if (text.size() > INT_MAX / 4) return false;
  const int32_t length = static_cast<int32_t>(text.size());
  out.resize(text.size() + 16);
  for (int attempt = 0; attempt < 2; ++attempt) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = u_strFoldCase(out.data(), static_cast<int32_t>(out.size()), text.data(), length,
                              U_FOLD_CASE_DEFAULT, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
      out.resize(static_cast<std::size_t>(n));
      continue;
    }
    if (U_FAILURE(status)) return false;
    out.resize(static_cast<std::size_t>(n));
    return true;
  }
  return false;
}

}  // namespace

UTF16String ComposeNfc(const UTF16String& text) {
  if (text.empty() || text.size() > INT_MAX / 4) return text;
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* nfc = unorm2_getNFCInstance(&status);
  if (U_FAILURE(status)) return text;
  const int32_t length = static_cast<int32_t>(text.size());
  UTF16String out(text.size() * 3 + 16, 0);
  int32_t n = unorm2_normalize(nfc, text.data(), length, out.data(),
                               static_cast<int32_t>(out.size()), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    out.resize(static_cast<std::size_t>(n));
    n = unorm2_normalize(nfc, text.data(), length, out.data(), n, &status);
  }
  if (U_FAILURE(status)) return text;
  out.resize(static_cast<std::size_t>(n));
  return out;
}

UTF16String FoldCase(const UTF16String& text) {
  UTF16String out;
  return FoldCaseInto(text, out) ? out : text;
}

bool FoldForFileNameCompare(const UTF16String& text, UTF16String& out) {
  if (!FoldCaseInto(text, out)) return false;
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
