// Streams for tests: the writers that leave OSFlush and Truncate to a derived
// class, completed with nothing, so that tests can make them directly, a
// reader of the least a stream must have, and the bytes of a string, as they
// are and in hex, and a writer that records its calls.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "tvxcore/filesupport/ByteStream.h"

namespace tvxtest {

inline const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// Bytes as lower-case hex, so that a failed comparison shows the encoding.
inline std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned char b : bytes) text += {kDigits[b >> 4], kDigits[b & 15]};
  return text;
}

template <typename Base>
class Completed : public Base {
 public:
  using Base::Base;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

// A reader with nothing but Get() and the position: Length() stays the
// default. It counts its calls of Get() and fails with io_error at `failAt`.
class UnknownLengthSource : public tvxcore::filesupport::IByteStream {
 public:
  explicit UnknownLengthSource(std::string bytes) : bytes_(std::move(bytes)) {}
  unsigned char Get() override {
    ++gets;
    if (pos_ >= bytes_.size()) throw tvxcore::filesupport::eof_error();
    if (failAt == pos_) throw tvxcore::filesupport::io_error();
    return static_cast<unsigned char>(bytes_[pos_++]);
  }
  void CurPos(unsigned long long pos) override { pos_ = pos; }
  unsigned long long CurPos() const override { return pos_; }

  int gets = 0;
  unsigned long long failAt = ~0ull;

 private:
  std::string bytes_;
  unsigned long long pos_ = 0;
};

// The calls a wrapper made of its inner stream: "@n" a seek, "Rn" a block read
// of n bytes, "G" a Get, "Wxy" a block write of "xy", "Px" a Put, "O"
// OSFlush and "Tn" a truncation.
struct Log {
  std::string calls;
  void operator()(const std::string& call) { calls += (calls.empty() ? "" : " ") + call; }
};

// A writing stream that records every call and what each block held; its
// position is `pos`, whatever was set.
class RecordingSink : public tvxcore::filesupport::OByteStream {
 public:
  void Put(unsigned char byte) override { log("P" + std::string(1, char(byte))); }
  void WriteBlock(const unsigned char* src, std::uint32_t count) override {
    if (failWrites) throw tvxcore::filesupport::io_error();
    log("W" + std::string(src, src + count));
  }
  void CurPos(unsigned long long to) override { log("@" + std::to_string(to)); }
  unsigned long long CurPos() const override { return pos; }
  void OSFlush() override { log("O"); }
  void Truncate(unsigned long long length) override { log("T" + std::to_string(length)); }

  Log log;
  bool failWrites = false;
  unsigned long long pos = 0;
};

}  // namespace tvxtest
