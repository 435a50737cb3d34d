// The binary value encoding of byte streams: big-endian integers, framed
// strings and floating values as decimal text, one byte at a time.
#include "tvxcore/filesupport/ByteStreamOperators.h"

#include <cstring>
#include <string_view>
#include <type_traits>

#include "filesupport/internal/DecimalText.h"

namespace tvxcore::filesupport {

namespace {

template <typename T>
void PutBigEndian(OByteStream& out, T value) {
  using U = std::make_unsigned_t<T>;
  const U bits = static_cast<U>(value);
  for (int shift = 8 * (static_cast<int>(sizeof(U)) - 1); shift >= 0; shift -= 8)
    out.Put(static_cast<unsigned char>(bits >> shift));
}

// Each byte goes to its place in the target as soon as it is read, so a read
// cut short by the end of the stream leaves the leading bytes in the target and
// the others as they were.
template <typename T>
void GetBigEndian(IByteStream& in, T& value) {
  using U = std::make_unsigned_t<T>;
  for (int shift = 8 * (static_cast<int>(sizeof(U)) - 1); shift >= 0; shift -= 8) {
    const U byte = in.Get();
    const U mask = static_cast<U>(U(0xFF) << shift);
    value = static_cast<T>((static_cast<U>(value) & static_cast<U>(~mask)) |
                           static_cast<U>(byte << shift));
  }
}

template <typename String>
void PutString(OByteStream& out, const String& value) {
  PutBigEndian(out, static_cast<std::uint64_t>(value.size()));
  for (const auto unit : value) PutBigEndian(out, unit);
}

// Appends one element at a time and reserves nothing from the count, so a
// corrupt count costs no more memory than the stream really holds. The loop
// counter is a signed 32-bit number widened with its sign for the comparison,
// which ends a read of 2^31 or more elements after 2^31 of them.
template <typename String>
void GetString(IByteStream& in, String& value) {
  using Unit = typename String::value_type;
  value.clear();
  std::uint64_t count = 0;
  GetBigEndian(in, count);
  for (std::uint32_t i = 0;
       static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(i))) < count;
       ++i) {
    Unit unit{};
    GetBigEndian(in, unit);
    value.push_back(unit);
  }
}

template <typename T>
void PutDecimal(OByteStream& out, T value) {
  internal::DecimalBuffer buffer;
  const std::size_t size = internal::FormatDecimal(value, buffer);
  PutString(out, std::string_view(buffer.text, size));
}

std::string GetDecimal(IByteStream& in) {
  std::string text;
  text.reserve(48);  // room for any text the writer makes, whatever the count says
  GetString(in, text);
  return text;
}

}  // namespace

OByteStream& operator<<(OByteStream& out, const bool& value) {
  out.Put(value ? 1 : 0);
  return out;
}

// The state of a tribool travels as its object representation, so that a
// state byte outside 0..2 survives a read and a write unchanged.
OByteStream& operator<<(OByteStream& out, const boost::logic::tribool& value) {
  std::underlying_type_t<boost::logic::tribool::value_t> state;
  static_assert(sizeof state == sizeof value.value);
  std::memcpy(&state, &value.value, sizeof state);
  out.Put(static_cast<unsigned char>(state));
  return out;
}

OByteStream& operator<<(OByteStream& out, const char& value) {
  out.Put(static_cast<unsigned char>(value));
  return out;
}
OByteStream& operator<<(OByteStream& out, const signed char& value) {
  out.Put(static_cast<unsigned char>(value));
  return out;
}
OByteStream& operator<<(OByteStream& out, const unsigned char& value) {
  out.Put(value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const short& value) {
  PutBigEndian(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const unsigned short& value) {
  PutBigEndian(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const int& value) {
  PutBigEndian(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const unsigned int& value) {
  PutBigEndian(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const long long& value) {
  PutBigEndian(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const unsigned long long& value) {
  PutBigEndian(out, value);
  return out;
}
// A float goes out as a standard stream prints it: widened to double, which is
// exact.
OByteStream& operator<<(OByteStream& out, const float& value) {
  PutDecimal(out, static_cast<double>(value));
  return out;
}
OByteStream& operator<<(OByteStream& out, const double& value) {
  PutDecimal(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const long double& value) {
  PutDecimal(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const std::string& value) {
  PutString(out, value);
  return out;
}
OByteStream& operator<<(OByteStream& out, const UTF16String& value) {
  PutString(out, value);
  return out;
}

IByteStream& operator>>(IByteStream& in, bool& value) {
  value = in.Get() != 0;
  return in;
}

IByteStream& operator>>(IByteStream& in, boost::logic::tribool& value) {
  const std::underlying_type_t<boost::logic::tribool::value_t> state = in.Get();
  static_assert(sizeof state == sizeof value.value);
  std::memcpy(&value.value, &state, sizeof state);
  return in;
}

IByteStream& operator>>(IByteStream& in, char& value) {
  value = static_cast<char>(in.Get());
  return in;
}
IByteStream& operator>>(IByteStream& in, signed char& value) {
  value = static_cast<signed char>(in.Get());
  return in;
}
IByteStream& operator>>(IByteStream& in, unsigned char& value) {
  value = in.Get();
  return in;
}
IByteStream& operator>>(IByteStream& in, short& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, unsigned short& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, int& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, unsigned int& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, long long& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, unsigned long long& value) {
  GetBigEndian(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, float& value) {
  value = internal::ParseDecimalFloat(GetDecimal(in));
  return in;
}
IByteStream& operator>>(IByteStream& in, double& value) {
  value = internal::ParseDecimalDouble(GetDecimal(in));
  return in;
}
IByteStream& operator>>(IByteStream& in, long double& value) {
  value = internal::ParseDecimalLongDouble(GetDecimal(in));
  return in;
}
IByteStream& operator>>(IByteStream& in, std::string& value) {
  GetString(in, value);
  return in;
}
IByteStream& operator>>(IByteStream& in, UTF16String& value) {
  GetString(in, value);
  return in;
}

OByteStream& operator<<(OByteStream& out, IByteStream& in) {
  const unsigned long long length = in.Length();
  if (length != 0) {
    for (unsigned long long i = 0; i < length; ++i) out.Put(in.Get());
    return out;
  }
  // Unknown length: the end of the source, seen as eof_error, ends the copy.
  try {
    for (;;) out.Put(in.Get());
  } catch (const eof_error&) {
  }
  return out;
}

}  // namespace tvxcore::filesupport
