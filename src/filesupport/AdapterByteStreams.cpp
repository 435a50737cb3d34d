// Byte streams over a standard stream, a deque and a string.
#include "tvxcore/filesupport/AdapterByteStreams.h"

#include <ios>

namespace tvxcore::filesupport {

namespace {

// Repositioning of the container readers is relative and narrow: the distance
// is the low halves subtracted and read as a signed 32-bit number. Within a
// container of less than 2 GiB that is the exact distance.
unsigned long long MoveBy32BitDistance(unsigned long long current, unsigned long long wanted) {
  const auto distance = static_cast<std::int32_t>(static_cast<std::uint32_t>(wanted) -
                                                  static_cast<std::uint32_t>(current));
  return current + static_cast<unsigned long long>(static_cast<long long>(distance));
}

unsigned long long FromStreamPos(std::streampos pos) {
  return static_cast<unsigned long long>(static_cast<std::streamoff>(pos));
}

std::streampos ToStreamPos(unsigned long long pos) {
  return std::streampos(static_cast<std::streamoff>(pos));
}

}  // namespace

IStdByteStream::IStdByteStream(std::istream& stream) : stream_(stream) {}
IStdByteStream::~IStdByteStream() = default;

unsigned char IStdByteStream::Get() { return static_cast<unsigned char>(stream_.get()); }

unsigned long long IStdByteStream::CurPos() const { return FromStreamPos(stream_.tellg()); }

void IStdByteStream::CurPos(unsigned long long pos) { stream_.seekg(ToStreamPos(pos)); }

unsigned long long IStdByteStream::Length() const {
  const unsigned long long saved = CurPos();
  stream_.seekg(0, std::ios_base::end);
  const unsigned long long end = CurPos();
  stream_.seekg(ToStreamPos(saved));
  return end;
}

OStdByteStream::OStdByteStream(std::ostream& stream) : stream_(stream) {}
OStdByteStream::~OStdByteStream() = default;

void OStdByteStream::Put(unsigned char byte) { stream_.put(static_cast<char>(byte)); }

unsigned long long OStdByteStream::CurPos() const { return FromStreamPos(stream_.tellp()); }

void OStdByteStream::CurPos(unsigned long long pos) { stream_.seekp(ToStreamPos(pos)); }

IDequeByteStream::IDequeByteStream(std::deque<unsigned char>& deque) : deque_(deque) {}
IDequeByteStream::~IDequeByteStream() = default;

unsigned char IDequeByteStream::Get() {
  if (pos_ >= deque_.size()) throw eof_error();
  return deque_[pos_++];
}

unsigned long long IDequeByteStream::CurPos() const { return pos_; }

void IDequeByteStream::CurPos(unsigned long long pos) { pos_ = MoveBy32BitDistance(pos_, pos); }

unsigned long long IDequeByteStream::Length() const { return deque_.size(); }

ODequeByteStream::ODequeByteStream(std::deque<unsigned char>& deque) : deque_(deque) {}
ODequeByteStream::~ODequeByteStream() = default;

void ODequeByteStream::Put(unsigned char byte) { deque_.push_back(byte); }

unsigned long long ODequeByteStream::CurPos() const { return deque_.size(); }

void ODequeByteStream::CurPos(unsigned long long) {}

IStringByteStream::IStringByteStream(std::string& string) : string_(string) {}
IStringByteStream::~IStringByteStream() = default;

unsigned char IStringByteStream::Get() {
  if (pos_ >= string_.size()) throw eof_error();
  return static_cast<unsigned char>(string_[pos_++]);
}

unsigned long long IStringByteStream::CurPos() const { return pos_; }

void IStringByteStream::CurPos(unsigned long long pos) { pos_ = MoveBy32BitDistance(pos_, pos); }

unsigned long long IStringByteStream::Length() const { return string_.size(); }

OStringByteStream::OStringByteStream(std::string& string) : string_(string) {}
OStringByteStream::~OStringByteStream() = default;

void OStringByteStream::Put(unsigned char byte) { string_.push_back(static_cast<char>(byte)); }

unsigned long long OStringByteStream::CurPos() const { return string_.size(); }

void OStringByteStream::CurPos(unsigned long long) {}

void OStringByteStream::OSFlush() {}

void OStringByteStream::Truncate(unsigned long long length) {
  if (length > string_.size()) {
    string_.append(static_cast<std::size_t>(length - string_.size()), '\0');
  } else {
    string_.erase(static_cast<std::size_t>(length));
  }
}

}  // namespace tvxcore::filesupport
