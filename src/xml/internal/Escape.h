// Appending forms of the reserved-character encoding, for writers that build
// one long text.
#pragma once

#include <cstddef>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::xml::internal {

template <typename Char, typename String>
void AppendEncoded(const Char* text, std::size_t size, String& out) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const char* entity;
    std::size_t length;
    switch (text[i]) {
      case '"':
        entity = "&quot;";
        length = 6;
        break;
      case '&':
        entity = "&amp;";
        length = 5;
        break;
      case '\'':
        entity = "&apos;";
        length = 6;
        break;
      case '<':
        entity = "&lt;";
        length = 4;
        break;
      case '>':
        entity = "&gt;";
        length = 4;
        break;
      default:
        continue;
    }
    out.append(text + start, text + i);
    out.append(entity, entity + length);
    start = i + 1;
  }
  out.append(text + start, text + size);
}

}  // namespace tvxcore::xml::internal
