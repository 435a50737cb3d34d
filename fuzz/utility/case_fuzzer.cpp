// Arbitrary UTF-16 units through every case function: nothing crashes, the
// in-place forms agree with the copying ones, surrogates survive, and lower,
// upper and fold map a text as the concatenation of its units' forms.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tvxcore/utility/CaseMapping.h"

namespace {

using tvxcore::UTF16String;
namespace u = tvxcore::utility;

void Check(bool inCondition) {
  if (!inCondition) std::abort();
}

std::size_t CountSurrogates(const UTF16String& inText) {
  std::size_t n = 0;
  for (char16_t c : inText) n += (c & 0xF800) == 0xD800;
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  UTF16String text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);

  UTF16String (*const copying[])(const UTF16String&) = {u::LowerCase, u::UpperCase, u::FoldCase,
                                                        u::TitleCase};
  void (*const inPlace[])(UTF16String&) = {u::ToLowerCase, u::ToUpperCase, u::ToFoldCase,
                                           u::ToTitleCase};
  for (int f = 0; f < 4; ++f) {
    const UTF16String result = copying[f](text);
    UTF16String changed = text;
    inPlace[f](changed);
    Check(changed == result);
    Check(result.size() >= text.size());
    if (f < 3) {
      Check(CountSurrogates(result) == CountSurrogates(text));
      UTF16String pieces;
      for (char16_t c : text) pieces += copying[f](UTF16String(1, c));
      Check(pieces == result);
    } else {
      Check(result.size() <= text.size() * 3);
    }
  }
  return 0;
}
