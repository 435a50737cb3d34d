// tvxcore/filesupport/MemoryByteStreams.h: byte streams over a caller's fixed
// block of memory, and a sink that only counts.
//
// The block belongs to the caller and must outlive the stream. Each stream
// belongs to one thread at a time. The writing streams leave OSFlush and
// Truncate to a derived class.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"

namespace tvxcore::filesupport {

// Reads `size` bytes from `data`. Any position may be set; Get() throws
// eof_error at or beyond the end, so a size of 0 throws on the first Get().
class TVXCORE_EXPORT IBufferByteStream : public IByteStream {
 public:
  IBufferByteStream(const unsigned char* data, unsigned long long size);
  ~IBufferByteStream() override;

  unsigned char Get() override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;
  // `size`.
  unsigned long long Length() const override;

 private:
  const unsigned char* data_;
  unsigned long long size_;
  unsigned long long pos_ = 0;
};

// Writes into `size` bytes at `data`. Put() at or beyond the end throws
// eof_error and writes nothing. Count() is the high-water mark of the
// position: raised by writing and by setting a position, never lowered, so
// seeking back and rewriting leaves it alone while a bare seek forward raises
// it.
class TVXCORE_EXPORT OBufferByteStream : public OByteStream {
 public:
  OBufferByteStream(unsigned char* data, unsigned long long size);
  ~OBufferByteStream() override;

  void Put(unsigned char byte) override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;
  // `size`.
  virtual unsigned long long Length() const;

  unsigned long long Count() const;

 private:
  unsigned char* data_;
  unsigned long long size_;
  unsigned long long pos_ = 0;
  unsigned long long count_ = 0;
};

// Counts what would be written and stores nothing: a value serialised through
// it costs no memory, and Count() then gives its size in bytes. Count() is the
// high-water mark of positions reached by Put(); setting a position, forward or
// back, does not raise it.
class TVXCORE_EXPORT OCountingByteStream : public OByteStream {
 public:
  OCountingByteStream() = default;
  ~OCountingByteStream() override;

  void Put(unsigned char byte) override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;

  unsigned long long Count() const;

 private:
  unsigned long long pos_ = 0;
  unsigned long long count_ = 0;
};

}  // namespace tvxcore::filesupport
