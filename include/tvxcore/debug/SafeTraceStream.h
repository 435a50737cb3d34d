// tvxcore/debug/SafeTraceStream.h: debug text from places that must not
// allocate or lock.
//
// A SafeTraceStream collects text in a fixed buffer inside the object and
// writes it to the debugger's output (debug::DebugTrace's road), never through
// debug::Trace or the trace lock, so the allocator and the trace code may use
// it themselves.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::debug {

// Buffers up to 511 UTF-16 units; when the 511th is stored, the buffer goes
// out as one text (converted to UTF-8; a surrogate pair cut by the boundary
// leaves as two lone surrogates) and fills again from the start. The
// destructor writes what is left. Numbers are formatted as C's "%lg" (6
// significant digits), "%ld", "%lu", "%llu" and "%lld" do in the "C" locale;
// narrow text is widened one byte to one unit. Nothing here allocates,
// locks or throws. One thread at a time.
class TVXCORE_EXPORT SafeTraceStream {
 public:
  static constexpr int kBufferUnits = 512;

  SafeTraceStream() = default;
  ~SafeTraceStream();
  SafeTraceStream(const SafeTraceStream&) = delete;
  SafeTraceStream& operator=(const SafeTraceStream&) = delete;

  SafeTraceStream& operator<<(char const* inText);
  SafeTraceStream& operator<<(UTF16Char const* inText);
  SafeTraceStream& operator<<(unsigned short const* inText);
  SafeTraceStream& operator<<(double inValue);
  SafeTraceStream& operator<<(long inValue);
  SafeTraceStream& operator<<(int inValue);
  SafeTraceStream& operator<<(unsigned int inValue);
  SafeTraceStream& operator<<(unsigned long inValue);
  SafeTraceStream& operator<<(unsigned long long inValue);
  SafeTraceStream& operator<<(long long inValue);

 private:
  void Put(UTF16Char unit);
  void PutNarrow(char const* text, std::size_t size);
  void Flush();

  UTF16Char buffer_[kBufferUnits];
  std::uint64_t count_ = 0;
};

}  // namespace tvxcore::debug
