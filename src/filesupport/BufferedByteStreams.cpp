// The buffered streams: a read window that moves in blocks, and a write window
// flushed in one block.
#include "tvxcore/filesupport/BufferedByteStreams.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace tvxcore::filesupport {

// ---- IBufferedByteStream ---------------------------------------------------

namespace {
std::uint32_t CheckedBlockSize(std::uint32_t bufferSize, std::uint32_t blockSize) {
  if (blockSize == 0 || blockSize > bufferSize) {
    throw std::invalid_argument("IBufferedByteStream: block size must be 1 to the buffer size");
  }
  return blockSize;
}
}  // namespace

IBufferedByteStream::IBufferedByteStream(IByteStream& inner, std::uint32_t bufferSize,
                                         std::uint32_t blockSize)
    : inner_(inner),
      bufferSize_(bufferSize),
      blockSize_(CheckedBlockSize(bufferSize, blockSize)),
      length_(0) {
  // Zeroed, so a read past the valid bytes never hands out stale heap memory.
  buffer_.reset(new unsigned char[bufferSize]());
  length_ = inner.Length();
}

IBufferedByteStream::~IBufferedByteStream() = default;

unsigned char IBufferedByteStream::Get() {
  if (position_ >= length_) throw eof_error();
  unsigned long long offset = position_ - bufferStart_;
  if (position_ < bufferStart_ || offset >= bufferCount_) {
    Fill(position_, 1);
    offset = position_ - bufferStart_;
    // Only a derived Fill() could leave the byte outside the buffer.
    if (position_ < bufferStart_ || offset >= bufferSize_) throw io_error();
  }
  ++position_;
  return buffer_[offset];
}

void IBufferedByteStream::ReadBlock(unsigned char* dst, std::uint32_t count) {
  if (count <= bufferSize_ - blockSize_) {
    Fill(position_, count);
    const unsigned long long offset = position_ - bufferStart_;
    if (position_ < bufferStart_ || offset > bufferSize_ || count > bufferSize_ - offset) {
      throw io_error();
    }
    if (count != 0) std::memcpy(dst, buffer_.get() + offset, count);
  } else {
    inner_.CurPos(position_);
    inner_.ReadBlock(dst, count);
  }
  position_ += count;
}

void IBufferedByteStream::CurPos(unsigned long long pos) {
  if (pos > length_) throw eof_error();
  position_ = pos;
}

unsigned long long IBufferedByteStream::CurPos() const { return position_; }

unsigned long long IBufferedByteStream::Length() const { return length_; }

void IBufferedByteStream::Fill(unsigned long long pos, std::uint32_t count) {
  unsigned char* const buffer = buffer_.get();
  const unsigned long long oldEnd = bufferStart_ + bufferCount_;

  // 1. The bytes are there already.
  if (pos >= bufferStart_ && pos - bufferStart_ <= bufferCount_ &&
      count <= bufferCount_ - (pos - bufferStart_)) {
    return;
  }

  // 2. The window starts at the position rounded down to a block...
  unsigned long long newStart = position_ - position_ % blockSize_;

  // 3. ...or one block earlier, when that block of history fits beside the
  // request and the start lies beyond the first block.
  const unsigned long long room = bufferSize_ - blockSize_;
  if (pos >= newStart && pos - newStart < room && count < room - (pos - newStart) &&
      newStart > blockSize_) {
    newStart -= blockSize_;
  }

  // 4. A full buffer, or what is left to the length. Beyond the length the
  // difference wraps and the buffer's size stands.
  const auto newCount =
      static_cast<std::uint32_t>(std::min<unsigned long long>(length_ - newStart, bufferSize_));

  // The buffer may already hold bytes of the new place when a call to `inner`
  // fails (moved in steps 5 and 7, or read in part), so a failure empties the
  // window: nothing is served from it until a fill succeeds.
  try {
    if (newStart >= bufferStart_ && newStart < oldEnd) {
      // 5. Forward with overlap: keep the shared tail, read the rest behind it.
      const auto keep = static_cast<std::uint32_t>(oldEnd - newStart);
      std::memmove(buffer, buffer + (newStart - bufferStart_), keep);
      inner_.CurPos(newStart + keep);
      inner_.ReadBlock(buffer + keep, newCount > keep ? newCount - keep : 0);
    } else if (newStart < bufferStart_ && newStart + newCount >= bufferStart_ &&
               newStart + newCount <= oldEnd) {
      // 7. Backward with overlap: slide the shared head up, read the gap before it.
      // Only when the old window reaches the new one's end, which an emptied
      // window does not: its bytes would be taken as valid without a read.
      const auto gap = static_cast<std::uint32_t>(bufferStart_ - newStart);
      const auto slide = static_cast<std::uint32_t>(
          std::min<unsigned long long>(bufferCount_, newStart + newCount - bufferStart_));
      std::memmove(buffer + gap, buffer, slide);
      inner_.CurPos(newStart);
      inner_.ReadBlock(buffer, gap);
    } else {
      // 6 and 8. No overlap: read the whole window.
      inner_.CurPos(newStart);
      inner_.ReadBlock(buffer, newCount);
    }
  } catch (...) {
    bufferCount_ = 0;
    throw;
  }

  // 9.
  bufferStart_ = newStart;
  bufferCount_ = newCount;
}

