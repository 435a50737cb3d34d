#include "tvxcore/debug/SafeTraceStream.h"

#include <charconv>

#include "platform/DebugOutput.h"

namespace tvxcore::debug {
namespace {

constexpr std::size_t kFlushAt = SafeTraceStream::kBufferUnits - 1;

// UTF-8 of `units`, into `out` (3 bytes a unit at most). A surrogate pair
// becomes one 4-byte sequence; a lone surrogate keeps its 3-byte form.
std::size_t EncodeUTF8(const UTF16Char* units, std::size_t count, char* out) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t code = units[i];
    if (code >= 0xD800 && code <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      code = 0x10000 + ((code - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    }
    if (code < 0x80) {
      out[size++] = static_cast<char>(code);
    } else if (code < 0x800) {
      out[size++] = static_cast<char>(0xC0 | (code >> 6));
      out[size++] = static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out[size++] = static_cast<char>(0xE0 | (code >> 12));
      out[size++] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out[size++] = static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out[size++] = static_cast<char>(0xF0 | (code >> 18));
      out[size++] = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out[size++] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out[size++] = static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return size;
}

template <typename Unit>
std::size_t Length(const Unit* text) {
  std::size_t length = 0;
  while (text[length] != 0) ++length;
  return length;
}

}  // namespace

SafeTraceStream::~SafeTraceStream() {
  if (count_ > 0) Flush();
}

void SafeTraceStream::Put(UTF16Char unit) {
  buffer_[count_++] = unit;
  if (count_ == kFlushAt) Flush();
}

void SafeTraceStream::Flush() {
  buffer_[count_] = 0;
  char bytes[kFlushAt * 3];
  platform::WriteDebuggerOutput(bytes, EncodeUTF8(buffer_, count_, bytes));
  count_ = 0;
}

void SafeTraceStream::PutNarrow(char const* text, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) Put(static_cast<unsigned char>(text[i]));
}

SafeTraceStream& SafeTraceStream::operator<<(char const* inText) {
  if (inText) PutNarrow(inText, Length(inText));
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(UTF16Char const* inText) {
  if (inText) {
    for (; *inText != 0; ++inText) Put(*inText);
  }
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(unsigned short const* inText) {
  if (inText) {
    for (; *inText != 0; ++inText) Put(static_cast<UTF16Char>(*inText));
  }
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(double inValue) {
  char text[32];
  const auto result =
      std::to_chars(text, text + sizeof(text), inValue, std::chars_format::general, 6);
  PutNarrow(text, static_cast<std::size_t>(result.ptr - text));
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(long long inValue) {
  char text[24];
  const auto result = std::to_chars(text, text + sizeof(text), inValue);
  PutNarrow(text, static_cast<std::size_t>(result.ptr - text));
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(unsigned long long inValue) {
  char text[24];
  const auto result = std::to_chars(text, text + sizeof(text), inValue);
  PutNarrow(text, static_cast<std::size_t>(result.ptr - text));
  return *this;
}

SafeTraceStream& SafeTraceStream::operator<<(long inValue) {
  return *this << static_cast<long long>(inValue);
}
SafeTraceStream& SafeTraceStream::operator<<(int inValue) {
  return *this << static_cast<long long>(inValue);
}
SafeTraceStream& SafeTraceStream::operator<<(unsigned int inValue) {
  return *this << static_cast<unsigned long long>(inValue);
}
SafeTraceStream& SafeTraceStream::operator<<(unsigned long inValue) {
  return *this << static_cast<unsigned long long>(inValue);
}

}  // namespace tvxcore::debug
