// Byte streams over a caller's fixed block, and the counting sink.
#include "tvxcore/filesupport/MemoryByteStreams.h"

#include <algorithm>

namespace tvxcore::filesupport {

IBufferByteStream::IBufferByteStream(const unsigned char* data, unsigned long long size)
    : data_(data), size_(size) {}
IBufferByteStream::~IBufferByteStream() = default;

unsigned char IBufferByteStream::Get() {
  if (pos_ >= size_) throw eof_error();
  return data_[pos_++];
}

unsigned long long IBufferByteStream::CurPos() const { return pos_; }

void IBufferByteStream::CurPos(unsigned long long pos) { pos_ = pos; }

unsigned long long IBufferByteStream::Length() const { return size_; }

OBufferByteStream::OBufferByteStream(unsigned char* data, unsigned long long size)
    : data_(data), size_(size) {}
OBufferByteStream::~OBufferByteStream() = default;

void OBufferByteStream::Put(unsigned char byte) {
  if (pos_ >= size_) throw eof_error();
  data_[pos_++] = byte;
  count_ = std::max(count_, pos_);
}

unsigned long long OBufferByteStream::CurPos() const { return pos_; }

void OBufferByteStream::CurPos(unsigned long long pos) {
  pos_ = pos;
  count_ = std::max(count_, pos_);
}

unsigned long long OBufferByteStream::Length() const { return size_; }

unsigned long long OBufferByteStream::Count() const { return count_; }

OCountingByteStream::~OCountingByteStream() = default;

void OCountingByteStream::Put(unsigned char) {
  ++pos_;
  count_ = std::max(count_, pos_);
}

unsigned long long OCountingByteStream::CurPos() const { return pos_; }

void OCountingByteStream::CurPos(unsigned long long pos) { pos_ = pos; }

unsigned long long OCountingByteStream::Count() const { return count_; }

}  // namespace tvxcore::filesupport