// ---- OBufferedByteStream ---------------------------------------------------

OBufferedByteStream::OBufferedByteStream(OByteStream& inner, std::uint32_t bufferSize,
                                         std::uint32_t blockSize)
    : inner_(inner),
      buffer_(new unsigned char[std::max<std::uint32_t>(bufferSize, 1)]()),
      bufferSize_(bufferSize),
      blockSize_(blockSize) {}

OBufferedByteStream::~OBufferedByteStream() {
  try {
    WriteWindow();
  } catch (...) {
    // Lost by design: a caller who cares calls Flush() first.
  }
}

void OBufferedByteStream::Put(unsigned char byte) {
  if (bufferCount_ != 0 && position_ - bufferStart_ + 1 > bufferSize_) FlushFull();
  if (bufferCount_ == 0) bufferStart_ = position_;
  const auto offset = static_cast<std::uint32_t>(position_ - bufferStart_);
  buffer_[offset] = byte;
  ++position_;
  if (offset + 1 > bufferCount_) bufferCount_ = offset + 1;
}

void OBufferedByteStream::WriteBlock(const unsigned char* src, std::uint32_t count) {
  if (bufferCount_ != 0 && position_ - bufferStart_ + count > bufferSize_) FlushFull();
  if (count > bufferSize_) {
    inner_.CurPos(position_);
    inner_.WriteBlock(src, count);
    position_ += count;
    return;
  }
  if (bufferCount_ == 0) bufferStart_ = position_;
  const auto offset = static_cast<std::uint32_t>(position_ - bufferStart_);
  if (count != 0) std::memcpy(buffer_.get() + offset, src, count);
  position_ += count;
  if (offset + count > bufferCount_) bufferCount_ = offset + count;
}

void OBufferedByteStream::CurPos(unsigned long long pos) {
  if (bufferCount_ == 0 || (pos >= bufferStart_ && pos - bufferStart_ <= bufferCount_)) {
    position_ = pos;
    return;
  }
  Flush();
  position_ = pos;
}

unsigned long long OBufferedByteStream::CurPos() const { return position_; }

void OBufferedByteStream::Flush() { WriteWindow(); }

void OBufferedByteStream::FlushFull() {
  Flush();
  // A derived Flush() that keeps the bytes back would leave no room for more.
  WriteWindow();
}

void OBufferedByteStream::WriteWindow() {
  if (bufferCount_ == 0) return;
  inner_.CurPos(bufferStart_);
  inner_.WriteBlock(buffer_.get(), bufferCount_);
  bufferCount_ = 0;
}

void OBufferedByteStream::OSFlush() {
  Flush();
  inner_.OSFlush();
}

void OBufferedByteStream::Truncate(unsigned long long length) {
  Flush();
  inner_.Truncate(length);
}

}  // namespace tvxcore::filesupport
