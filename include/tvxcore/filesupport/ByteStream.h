// tvxcore/filesupport/ByteStream.h: the one-way byte streams of the library.
//
// IByteStream reads bytes and OByteStream writes them; both carry per-stream
// client slots from ByteStream_base. Concrete streams (memory, adapters, files,
// buffers) derive from these two. The exceptions every stream throws are here.
#pragma once

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

#include "tvxcore/Export.h"

namespace tvxcore::filesupport {

// Base of every stream error. Thrown itself when a stream is asked for an
// operation it does not support. Carries no text: what() is std::exception's.
class TVXCORE_EXPORT byte_stream_exception : public std::exception {
 public:
  byte_stream_exception() noexcept = default;
  ~byte_stream_exception() override;
};

// Reading or seeking past the end of a stream, or writing past the end of a
// fixed block.
class TVXCORE_EXPORT eof_error : public byte_stream_exception {
 public:
  eof_error() noexcept = default;
  ~eof_error() override;
};

// Any other failure the platform reports while a stream works.
class TVXCORE_EXPORT io_error : public byte_stream_exception {
 public:
  io_error() noexcept = default;
  ~io_error() override;
};

// Per-stream client state, after the standard stream base: integer and pointer
// slots reached by an index from xalloc(), and callbacks run when the stream
// dies. The library itself never uses slots or callbacks; they let a client
// hang its own state on a stream.
//
// Streams are not copyable. A stream belongs to one thread at a time; nothing
// here locks, and xalloc() is not atomic: callers that take indices on several
// threads serialise those calls themselves.
class TVXCORE_EXPORT ByteStream_base {
 public:
  // The library raises only erase_event, from the destructor.
  enum event { erase_event = 0 };
  using event_callback = void (*)(event, ByteStream_base&, int);

  ByteStream_base(const ByteStream_base&) = delete;
  ByteStream_base& operator=(const ByteStream_base&) = delete;

  // Runs every registered callback, oldest first, as
  // fn(erase_event, *this, index). The derived parts of the stream are
  // already gone by then: a callback may use only this base.
  virtual ~ByteStream_base();

  // A new slot index, valid for every stream: the process-wide counter's value
  // before it is incremented. The first call returns 0.
  static int xalloc();

  // Slot `index` of this stream, grown with zero/null slots when `index` is not
  // below the current size; growing never shrinks. The reference stays good
  // until the next call that grows the same kind of slot. `index` must not be
  // negative.
  std::int32_t& iword(int index);
  void*& pword(int index);

  // Appends (fn, index) to the callbacks. No removal, no duplicate test: a pair
  // registered twice runs twice.
  void register_callback(event_callback fn, int index);

 protected:
  ByteStream_base() = default;

 private:
  std::vector<std::int32_t> iwords_;
  std::vector<void*> pwords_;
  std::vector<std::pair<event_callback, int>> callbacks_;
};

// A stream that reads bytes. Derived classes supply Get and the two CurPos
// operations; a class with a known length overrides Length, and one made for
// bulk data overrides ReadBlock.
class TVXCORE_EXPORT IByteStream : public ByteStream_base {
 public:
  IByteStream() = default;
  ~IByteStream() override;

  // The next byte. Throws eof_error when the stream is exhausted (an adapter
  // may document another behaviour).
  virtual unsigned char Get() = 0;

  // Stores `count` bytes at `dst`, in order. The default calls Get() `count`
  // times; when Get() throws, the bytes before it are already stored.
  virtual void ReadBlock(unsigned char* dst, std::uint32_t count);

  // Moves the read position to `pos`, counted from the start of the stream.
  virtual void CurPos(unsigned long long pos) = 0;
  // The read position, counted from the start of the stream.
  virtual unsigned long long CurPos() const = 0;

  // True when Length() equals CurPos(). With the default Length() that is
  // exactly at position 0.
  virtual bool AtTheEnd() const;

  // The length of the stream; 0 means "not known" and is the default.
  virtual unsigned long long Length() const;
};

// A stream that writes bytes. Derived classes supply Put, the two CurPos
// operations, OSFlush and Truncate; one made for bulk data overrides
// WriteBlock. Streams that hold data back add their own Flush, and those that
// know their length add Length.
class TVXCORE_EXPORT OByteStream : public ByteStream_base {
 public:
  OByteStream() = default;
  ~OByteStream() override;

  virtual void Put(unsigned char byte) = 0;

  // Writes `count` bytes from `src`, in order. The default calls Put() for each.
  virtual void WriteBlock(const unsigned char* src, std::uint32_t count);

  virtual void CurPos(unsigned long long pos) = 0;
  virtual unsigned long long CurPos() const = 0;

  // Asks the platform to commit what was written to its storage.
  virtual void OSFlush() = 0;

  // Sets the length of what was written.
  virtual void Truncate(unsigned long long length) = 0;
};

}  // namespace tvxcore::filesupport
