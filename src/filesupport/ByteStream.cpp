// Stream bases, their client slots and the stream exceptions.
#include "tvxcore/filesupport/ByteStream.h"

#include <cstddef>

namespace tvxcore::filesupport {

byte_stream_exception::~byte_stream_exception() = default;
eof_error::~eof_error() = default;
io_error::~io_error() = default;

namespace {
// Plain on purpose: indices are handed out by callers that serialise their
// calls themselves.
int S_nextSlotIndex = 0;
}  // namespace

ByteStream_base::~ByteStream_base() {
  // By index, so that a callback registering another one cannot invalidate the
  // walk; the newcomer runs too.
  for (std::size_t i = 0; i < callbacks_.size(); ++i) {
    const auto [fn, index] = callbacks_[i];
    fn(erase_event, *this, index);
  }
}

int ByteStream_base::xalloc() { return S_nextSlotIndex++; }

std::int32_t& ByteStream_base::iword(int index) {
  const auto slot = static_cast<std::size_t>(index);
  if (slot >= iwords_.size()) iwords_.resize(slot + 1, 0);
  return iwords_[slot];
}

void*& ByteStream_base::pword(int index) {
  const auto slot = static_cast<std::size_t>(index);
  if (slot >= pwords_.size()) pwords_.resize(slot + 1, nullptr);
  return pwords_[slot];
}

void ByteStream_base::register_callback(event_callback fn, int index) {
  callbacks_.emplace_back(fn, index);
}

IByteStream::~IByteStream() = default;

void IByteStream::ReadBlock(unsigned char* dst, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = Get();
}

bool IByteStream::AtTheEnd() const { return Length() == CurPos(); }

unsigned long long IByteStream::Length() const { return 0; }

OByteStream::~OByteStream() = default;

void OByteStream::WriteBlock(const unsigned char* src, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) Put(src[i]);
}

}  // namespace tvxcore::filesupport
