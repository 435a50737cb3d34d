// The CRC-32 pass-through stream.
#include "tvxcore/filesupport/CRCByteStream.h"

#include "filesupport/internal/CRC32.h"

namespace tvxcore::filesupport {

// The running state, then the stream's own byte table.
struct OCRCByteStream::Calculator {
  std::uint32_t state = 0xFFFFFFFFu;
  internal::CRC32Table table = internal::MakeCRC32Table();
};

OCRCByteStream::OCRCByteStream(OByteStream& inner)
    : calculator_(std::make_unique<Calculator>()), inner_(inner) {}

OCRCByteStream::~OCRCByteStream() = default;

void OCRCByteStream::Put(unsigned char byte) {
  std::uint32_t& state = calculator_->state;
  state = calculator_->table[(state ^ byte) & 0xFF] ^ (state >> 8);
  inner_.Put(byte);
}

void OCRCByteStream::WriteBlock(const unsigned char* src, std::uint32_t count) {
  calculator_->state = internal::UpdateCRC32(calculator_->state, src, count);
  inner_.WriteBlock(src, count);
}

void OCRCByteStream::CurPos(unsigned long long pos) { inner_.CurPos(pos); }

unsigned long long OCRCByteStream::CurPos() const { return inner_.CurPos(); }

std::uint32_t OCRCByteStream::Value() const { return ~calculator_->state; }

}  // namespace tvxcore::filesupport
