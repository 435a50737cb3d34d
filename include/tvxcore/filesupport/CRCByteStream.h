// tvxcore/filesupport/CRCByteStream.h: a writing stream that passes its bytes
// on to another stream and keeps their CRC-32.
//
// The CRC is the one of zlib, gzip, ZIP and PNG (reflected polynomial
// 0xEDB88320, state starting at 0xFFFFFFFF, result complemented): the nine
// bytes "123456789" give 0xCBF43926.
#pragma once

#include <cstdint>
#include <memory>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"

namespace tvxcore::filesupport {

// Passes every byte written to it on to `inner`, unchanged and at once, and
// keeps the CRC-32 of all bytes written so far. Value() can be asked at any
// time without disturbing the sum, so a caller may take it, write more, and
// take it again.
//
// Put() adds the byte to the sum, then puts it to `inner`. WriteBlock() adds
// the whole block, then hands it to `inner` in one WriteBlock(); it computes
// the sum many bytes at a time (with the processor's carry-less multiply
// where it has one), with the same result as a Put() per byte. Both CurPos()
// operations are those of `inner` and leave the sum alone. OSFlush() and
// Truncate() are left to a derived class.
//
// Each stream builds its own byte table when it is made, and frees it when it
// dies. `inner` is not owned and must outlive this stream. Exceptions of
// `inner` pass through; the bytes of the failed call are already in the sum.
// One thread at a time.
class TVXCORE_EXPORT OCRCByteStream : public OByteStream {
 public:
  // Throws std::bad_alloc when the table can't be had.
  explicit OCRCByteStream(OByteStream& inner);
  ~OCRCByteStream() override;

  void Put(unsigned char byte) override;
  void WriteBlock(const unsigned char* src, std::uint32_t count) override;
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;

  // The CRC-32 of everything written so far; 0 when nothing was.
  std::uint32_t Value() const;

 private:
  struct Calculator;

  std::unique_ptr<Calculator> calculator_;
  OByteStream& inner_;
};

}  // namespace tvxcore::filesupport
