// tvxcore/utility/TextStreams.h: the stream classes through which the library
// formats text in UTF-16 and UTF-8, the stream buffers behind its debug and
// console output, and the global streams of utility::streams.
//
// Every stream class is imbued on construction with the library's default
// locale, through which numbers (and bool and pointers) are written and read
// exactly as a narrow stream in the classic locale writes and reads them, with
// every format flag, width and fill; a unit outside ASCII ends a number.
//
// The standard library has no character classes (ctype) for UTF16Char and
// UTF8Char, and this library defines none, so the parts of the standard
// streams that need them don't work on these streams: std::endl, the narrow
// inserters (<< 'x' and << "x") and std::getline without a delimiter throw
// std::bad_cast; std::ws and reading a word with >> into a string set
// badbit. Write u'\n' and flush(), and pass the delimiter to getline. The
// streams start with skipws clear: reading a number skips the white space
// before it by itself (so `in >> a >> b` works as usual, and text of nothing
// but white space reads as 0 with failbit and eofbit), a single unit is read
// as it stands, and setting skipws makes every extraction fail.
//
// Streams and buffers belong to one thread at a time; the global streams are
// not synchronised.
#pragma once

#include <istream>
#include <ostream>
#include <sstream>
#include <streambuf>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

using UTF16StringBuf = std::basic_stringbuf<UTF16Char, std::char_traits<UTF16Char>,
                                            SmallBlockAllocator::STLAllocator<UTF16Char>>;
using UTF8StringBuf = std::basic_stringbuf<UTF8Char, std::char_traits<UTF8Char>,
                                           SmallBlockAllocator::STLAllocator<UTF8Char>>;

// An output stream of UTF16Char over a buffer the caller owns.
class TVXCORE_EXPORT UTF16OutputStream : public std::basic_ostream<UTF16Char> {
 public:
  explicit UTF16OutputStream(std::basic_streambuf<UTF16Char>* buffer);

 private:
  friend TVXCORE_EXPORT std::basic_streambuf<UTF16Char>* SetStreamBuffer(
      UTF16OutputStream&, std::basic_streambuf<UTF16Char>*);
};

// An output stream of UTF8Char over a buffer the caller owns.
class TVXCORE_EXPORT UTF8OutputStream : public std::basic_ostream<UTF8Char> {
 public:
  explicit UTF8OutputStream(std::basic_streambuf<UTF8Char>* buffer);
};

// String streams over the small-block allocator. str() gives the text.
class TVXCORE_EXPORT oUTF16StringStream
    : public std::basic_ostringstream<UTF16Char, std::char_traits<UTF16Char>,
                                      SmallBlockAllocator::STLAllocator<UTF16Char>> {
 public:
  oUTF16StringStream();
};
class TVXCORE_EXPORT iUTF16StringStream
    : public std::basic_istringstream<UTF16Char, std::char_traits<UTF16Char>,
                                      SmallBlockAllocator::STLAllocator<UTF16Char>> {
 public:
  explicit iUTF16StringStream(const UTF16String& text);
};
class TVXCORE_EXPORT UTF16StringStream
    : public std::basic_stringstream<UTF16Char, std::char_traits<UTF16Char>,
                                     SmallBlockAllocator::STLAllocator<UTF16Char>> {
 public:
  UTF16StringStream();
  explicit UTF16StringStream(const UTF16String& text);
};
class TVXCORE_EXPORT oUTF8StringStream
    : public std::basic_ostringstream<UTF8Char, std::char_traits<UTF8Char>,
                                      SmallBlockAllocator::STLAllocator<UTF8Char>> {
 public:
  oUTF8StringStream();
};
class TVXCORE_EXPORT iUTF8StringStream
    : public std::basic_istringstream<UTF8Char, std::char_traits<UTF8Char>,
                                      SmallBlockAllocator::STLAllocator<UTF8Char>> {
 public:
  explicit iUTF8StringStream(const UTF8String& text);
};
class TVXCORE_EXPORT UTF8StringStream
    : public std::basic_stringstream<UTF8Char, std::char_traits<UTF8Char>,
                                     SmallBlockAllocator::STLAllocator<UTF8Char>> {
 public:
  UTF8StringStream();
  explicit UTF8StringStream(const UTF8String& text);
};

