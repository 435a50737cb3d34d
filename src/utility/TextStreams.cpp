#include "tvxcore/utility/TextStreams.h"

#include <iostream>

#include "utility/internal/TextFacets.h"

namespace tvxcore::utility {
namespace {

// Reaches the protected basic_ios::init of any stream, which resets it to the
// state of a newly constructed one.
template <typename CharT>
struct StreamInit : std::basic_ios<CharT> {
  static void Reinit(std::basic_ios<CharT>& stream, std::basic_streambuf<CharT>* buffer) {
    (stream.*(&StreamInit::init))(buffer);
  }
};

// libstdc++ makes a stream's fill, a blank, through the stream's ctype facet
// the first time the fill is read, and every number written reads it. The
// unit types have no ctype facet, so the blank is stored directly, in the
// state that basic_ios keeps for its derived classes.
template <typename CharT>
struct FillState : std::basic_ios<CharT> {
  static void SetBlank(std::basic_ios<CharT>& stream) {
    stream.*(&FillState::_M_fill) = static_cast<CharT>(' ');
    stream.*(&FillState::_M_fill_init) = true;
  }
};

// The state every text stream starts in: the library's locale, a blank fill,
// and skipws clear (skipping needs a ctype facet too; the number facets skip
// white space themselves).
template <typename Stream>
void Imbue(Stream& stream) {
  stream.imbue(internal::DefaultStreamLocale());
  FillState<typename Stream::char_type>::SetBlank(stream);
  stream.unsetf(std::ios_base::skipws);
}

}  // namespace

UTF16OutputStream::UTF16OutputStream(std::basic_streambuf<UTF16Char>* buffer)
    : std::basic_ostream<UTF16Char>(buffer) {
  Imbue(*this);
}
UTF8OutputStream::UTF8OutputStream(std::basic_streambuf<UTF8Char>* buffer)
    : std::basic_ostream<UTF8Char>(buffer) {
  Imbue(*this);
}
oUTF16StringStream::oUTF16StringStream() { Imbue(*this); }
iUTF16StringStream::iUTF16StringStream(const UTF16String& text)
    : std::basic_istringstream<UTF16Char, std::char_traits<UTF16Char>,
                               SmallBlockAllocator::STLAllocator<UTF16Char>>(text) {
  Imbue(*this);
}
UTF16StringStream::UTF16StringStream() { Imbue(*this); }
UTF16StringStream::UTF16StringStream(const UTF16String& text)
    : std::basic_stringstream<UTF16Char, std::char_traits<UTF16Char>,
                              SmallBlockAllocator::STLAllocator<UTF16Char>>(text) {
  Imbue(*this);
}
oUTF8StringStream::oUTF8StringStream() { Imbue(*this); }
iUTF8StringStream::iUTF8StringStream(const UTF8String& text)
    : std::basic_istringstream<UTF8Char, std::char_traits<UTF8Char>,
                               SmallBlockAllocator::STLAllocator<UTF8Char>>(text) {
  Imbue(*this);
}
UTF8StringStream::UTF8StringStream() { Imbue(*this); }
UTF8StringStream::UTF8StringStream(const UTF8String& text)
    : std::basic_stringstream<UTF8Char, std::char_traits<UTF8Char>,
                              SmallBlockAllocator::STLAllocator<UTF8Char>>(text) {
  Imbue(*this);
}

std::streambuf* SetStreamBuffer(std::ostream& stream, std::streambuf* buffer) {
  std::streambuf* previous = stream.rdbuf();
  StreamInit<char>::Reinit(stream, buffer);
  return previous;
}

std::basic_streambuf<UTF16Char>* SetStreamBuffer(UTF16OutputStream& stream,
                                                 std::basic_streambuf<UTF16Char>* buffer) {
  std::basic_streambuf<UTF16Char>* previous = stream.rdbuf();
  StreamInit<UTF16Char>::Reinit(stream, buffer);
  Imbue(stream);
  return previous;
}

// UTF16Out and Debug write through the debug layer's buffers and are
// defined there (src/debug/DebugStreamBuffers.cpp).
namespace streams {

std::ostream& Out = std::cout;
std::ostream& Log = std::clog;
std::ostream& Err = std::cerr;
std::istream& In = std::cin;

}  // namespace streams
}  // namespace tvxcore::utility
