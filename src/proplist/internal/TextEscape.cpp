#include "proplist/internal/TextEscape.h"

#include <cstring>

namespace tvxcore::proplist::internal {
namespace {

constexpr unsigned kEscape = 0xE01B;
// kEscape in UTF-8.
constexpr UTF8Char kEscape0 = 0xEE, kEscape1 = 0x80, kEscape2 = 0x9B;

template <std::size_t N>
void Append(UTF8String& out, const char (&text)[N]) {
  out.append(reinterpret_cast<const UTF8Char*>(text), N - 1);
}

// A unit as the library's converter writes it: one to three bytes, lone
// surrogates and noncharacters included.
void AppendUnit(unsigned unit, UTF8String& out) {
  if (unit < 0x80) {
    out.push_back(static_cast<UTF8Char>(unit));
  } else if (unit < 0x800) {
    out.push_back(static_cast<UTF8Char>(0xC0 | (unit >> 6)));
    out.push_back(static_cast<UTF8Char>(0x80 | (unit & 0x3F)));
  } else {
    out.push_back(static_cast<UTF8Char>(0xE0 | (unit >> 12)));
    out.push_back(static_cast<UTF8Char>(0x80 | ((unit >> 6) & 0x3F)));
    out.push_back(static_cast<UTF8Char>(0x80 | (unit & 0x3F)));
  }
}

void AppendEscape(unsigned unit, UTF8String& out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  out.push_back(kEscape0);
  out.push_back(kEscape1);
  out.push_back(kEscape2);
  for (int shift = 12; shift >= 0; shift -= 4) {
    out.push_back(static_cast<UTF8Char>(kHex[(unit >> shift) & 0xF]));
  }
}

// Writes an ASCII unit; true when it needed more than a copy.
bool AppendSpecialASCII(unsigned c, UTF8String& out) {
  switch (c) {
    case '"':
      Append(out, "&quot;");
      return true;
    case '&':
      Append(out, "&amp;");
      return true;
    case '\'':
      Append(out, "&apos;");
      return true;
    case '<':
      Append(out, "&lt;");
      return true;
    case '>':
      Append(out, "&gt;");
      return true;
    case '\r':
      Append(out, "&#13;");
      return true;
    case '\t':
    case '\n':
      return false;
    default:
      if (c < 0x20) {
        AppendEscape(c, out);
        return true;
      }
      return false;
  }
}

// True for the ASCII units that are written as they stand.
inline bool PlainASCII(unsigned c) {
  return c >= 0x20 ? (c < 0x80 && c != '"' && c != '&' && c != '\'' && c != '<' && c != '>')
                   : (c == '\t' || c == '\n');
}

// The length of the valid UTF-8 sequence at `p` (strict: shortest form, no
// surrogates, at most U+10FFFF) and its code point; 0 when there is none.
std::size_t Sequence(const UTF8Char* p, std::size_t left, unsigned& cp) {
  const unsigned c = p[0];
  auto cont = [&](std::size_t i) { return i < left && (p[i] & 0xC0) == 0x80; };
  if (c >= 0xC2 && c < 0xE0) {
    if (!cont(1)) return 0;
    cp = ((c & 0x1F) << 6) | (p[1] & 0x3F);
    return 2;
  }
  if (c >= 0xE0 && c < 0xF0) {
    if (!cont(1) || !cont(2)) return 0;
    cp = ((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
    if (cp < 0x800 || (cp >= 0xD800 && cp < 0xE000)) return 0;
    return 3;
  }
  if (c >= 0xF0 && c < 0xF5) {
    if (!cont(1) || !cont(2) || !cont(3)) return 0;
    cp = ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
    if (cp < 0x10000 || cp > 0x10FFFF) return 0;
    return 4;
  }
  return 0;
}

int HexDigit(unsigned c) {
  if (c >= '0' && c <= '9') return static_cast<int>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
  return -1;
}

// The unit of the four digits at `p`, or -1.
template <typename C>
long Escaped(const C* p, std::size_t left) {
  if (left < 4) return -1;
  long unit = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const unsigned c = static_cast<unsigned>(p[i]);
    const int digit = c < 0x80 ? HexDigit(c) : -1;
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

}  // namespace

void AppendText(const UTF8Char* text, std::size_t size, UTF8String& out) {
  std::size_t start = 0;
  std::size_t i = 0;
  auto flush = [&] { out.append(text + start, text + i); };
  while (i < size) {
    const unsigned c = text[i];
    if (c < 0x80) {
      if (PlainASCII(c)) {
        ++i;
        continue;
      }
      flush();
      AppendSpecialASCII(c, out);
      start = ++i;
      continue;
    }
    unsigned cp = 0;
    const std::size_t length = Sequence(text + i, size - i, cp);
    if (length != 0 && cp != 0xFFFE && cp != 0xFFFF && cp != kEscape) {
      i += length;
      continue;
    }
    flush();
    if (length != 0) {
      AppendEscape(cp, out);
      i += length;
    } else if (c == 0xED && size - i >= 3 && (text[i + 1] & 0xE0) == 0xA0 &&
               (text[i + 2] & 0xC0) == 0x80) {
      // A lone surrogate as the library's UTF-16 converter writes it.
      AppendEscape(0xD000 | ((text[i + 1] & 0x3Fu) << 6) | (text[i + 2] & 0x3Fu), out);
      i += 3;
    } else {
      AppendEscape(c, out);  // a stray byte: 0080 to 00FF
      ++i;
    }
    start = i;
  }
  flush();
}

void AppendText(const UTF16Char* text, std::size_t size, UTF8String& out) {
  out.reserve(out.size() + size);
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned c = text[i];
    if (c < 0x80) {
      if (PlainASCII(c)) {
        out.push_back(static_cast<UTF8Char>(c));
      } else {
        AppendSpecialASCII(c, out);
      }
    } else if (c >= 0xD800 && c < 0xDC00 && i + 1 < size && text[i + 1] >= 0xDC00 &&
               text[i + 1] < 0xE000) {
      const unsigned cp = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00u);
      ++i;
      out.push_back(static_cast<UTF8Char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<UTF8Char>(0x80 | (cp & 0x3F)));
    } else if ((c >= 0xD800 && c < 0xE000) || c == 0xFFFE || c == 0xFFFF || c == kEscape) {
      AppendEscape(c, out);
    } else {
      AppendUnit(c, out);
    }
  }
}

const UTF8String& DecodeText(const UTF8String& text, UTF8String& scratch) {
  const UTF8Char* p = text.data();
  const std::size_t size = text.size();
  const void* found = size ? std::memchr(p, kEscape0, size) : nullptr;
  std::size_t i = found ? static_cast<std::size_t>(static_cast<const UTF8Char*>(found) - p) : size;
  // Find the first real escape before building anything.
  auto escapeAt = [&](std::size_t at) {
    return at + 7 <= size && p[at] == kEscape0 && p[at + 1] == kEscape1 && p[at + 2] == kEscape2 &&
           Escaped(p + at + 3, size - at - 3) >= 0;
  };
  while (i < size && !escapeAt(i)) {
    found = std::memchr(p + i + 1, kEscape0, size - i - 1);
    i = found ? static_cast<std::size_t>(static_cast<const UTF8Char*>(found) - p) : size;
  }
  if (i == size) return text;
  scratch.assign(p, p + i);
  while (i < size) {
    if (escapeAt(i)) {
      const auto unit = static_cast<unsigned>(Escaped(p + i + 3, size - i - 3));
      if (unit >= 0x80 && unit <= 0xFF) {
        scratch.push_back(static_cast<UTF8Char>(unit));  // a stray byte
      } else {
        AppendUnit(unit, scratch);
      }
      i += 7;
    } else {
      scratch.push_back(p[i++]);
    }
  }
  return scratch;
}

const UTF16String& DecodeText(const UTF16String& text, UTF16String& scratch) {
  const std::size_t size = text.size();
  const UTF16Char* p = text.data();
  std::size_t i = 0;
  auto escapeAt = [&](std::size_t at) {
    return p[at] == kEscape && Escaped(p + at + 1, size - at - 1) >= 0;
  };
  while (i < size && !escapeAt(i)) ++i;
  if (i == size) return text;
  scratch.assign(p, p + i);
  while (i < size) {
    if (escapeAt(i)) {
      scratch.push_back(static_cast<UTF16Char>(Escaped(p + i + 1, size - i - 1)));
      i += 5;
    } else {
      scratch.push_back(p[i++]);
    }
  }
  return scratch;
}

}  // namespace tvxcore::proplist::internal
