// The run-length coding filters.
#include "tvxcore/filesupport/RLEByteStreams.h"

namespace tvxcore::filesupport {

namespace {

// The header that announces no data and is skipped by the reader.
constexpr unsigned char kNoOperation = 0x80;

}  // namespace

ORLEByteStream::ORLEByteStream(OByteStream& inner) : inner_(inner) {}

// Held-back bytes are not written: a coded write ends with Flush().
ORLEByteStream::~ORLEByteStream() = default;

void ORLEByteStream::Put(unsigned char byte) {
  if (count_ == 0) {
    pending_[0] = byte;
    count_ = 1;
    inRun_ = true;
    return;
  }
  if (inRun_ && byte != pending_[0]) {
    if (count_ == 1) {
      // A lone byte followed by another: both start a literal sequence.
      inRun_ = false;
    } else {
      WriteBlockToStream();
      pending_[0] = byte;
      inRun_ = true;
      ++count_;
      return;  // a new run of one can't be full
    }
  }
  if (!inRun_) {
    if (count_ > 2 && byte == pending_[count_ - 1] && byte == pending_[count_ - 2]) {
      // Three equal bytes end the literals and start a run of three.
      count_ -= 2;
      try {
        WriteBlockToStream();
      } catch (...) {
        count_ += 2;  // the two bytes stay held back with the literals
        throw;
      }
      pending_[0] = byte;
      count_ = 3;
      inRun_ = true;
      return;
    }
    pending_[count_] = byte;
  }
  if (++count_ == kMaxBlock) {
    try {
      WriteBlockToStream();
    } catch (...) {
      --count_;  // the byte is not taken: the block stays one short of full
      throw;
    }
  }
}

// The held-back bytes count as written only once `inner` took them all: a
// failed write leaves them (a run's length included) for the next call.
void ORLEByteStream::WriteBlockToStream() {
  auto header = static_cast<unsigned char>(count_ - 1);
  int bytes = count_;
  if (inRun_ && header != 0) {
    header = static_cast<unsigned char>(-header);
    bytes = 1;  // a run carries its byte once
  }
  inner_.Put(header);
  inner_.WriteBlock(pending_, static_cast<std::uint32_t>(bytes));
  count_ = 0;
}

void ORLEByteStream::Flush() {
  if (count_ > 0) WriteBlockToStream();
}

void ORLEByteStream::CurPos(unsigned long long) { throw byte_stream_exception(); }

unsigned long long ORLEByteStream::CurPos() const { throw byte_stream_exception(); }

IRLEByteStream::IRLEByteStream(IByteStream& inner) : inner_(inner) {}
IRLEByteStream::~IRLEByteStream() = default;

unsigned char IRLEByteStream::Get() {
  if (literalCount_ == 0 && repeatCount_ == 0) {
    unsigned char header = inner_.Get();
    while (header == kNoOperation) header = inner_.Get();
    const auto length = static_cast<signed char>(header);
    if (length >= 0) {
      literalCount_ = length + 1;
    } else {
      repeatCount_ = 1 - length;
      repeatByteDue_ = true;
    }
  }
  if (literalCount_ > 0) {
    // Read before counting, so that a failed read leaves the byte owed.
    const unsigned char byte = inner_.Get();
    --literalCount_;
    return byte;
  }
  if (repeatByteDue_) {
    repeatByte_ = inner_.Get();
    repeatByteDue_ = false;
  }
  --repeatCount_;
  return repeatByte_;
}

void IRLEByteStream::CurPos(unsigned long long) { throw byte_stream_exception(); }

unsigned long long IRLEByteStream::CurPos() const { throw byte_stream_exception(); }

unsigned long long IRLEByteStream::Length() const { return 0; }

bool IRLEByteStream::InBlock() const { return literalCount_ > 0 || repeatCount_ > 0; }

}  // namespace tvxcore::filesupport
