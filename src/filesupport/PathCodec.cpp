#include "filesupport/internal/PathCodec.h"

namespace tvxcore::filesupport::internal {

bool ToNative(const UTF16String& path, std::string& out) {
  // No unit takes more than three bytes (a pair takes four for two).
  const std::size_t n = path.size();
  out.resize(3 * n);
  char* to = out.data();
  auto put = [&to](std::uint32_t byte) { *to++ = static_cast<char>(byte); };
  for (std::size_t i = 0; i < n; ++i) {
    std::uint32_t c = path[i];
    if (c == 0) {
      out.clear();
      return false;
    }
    if (c < 0x80) {
      put(c);
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && path[i + 1] >= 0xDC00 && path[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (path[i + 1] - 0xDC00u);
      ++i;
    } else if (c >= 0xDC80 && c <= 0xDCFF) {
      put(c - 0xDC00);  // an escaped raw byte
      continue;
    }
    if (c < 0x800) {
      put(0xC0 | (c >> 6));
    } else if (c < 0x10000) {
      put(0xE0 | (c >> 12));
      put(0x80 | ((c >> 6) & 0x3F));
    } else {
      put(0xF0 | (c >> 18));
      put(0x80 | ((c >> 12) & 0x3F));
      put(0x80 | ((c >> 6) & 0x3F));
    }
    put(0x80 | (c & 0x3F));
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return true;
}

std::string ToNative(const UTF16String& path) {
  std::string out;
  if (!ToNative(path, out)) out.clear();
  return out;
}

UTF16String FromNative(std::string_view bytes) {
  UTF16String out;
  AppendFromNative(bytes, out);
  return out;
}

void AppendFromNative(std::string_view bytes, UTF16String& out) {
  const std::size_t at = out.size();
  out.resize(at + bytes.size());
  out.resize(at + WidenNative(bytes, out.data() + at));
}

std::size_t WidenNative(std::string_view bytes, UTF16Char* out) {
  UTF16Char* const first = out;
  const std::size_t n = bytes.size();
  auto cont = [&](std::size_t i) {
    return i < n && (static_cast<unsigned char>(bytes[i]) & 0xC0) == 0x80;
  };
  for (std::size_t i = 0; i < n;) {
    const unsigned char b = static_cast<unsigned char>(bytes[i]);
    if (b < 0x80 && n - i >= kAsciiBlock) {
      // The common case, plain ASCII, a block at a time.
      const std::size_t ascii = WidenAsciiPrefix(bytes.data() + i, n - i, out);
      if (ascii != 0) {
        out += ascii;
        i += ascii;
        continue;
      }
    }
    if (b < 0x80) {
      *out++ = b;
      ++i;
      continue;
    }
    std::uint32_t c = 0;
    std::size_t len = 0;
    if (b >= 0xC2 && b <= 0xDF && cont(i + 1)) {
      c = ((b & 0x1Fu) << 6) | (bytes[i + 1] & 0x3F);
      len = 2;
    } else if (b >= 0xE0 && b <= 0xEF && cont(i + 1) && cont(i + 2)) {
      c = ((b & 0x0Fu) << 12) | ((bytes[i + 1] & 0x3Fu) << 6) | (bytes[i + 2] & 0x3F);
      if (c >= 0x800) len = 3;
    } else if (b >= 0xF0 && b <= 0xF4 && cont(i + 1) && cont(i + 2) && cont(i + 3)) {
      c = ((b & 0x07u) << 18) | ((bytes[i + 1] & 0x3Fu) << 12) | ((bytes[i + 2] & 0x3Fu) << 6) |
          (bytes[i + 3] & 0x3F);
      if (c >= 0x10000 && c <= 0x10FFFF) len = 4;
    }
    // Encoded surrogates aren't UTF-8: they stay bytes, or a lone high
    // surrogate could pair with an escaped byte and not read back the same.
    if (len == 3 && c >= 0xD800 && c <= 0xDFFF) len = 0;
    if (len == 0) {
      *out++ = static_cast<UTF16Char>(0xDC00 + b);
      ++i;
      continue;
    }
    if (c >= 0x10000) {  // four bytes give two units
      c -= 0x10000;
      *out++ = static_cast<UTF16Char>(0xD800 + (c >> 10));
      *out++ = static_cast<UTF16Char>(0xDC00 + (c & 0x3FF));
    } else {
      *out++ = static_cast<UTF16Char>(c);
    }
    i += len;
  }
  return static_cast<std::size_t>(out - first);
}

}  // namespace tvxcore::filesupport::internal
