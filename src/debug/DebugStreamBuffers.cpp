// The stream buffers of tvxcore/utility/TextStreams.h that write to the
// debug output and to standard output.
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
