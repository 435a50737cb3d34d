// tvxcore/filesupport/BufferedByteStreams.h: a window of memory in front of
// another byte stream.
//
// IBufferedByteStream and OBufferedByteStream wrap a stream of the same
// direction so that the value operators, which move one byte at a time, and
// small blocks cost a memory access instead of a call to the inner stream.
#pragma once

#include <cstdint>
#include <memory>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"

namespace tvxcore::filesupport {

// Reads `inner` through a window of `bufferSize` bytes whose start is aligned
// to `blockSize`; when the window moves, it keeps one block of history where
// there is room, so a small step back finds its bytes still there.
//
// The position is kept here and not in `inner`, whose own position is
// undefined while the wrapper lives; the length is inner.Length(), taken once
// when the wrapper is made. `inner` is not owned and must outlive the wrapper.
// Exceptions of `inner` pass through unchanged.
//
// ReadBlock() requests of at most bufferSize - blockSize bytes go through the
// window; longer ones go straight to `inner` and leave the window as it is.
// ReadBlock() does not test the length: a request that runs past the end
// copies whatever the window holds beyond the valid bytes (zeros, or bytes of
// an earlier window) and still advances the position by its full count.
//
// Not synchronised: one thread at a time.
class TVXCORE_EXPORT IBufferedByteStream : public IByteStream {
 public:
  // Throws std::invalid_argument when `blockSize` is 0 or greater than
  // `bufferSize`: the window must hold at least one whole block. Throws
  // std::bad_alloc when the buffer can't be had.
  IBufferedByteStream(IByteStream& inner, std::uint32_t bufferSize, std::uint32_t blockSize);
  ~IBufferedByteStream() override;

  // eof_error at or beyond the length.
  unsigned char Get() override;
  void ReadBlock(unsigned char* dst, std::uint32_t count) override;
  // eof_error beyond the length; the length itself is a valid position. Never
  // calls `inner`.
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;
  unsigned long long Length() const override;

 protected:
  // Brings the `count` bytes at `pos` into the window, unless they are all
  // there already. The new window starts at the position rounded down to
  // `blockSize`, one block earlier when that block fits beside the request
  // and the start is beyond the first block; it holds bufferSize bytes, or
  // what is left to the length. Bytes the old window shares with the new one
  // are moved, not read again. When a call to `inner` fails, the window is
  // emptied before the exception passes on (its bytes may already be those of
  // the new place, moved or read in part), so no byte is ever served at a
  // wrong position; the position is left as it was before the failed call.
  virtual void Fill(unsigned long long pos, std::uint32_t count);

 private:
  IByteStream& inner_;
  unsigned long long position_ = 0;
  std::unique_ptr<unsigned char[]> buffer_;
  std::uint32_t bufferSize_;
  std::uint32_t blockSize_;
  unsigned long long bufferStart_ = 0;
  std::uint32_t bufferCount_ = 0;
  unsigned long long length_;
};

// Collects what is written in a window of `bufferSize` bytes and writes it to
// `inner` in one block when the window is full, on a seek outside it, on
// Flush(), OSFlush(), Truncate() and when the wrapper dies. A seek within the
// window, to its very end included, costs no write, and later writes replace
// the window's bytes in memory. A WriteBlock() larger than the window flushes
// it and goes straight to `inner`.
//
// `blockSize` is kept but not used. A `bufferSize` of 0 works as a window of
// one byte. `inner` is not owned and must outlive the wrapper. Exceptions of
// `inner` pass through, except in the destructor, which swallows them: a
// caller who needs to know that the last bytes arrived calls Flush() first.
//
// Not synchronised: one thread at a time.
class TVXCORE_EXPORT OBufferedByteStream : public OByteStream {
 public:
  // Throws std::bad_alloc when the buffer can't be had.
  OBufferedByteStream(OByteStream& inner, std::uint32_t bufferSize, std::uint32_t blockSize);
  ~OBufferedByteStream() override;

  void Put(unsigned char byte) override;
  void WriteBlock(const unsigned char* src, std::uint32_t count) override;
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;
  // Flush(), then inner.OSFlush().
  void OSFlush() override;
  // Flush(), then inner.Truncate(length). The position stays where it was.
  void Truncate(unsigned long long length) override;

  // Writes what the window holds to `inner` at its place, in one block. Does
  // not flush `inner`.
  virtual void Flush();

 private:
  void FlushFull();
  void WriteWindow();

  OByteStream& inner_;
  unsigned long long position_ = 0;
  std::unique_ptr<unsigned char[]> buffer_;
  std::uint32_t bufferSize_;
  [[maybe_unused]] std::uint32_t blockSize_;
  unsigned long long bufferStart_ = 0;
  std::uint32_t bufferCount_ = 0;
};

}  // namespace tvxcore::filesupport