// Installs `buffer` in `stream` and re-initialises the stream as if it had
// just been constructed around it: formatting state and error flags are reset
// (a null buffer leaves the stream bad). Returns the previous buffer, which is
// not touched. This is how a host redirects utility::streams to a log.
TVXCORE_EXPORT std::streambuf* SetStreamBuffer(std::ostream& stream, std::streambuf* buffer);
TVXCORE_EXPORT std::basic_streambuf<UTF16Char>* SetStreamBuffer(
    UTF16OutputStream& stream, std::basic_streambuf<UTF16Char>* buffer);

namespace streams {
// Narrow output to the standard output, log and error streams; narrow input.
TVXCORE_EXPORT extern std::ostream& Out;
TVXCORE_EXPORT extern std::ostream& Log;
TVXCORE_EXPORT extern std::ostream& Err;
TVXCORE_EXPORT extern std::istream& In;
// UTF-16 console output (UTF-8 through the C library's puts, one line per
// flush) and UTF-16 debug output (to the trace).
TVXCORE_EXPORT extern UTF16OutputStream& UTF16Out;
TVXCORE_EXPORT extern UTF16OutputStream& Debug;
}  // namespace streams

}  // namespace tvxcore::utility

namespace tvxcore::debug {

// A stream buffer whose put area of 1024 units lives inside the object. When
// the area is full, and on every flush, the pending units are handed as one
// zero-terminated text to Write(). Derived classes flush in their destructor.
template <typename CharT>
class UTF16StreamBufferImpl : public std::basic_streambuf<CharT> {
 public:
  using typename std::basic_streambuf<CharT>::int_type;
  using typename std::basic_streambuf<CharT>::traits_type;
  static constexpr int kBufferSize = 1024;

  UTF16StreamBufferImpl() { this->setp(buffer_, buffer_ + kBufferSize); }
  UTF16StreamBufferImpl(const UTF16StreamBufferImpl&) = delete;
  UTF16StreamBufferImpl& operator=(const UTF16StreamBufferImpl&) = delete;

 protected:
  // Receives the pending text, zero-terminated.
  virtual void Write(const CharT* text) = 0;

  int_type overflow(int_type unit) override {
    FlushPending();
    if (!traits_type::eq_int_type(unit, traits_type::eof())) {
      *this->pptr() = traits_type::to_char_type(unit);
      this->pbump(1);
    }
    return traits_type::not_eof(unit);
  }
  int sync() override {
    FlushPending();
    return 0;
  }

 private:
  void FlushPending() {
    if (this->pptr() == this->pbase()) return;
    const std::basic_string<CharT, std::char_traits<CharT>,
                            utility::SmallBlockAllocator::STLAllocator<CharT>>
        text(this->pbase(), this->pptr());
    this->setp(buffer_, buffer_ + kBufferSize);
    Write(text.c_str());
  }

  CharT buffer_[kBufferSize];
};

// Hands each flushed text, converted to UTF-8, to the debug trace.
template <typename CharT>
class TVXCORE_EXPORT DebugStreamBuffer : public UTF16StreamBufferImpl<CharT> {
 public:
  DebugStreamBuffer() = default;
  ~DebugStreamBuffer() override;

 protected:
  void Write(const CharT* text) override;
};

// Writes each flushed text, converted to UTF-8, with the C library's puts:
// every flush ends its text with a line break, whether or not it had one.
template <typename CharT>
class TVXCORE_EXPORT UTF16StdOutStreamBuffer : public UTF16StreamBufferImpl<CharT> {
 public:
  UTF16StdOutStreamBuffer() = default;
  ~UTF16StdOutStreamBuffer() override;

 protected:
  void Write(const CharT* text) override;
};

extern template class TVXCORE_EXPORT DebugStreamBuffer<UTF16Char>;
extern template class TVXCORE_EXPORT UTF16StdOutStreamBuffer<UTF16Char>;

}  // namespace tvxcore::debug
