// Decodes every value type of the byte stream encoding from arbitrary bytes.
// The first byte picks the sequence of types and the reader; the rest is the
// stream. Decoding must never crash, never allocate beyond what the input
// holds, and let no exception but the stream's own escape. Each value read
// is written again and checked against the bytes it came from.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

template <typename T>
std::string Encode(const T& value) {
  std::string bytes;
  fs::OStringByteStream out(bytes);
  out << value;
  return bytes;
}

// The bytes from `before` to the reader's position.
std::string Consumed(const std::string& body, fs::IByteStream& in, unsigned long long before) {
  return body.substr(before, in.CurPos() - before);
}

// Integers, characters and strings re-encode to the very bytes they came from.
template <typename T>
void Exact(fs::IByteStream& in, const std::string& body) {
  const unsigned long long before = in.CurPos();
  T value{};
  in >> value;
  if (Encode(value) != Consumed(body, in, before)) Fail();
}

// Floating text re-encodes canonically; the value is always finite and is a
// fixed point of writing and reading.
template <typename T>
void Floating(fs::IByteStream& in, const std::string&) {
  T value{};
  in >> value;
  if (!std::isfinite(value)) Fail();
  std::string again = Encode(value);
  fs::IStringByteStream reread(again);
  T back{};
  reread >> back;
  if (back != value || std::signbit(back) != std::signbit(value)) Fail();
}

void Bool(fs::IByteStream& in, const std::string& body) {
  const unsigned long long before = in.CurPos();
  bool value = false;
  in >> value;
  if (Encode(value) != std::string(1, body[before] != 0 ? '\1' : '\0')) Fail();
}

using Decoder = void (*)(fs::IByteStream&, const std::string&);
constexpr Decoder kDecoders[] = {
    Bool,
    Exact<boost::logic::tribool>,
    Exact<char>,
    Exact<signed char>,
    Exact<unsigned char>,
    Exact<short>,
    Exact<unsigned short>,
    Exact<std::int32_t>,
    Exact<std::uint32_t>,
    Exact<long long>,
    Exact<unsigned long long>,
    Floating<float>,
    Floating<double>,
    Floating<long double>,
    Exact<std::string>,
    Exact<tvxcore::UTF16String>,
};
constexpr std::uint32_t kDecoderCount = sizeof kDecoders / sizeof kDecoders[0];

std::unique_ptr<fs::IByteStream> MakeReader(int kind, std::string& body,
                                            std::deque<unsigned char>& deque) {
  switch (kind) {
    case 0:
      return std::make_unique<fs::IStringByteStream>(body);
    case 1:
      deque.assign(body.begin(), body.end());
      return std::make_unique<fs::IDequeByteStream>(deque);
    default:
      return std::make_unique<fs::IBufferByteStream>(
          reinterpret_cast<const unsigned char*>(body.data()), body.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::uint32_t state = data[0];
  std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::deque<unsigned char> deque;
  const auto in = MakeReader(static_cast<int>(state % 3), body, deque);

  try {
    for (int step = 0; step < 64; ++step) {
      state = state * 1103515245u + 12345u;
      kDecoders[(state >> 16) % kDecoderCount](*in, body);
    }
  } catch (const fs::eof_error&) {
    return 0;
  }

  // A known length copied from a later position runs out after the rest.
  const unsigned long long rest = in->CurPos();
  std::string tail;
  fs::OStringByteStream out(tail);
  fs::IStringByteStream source(body);
  source.CurPos(rest);
  try {
    out << source;
    Fail();
  } catch (const fs::eof_error&) {
    if (tail != body.substr(rest)) Fail();
  }
  return 0;
}
