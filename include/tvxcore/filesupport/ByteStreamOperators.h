// tvxcore/filesupport/ByteStreamOperators.h: the library's binary value encoding.
//
// operator<< writes a value to any OByteStream and operator>> reads it back from
// any IByteStream; the bytes are the same on every host. operator<< of one
// stream into another copies it.
#pragma once

#include <cstdint>
#include <string>

#include <boost/logic/tribool.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport {

// The encoding. Integers are big-endian two's complement at the width of their
// type: 1 byte for the character types and bool, 2 for short, 4 for int and
// unsigned int (std::int32_t, std::uint32_t), 8 for long long and unsigned
// long long. There is no tag, version or alignment: a reader must know the
// sequence of types.
//
//  - long and unsigned long have no operators (they are deleted). The encoding
//    gives them 4 bytes, the width they have where the format was made, but
//    they are 8 bytes wide here, so neither width can be taken without a
//    silent change: code that wrote a long would produce a different file, or
//    lose the high half. The caller says which one it means, std::int32_t or
//    long long. std::int64_t, std::uint64_t and std::size_t are long on this
//    platform and are caught too: write them as long long or unsigned long long.
//
//  - bool goes out as 0 or 1; any non-zero byte reads as true.
//  - tribool goes out as the low byte of its state (0 false, 1 true,
//    2 indeterminate); a byte read is taken into the state as it is, without a
//    range check, and written back unchanged.
//  - std::string: the count of bytes as 8 bytes big-endian, then the bytes.
//  - UTF16String: the count of code units as 8 bytes, then each unit high byte
//    first.
//  - float, double and long double go out as decimal text with 36 significant
//    digits in the shortest of fixed and scientific form ("1.5", "-0",
//    "1e+300", "inf", "nan"), framed as a std::string. The text is read back as
//    a standard stream extracts a number, independent of the locale: leading
//    blanks are skipped, the longest prefix of the form [+-]digits[.digits]
//    [e[+-]digits] is converted, and the rest is ignored. Text that does not
//    convert ("", "abc", "1e", and so "inf" and "nan" too) gives 0, too large a
//    value gives the type's largest finite one with its sign, too small a value
//    the nearest subnormal or zero with its sign. No exception comes from the
//    text.
//
// Every operator works one byte at a time through Get() or Put(), never
// through the block operations. A read that the end of the stream cuts short
// throws eof_error: an integer then holds the bytes read so far in their
// places (the others untouched), a string holds the elements appended so far.
// String reads reserve nothing from the count, so a corrupt count costs no
// more memory than the stream holds; a count of 2^31 or more ends the read
// after 2^31 elements.

TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const bool& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const boost::logic::tribool& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const char& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const signed char& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const unsigned char& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const short& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const unsigned short& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const int& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const unsigned int& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const long long& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const unsigned long long& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const float& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const double& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const long double& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const std::string& value);
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, const UTF16String& value);

// A pointer has no encoding; without these, a string literal would go out as
// the bool "true".
OByteStream& operator<<(OByteStream& out, const char* value) = delete;
OByteStream& operator<<(OByteStream& out, const void* value) = delete;

// No width is right for long and unsigned long (see above): choose
// std::int32_t or long long (std::uint32_t or unsigned long long).
OByteStream& operator<<(OByteStream& out, const long& value) = delete;
OByteStream& operator<<(OByteStream& out, const unsigned long& value) = delete;
IByteStream& operator>>(IByteStream& in, long& value) = delete;
IByteStream& operator>>(IByteStream& in, unsigned long& value) = delete;

TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, bool& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, boost::logic::tribool& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, char& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, signed char& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, unsigned char& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, short& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, unsigned short& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, int& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, unsigned int& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, long long& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, unsigned long long& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, float& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, double& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, long double& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, std::string& value);
TVXCORE_EXPORT IByteStream& operator>>(IByteStream& in, UTF16String& value);

// Copies `in` into `out` with Get() and Put(), whatever the position of `in`.
// When in.Length() is non-zero, exactly that many bytes are moved: a source not
// at position 0 runs out first and its eof_error reaches the caller, the bytes
// before it written. When in.Length() is 0 the length is taken as unknown and
// bytes move until an eof_error comes, which ends the copy normally; that is
// also true of an eof_error from `out` (a full fixed block). Other exceptions
// pass through.
TVXCORE_EXPORT OByteStream& operator<<(OByteStream& out, IByteStream& in);

}  // namespace tvxcore::filesupport
