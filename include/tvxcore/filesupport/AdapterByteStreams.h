// tvxcore/filesupport/AdapterByteStreams.h: byte streams over a standard
// stream, a std::deque<unsigned char> and a std::string.
//
// None of them owns what it wraps: the container or standard stream is the
// caller's, is held by reference and must outlive the byte stream. A wrapped
// container must not change while a reading stream reads it. Like every byte
// stream, each belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <istream>
#include <ostream>
#include <string>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"

namespace tvxcore::filesupport {

// Reads a std::istream. Get() at the end of the standard stream does not throw:
// it returns 0xFF (the end-of-file value cut to a byte) and leaves the standard
// stream's own flags set, so the value operators would read 0xFF bytes for
// ever. Use it for input of known extent.
class TVXCORE_EXPORT IStdByteStream : public IByteStream {
 public:
  explicit IStdByteStream(std::istream& stream);
  ~IStdByteStream() override;

  unsigned char Get() override;
  // tellg(); a standard stream in a failed state gives 2^64 - 1.
  unsigned long long CurPos() const override;
  // An absolute seekg().
  void CurPos(unsigned long long pos) override;
  // The end position. Costs two seeks: it moves the standard stream to its end
  // and back.
  unsigned long long Length() const override;

 private:
  std::istream& stream_;
};

// Writes a std::ostream. A failed put shows only in the standard stream's
// flags. OSFlush and Truncate are left to a derived class.
class TVXCORE_EXPORT OStdByteStream : public OByteStream {
 public:
  explicit OStdByteStream(std::ostream& stream);
  ~OStdByteStream() override;

  void Put(unsigned char byte) override;
  // tellp().
  unsigned long long CurPos() const override;
  // An absolute seekp().
  void CurPos(unsigned long long pos) override;

 private:
  std::ostream& stream_;
};

// Reads a deque from its first element. Repositioning is relative: the
// distance from the current position is taken as a signed 32-bit number, so it
// is exact within a deque of less than 2 GiB. A position may be set beyond the
// end; AtTheEnd() is then false and Get() throws eof_error.
class TVXCORE_EXPORT IDequeByteStream : public IByteStream {
 public:
  explicit IDequeByteStream(std::deque<unsigned char>& deque);
  ~IDequeByteStream() override;

  // Throws eof_error at or beyond the end.
  unsigned char Get() override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;
  // The deque's size.
  unsigned long long Length() const override;

 private:
  std::deque<unsigned char>& deque_;
  unsigned long long pos_ = 0;
};

// Appends to a deque. Put() always appends, wherever the position was set;
// CurPos() is the deque's size and setting it does nothing. OSFlush and
// Truncate are left to a derived class.
class TVXCORE_EXPORT ODequeByteStream : public OByteStream {
 public:
  explicit ODequeByteStream(std::deque<unsigned char>& deque);
  ~ODequeByteStream() override;

  void Put(unsigned char byte) override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;

 private:
  std::deque<unsigned char>& deque_;
};

// Reads a string from its first character, repositioning as IDequeByteStream
// does: relative, exact within 2 GiB, beyond the end allowed with Get()
// throwing eof_error there.
class TVXCORE_EXPORT IStringByteStream : public IByteStream {
 public:
  explicit IStringByteStream(std::string& string);
  ~IStringByteStream() override;

  // Throws eof_error at or beyond the end.
  unsigned char Get() override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;
  // The string's size.
  unsigned long long Length() const override;

 private:
  std::string& string_;
  unsigned long long pos_ = 0;
};

// Appends to a string: the one complete writing stream among the adapters and
// memory streams. Put() always appends; CurPos() is the string's size and
// setting it does nothing; OSFlush() does nothing.
class TVXCORE_EXPORT OStringByteStream : public OByteStream {
 public:
  explicit OStringByteStream(std::string& string);
  ~OStringByteStream() override;

  void Put(unsigned char byte) override;
  unsigned long long CurPos() const override;
  void CurPos(unsigned long long pos) override;
  void OSFlush() override;
  // Works both ways: a longer `length` appends zero bytes, a shorter one
  // erases everything from index `length` on.
  void Truncate(unsigned long long length) override;

 private:
  std::string& string_;
};

}  // namespace tvxcore::filesupport
