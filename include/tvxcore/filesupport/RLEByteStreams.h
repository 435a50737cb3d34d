// tvxcore/filesupport/RLEByteStreams.h: a byte-oriented run-length code as a
// pair of filter streams.
//
// ORLEByteStream codes what is written to it into another stream;
// IRLEByteStream reads such a code from another stream and gives back the
// original bytes. The code is a sequence of blocks, each opened by one header
// byte h taken as a signed 8-bit number:
//
//   00..7F  literal: the next h + 1 bytes (1 to 128) stand for themselves
//   80      no operation: nothing follows; readers skip it, the writer never
//           writes it
//   81..FF  run: the one next byte stands for 1 - h copies (128 down to 2)
//
// Nothing frames the sequence: no header, length, terminator or checksum. The
// code ends where the inner stream ends. The writer starts a run only for two
// equal bytes at the very start of a block or for three equal bytes within
// literals, so the code of a given input is always the same bytes.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"

namespace tvxcore::filesupport {

// Codes the bytes written to it into `inner`, holding back at most one block
// (128 bytes). Blocks go to `inner` as a header Put() followed by one
// WriteBlock() of its data bytes, when a block is full, when a run or a
// literal sequence ends, and on Flush().
//
// Flush() must be the last call of every coded write: the destructor writes
// nothing, so bytes not flushed are lost. Flush() does not flush `inner`.
//
// A coded stream has no positions: both CurPos() operations throw
// byte_stream_exception. WriteBlock() is the loop over Put() of OByteStream.
// OSFlush() and Truncate() are left to a derived class, which says what they
// mean for the coded data.
//
// `inner` is not owned and must outlive this stream. Exceptions of `inner`
// pass through; the held-back bytes stay as they were before the failing
// call, so Put or Flush may be called again once `inner` takes bytes (what
// `inner` kept of the failed block is its own). One thread at a time.
class TVXCORE_EXPORT ORLEByteStream : public OByteStream {
 public:
  explicit ORLEByteStream(OByteStream& inner);
  ~ORLEByteStream() override;

  void Put(unsigned char byte) override;
  // Throw byte_stream_exception.
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;

  // Writes the block held back, if any. Calling it again, or with nothing
  // written, writes nothing.
  virtual void Flush();

 protected:
  // Writes the held-back bytes as one block: a run of two or more as its
  // header and the one byte, anything else (a lone byte included) as a
  // literal block.
  virtual void WriteBlockToStream();

 private:
  static constexpr int kMaxBlock = 128;

  OByteStream& inner_;
  bool inRun_ = true;
  int count_ = 0;  // bytes held back, 0 to kMaxBlock
  // A run's byte at index 0, or the literal bytes in order.
  unsigned char pending_[kMaxBlock] = {};
};

// Gives back the bytes whose code `inner` holds. It reads `inner` only as far
// as it needs: one header, then a literal byte or a run's byte as Get() asks
// for them.
//
// The end of the code shows as the eof_error of `inner`, at a block header or
// within a block alike; InBlock() tells which. The reader accepts more than
// the writer writes: 80 headers and literal blocks of equal bytes decode
// without complaint.
//
// Length() is 0 (not known), both CurPos() operations and so AtTheEnd() throw
// byte_stream_exception, and ReadBlock() is the loop over Get() of
// IByteStream.
//
// `inner` is not owned and must outlive this stream. Exceptions of `inner`
// pass through. A Get() that fails has consumed only the bytes it could read,
// and the reader keeps its place: when `inner` has more bytes later (a growing
// deque, say), the next Get() goes on exactly where the code broke off. One
// thread at a time.
class TVXCORE_EXPORT IRLEByteStream : public IByteStream {
 public:
  explicit IRLEByteStream(IByteStream& inner);
  ~IRLEByteStream() override;

  unsigned char Get() override;
  // Throw byte_stream_exception.
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;
  // 0: a coded stream doesn't know the length of what it gives.
  unsigned long long Length() const override;

  // True while the last block header read promises bytes that haven't been
  // given yet. After an eof_error it tells a code cut short inside a block
  // (true) from one that ended cleanly between blocks (false).
  bool InBlock() const;

 private:
  IByteStream& inner_;
  int literalCount_ = 0;  // literal bytes of the current block still to come
  int repeatCount_ = 0;   // copies of the current run still to give
  unsigned char repeatByte_ = 0;
  bool repeatByteDue_ = false;  // the run's header is read, its byte not yet
};

}  // namespace tvxcore::filesupport
