// The stream buffers of tvxcore/utility/TextStreams.h that write to the
// debug output and to standard output, and the two global streams over them
// (utility::streams::UTF16Out and Debug).
#include <cstdio>

#include "debug/internal/DebugTraceText.h"
#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::debug {

template <typename CharT>
DebugStreamBuffer<CharT>::~DebugStreamBuffer() {
  this->pubsync();
}
template <typename CharT>
void DebugStreamBuffer<CharT>::Write(const CharT* text) {
  internal::DebugTraceText(utility::UTF16to8(text));
}

template <typename CharT>
UTF16StdOutStreamBuffer<CharT>::~UTF16StdOutStreamBuffer() {
  this->pubsync();
}
template <typename CharT>
void UTF16StdOutStreamBuffer<CharT>::Write(const CharT* text) {
  std::puts(reinterpret_cast<const char*>(utility::UTF16to8(text).c_str()));
}

template class DebugStreamBuffer<UTF16Char>;
template class UTF16StdOutStreamBuffer<UTF16Char>;

}  // namespace tvxcore::debug

namespace tvxcore::utility::streams {
namespace {

UTF16OutputStream& MakeUTF16Out() {
  static debug::UTF16StdOutStreamBuffer<UTF16Char> buffer;
  static UTF16OutputStream stream(&buffer);
  return stream;
}
UTF16OutputStream& MakeDebug() {
  static debug::DebugStreamBuffer<UTF16Char> buffer;
  static UTF16OutputStream stream(&buffer);
  return stream;
}

}  // namespace

UTF16OutputStream& UTF16Out = MakeUTF16Out();
UTF16OutputStream& Debug = MakeDebug();

}  // namespace tvxcore::utility::streams
