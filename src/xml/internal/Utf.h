// Fast UTF-8/UTF-16 transcoding for the XML layer's hot paths, appending to
// reused buffers. The UTF-8 side is text that expat has already validated;
// invalid input is not expected but ends the conversion safely at the first
// bad sequence, keeping the prefix. UTF-16 to UTF-8 writes a lone surrogate as
// its own three bytes, as the library's converter does.
#pragma once

#include <cstddef>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::xml::internal {

inline void AppendUTF8AsUTF16(const char* text, std::size_t size, UTF16String& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  const auto* end = p + size;
  std::size_t base = out.size();
  out.resize(base + size);  // never more units than bytes
  UTF16Char* dst = out.data() + base;
  while (p < end) {
    unsigned c = *p;
    if (c < 0x80) {
      *dst++ = static_cast<UTF16Char>(c);
      ++p;
      continue;
    }
    if (c >= 0xC2 && c < 0xE0 && end - p >= 2 && (p[1] & 0xC0) == 0x80) {
      *dst++ = static_cast<UTF16Char>(((c & 0x1F) << 6) | (p[1] & 0x3F));
      p += 2;
    } else if (c >= 0xE0 && c < 0xF0 && end - p >= 3 && (p[1] & 0xC0) == 0x80 &&
               (p[2] & 0xC0) == 0x80) {
      unsigned cp = ((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
      if (cp < 0x800) break;
      *dst++ = static_cast<UTF16Char>(cp);
      p += 3;
    } else if (c >= 0xF0 && c < 0xF5 && end - p >= 4 && (p[1] & 0xC0) == 0x80 &&
               (p[2] & 0xC0) == 0x80 && (p[3] & 0xC0) == 0x80) {
      unsigned cp =
          ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
      if (cp < 0x10000 || cp > 0x10FFFF) break;
      cp -= 0x10000;
      *dst++ = static_cast<UTF16Char>(0xD800 + (cp >> 10));
      *dst++ = static_cast<UTF16Char>(0xDC00 + (cp & 0x3FF));
      p += 4;
    } else {
      break;
    }
  }
  out.resize(static_cast<std::size_t>(dst - out.data()));
}

inline void AppendUTF16AsUTF8(const UTF16Char* text, std::size_t size, UTF8String& out) {
  std::size_t base = out.size();
  out.resize(base + size * 3);  // at most three bytes per unit
  UTF8Char* dst = out.data() + base;
  for (std::size_t i = 0; i < size; ++i) {
    unsigned c = text[i];
    if (c < 0x80) {
      *dst++ = static_cast<UTF8Char>(c);
    } else if (c < 0x800) {
      *dst++ = static_cast<UTF8Char>(0xC0 | (c >> 6));
      *dst++ = static_cast<UTF8Char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c < 0xDC00 && i + 1 < size && text[i + 1] >= 0xDC00 &&
               text[i + 1] < 0xE000) {
      unsigned cp = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00u);
      ++i;
      *dst++ = static_cast<UTF8Char>(0xF0 | (cp >> 18));
      *dst++ = static_cast<UTF8Char>(0x80 | ((cp >> 12) & 0x3F));
      *dst++ = static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F));
      *dst++ = static_cast<UTF8Char>(0x80 | (cp & 0x3F));
    } else {
      *dst++ = static_cast<UTF8Char>(0xE0 | (c >> 12));
      *dst++ = static_cast<UTF8Char>(0x80 | ((c >> 6) & 0x3F));
      *dst++ = static_cast<UTF8Char>(0x80 | (c & 0x3F));
    }
  }
  out.resize(static_cast<std::size_t>(dst - out.data()));
}

}  // namespace tvxcore::xml::internal
