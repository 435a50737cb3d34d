// The value encoding of every type and the copy of one stream into another.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <typeinfo>
#include <utility>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;
using tvxcore::UTF16String;

namespace {

using tvxtest::Hex;

std::string Unhex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return bytes;
}

template <typename T>
std::string Encode(const T& value) {
  std::string bytes;
  fs::OStringByteStream out(bytes);
  out << value;
  return bytes;
}

template <typename T>
T Decode(std::string bytes) {
  fs::IStringByteStream in(bytes);
  T value{};
  in >> value;
  EXPECT_TRUE(in.AtTheEnd()) << "bytes left after reading " << Hex(bytes);
  return value;
}

using FixedSink = tvxtest::Completed<fs::OBufferByteStream>;
using tvxtest::UnknownLengthSource;

}  // namespace

TEST(ByteStreamEncoding, EveryValueTypeHasItsExactBytesAndReadsBack) {
  auto check = []<typename T>(T value, const std::string& hex) {
    const std::string bytes = Encode(value);
    EXPECT_EQ(Hex(bytes), hex) << typeid(T).name();
    EXPECT_TRUE(Decode<T>(bytes) == value) << hex << " does not read back";
  };
  check(false, "00");
  check(true, "01");
  check(static_cast<char>(0xE9), "e9");
  check(static_cast<signed char>(-128), "80");
  check(static_cast<unsigned char>(255), "ff");
  check(static_cast<short>(0x1234), "1234");
  check(static_cast<short>(SHRT_MIN), "8000");
  check(static_cast<unsigned short>(0xBEEF), "beef");
  check(std::int32_t{0x12345678}, "12345678");
  check(std::numeric_limits<std::int32_t>::min(), "80000000");
  check(std::numeric_limits<std::uint32_t>::max(), "ffffffff");
  check(0x0102030405060708LL, "0102030405060708");
  check(LLONG_MIN, "8000000000000000");
  check(0xFEDCBA9876543210ULL, "fedcba9876543210");
  check(std::string(), "0000000000000000");
  check(std::string("abc"), "0000000000000003616263");
  check(std::string("a\0b", 3), "0000000000000003610062");
  check(UTF16String(), "0000000000000000");
  check(UTF16String(u"\xFFFF\xD800\x00E9"), "0000000000000003ffffd80000e9");  // lone surrogate
}

// A pointer has no encoding: a literal must not go out as the bool it converts
// to, nor any other pointer.
template <typename T>
concept Writable = requires(fs::OByteStream& out, const T& value) {
  out << value;
};
static_assert(!Writable<char[5]> && !Writable<const char*> && !Writable<int*>);
static_assert(Writable<std::string> && Writable<bool> && Writable<double>);

// long is 8 bytes here and 4 in the encoding: neither may be taken silently.
template <typename T>
concept Readable = requires(fs::IByteStream& in, T& value) {
  in >> value;
};
static_assert(!Writable<long> && !Readable<long> && !Writable<unsigned long> &&
              !Readable<unsigned long>);

TEST(ByteStreamEncoding, AnyNonZeroByteIsTrueAndOddTriboolStatesPassUnchanged) {
  const bool odd = Decode<bool>(Unhex("80"));
  EXPECT_TRUE(odd);
  EXPECT_EQ(Hex(Encode(odd)), "01");

  using boost::logic::tribool;
  EXPECT_EQ(Hex(Encode(tribool(false))), "00");
  EXPECT_EQ(Hex(Encode(tribool(true))), "01");
  EXPECT_EQ(Hex(Encode(tribool(boost::logic::indeterminate))), "02");
  EXPECT_TRUE(bool(Decode<tribool>(Unhex("01"))));
  EXPECT_TRUE(bool(!Decode<tribool>(Unhex("00"))));
  EXPECT_TRUE(boost::logic::indeterminate(Decode<tribool>(Unhex("02"))));

  const tribool oddState = Decode<tribool>(Unhex("07"));
  unsigned state = 0;
  std::memcpy(&state, &oddState.value, sizeof state);
  EXPECT_EQ(state, 7u);
  EXPECT_EQ(Hex(Encode(oddState)), "07");
}

TEST(ByteStreamEncoding, FloatingValuesGoOutAsThirtySixDigitTextAndFiniteOnesReadBackExactly) {
  auto check = []<typename T>(T value, const std::string& text) {
    const std::string bytes = Encode(value);
    EXPECT_EQ(Hex(bytes), Hex(Encode(text))) << text;
    if (!std::isfinite(value)) return;
    const T back = Decode<T>(bytes);
    EXPECT_EQ(back, value) << text;
    EXPECT_EQ(std::signbit(back), std::signbit(value)) << text;
  };
  check(0.1, "0.100000000000000005551115123125782702");
  check(-0.0, "-0");
  check(0.1f, "0.100000001490116119384765625");
  check(1e-5, "1.00000000000000008180305391403130955e-05");
  check(DBL_MAX, "1.79769313486231570814527423731704357e+308");
  check(DBL_MIN, "2.22507385850720138309023271733240406e-308");
  check(std::numeric_limits<double>::denorm_min(), "4.94065645841246544176568792868221372e-324");
  check(FLT_MAX, "3.40282346638528859811704183484516925e+38");
  check(-FLT_MIN, "-1.17549435082228750796873653722224568e-38");
  check(std::numeric_limits<float>::denorm_min(), "1.40129846432481707092372958328991613e-45");
  check(-0.0L, "-0");
  check(1.0L / 3, "0.333333333333333333342368351437379204");
  check(LDBL_MAX, "1.18973149535723176502126385303097021e+4932");
  check(LDBL_MIN, "3.3621031431120935062626778173217526e-4932");
  check(std::numeric_limits<long double>::denorm_min(),
        "3.64519953188247460252840593361941982e-4951");
  check(std::numeric_limits<double>::infinity(), "inf");
  check(-std::numeric_limits<float>::infinity(), "-inf");
  check(-std::numeric_limits<long double>::quiet_NaN(), "-nan");
}

TEST(ByteStreamEncoding, FloatingTextReadsAsAStandardExtractionWould) {
  const double kMax = DBL_MAX;
  const std::pair<std::string, double> rows[] = {
      {"1.5", 1.5},    {" \t\n2.5", 2.5}, {"+3", 3},         {"-0", -0.0},
      {"1.5xyz", 1.5}, {"1.5.7", 1.5},    {"1E2", 100},      {".5e1", 5},
      {"00012", 12},   {"123e-2", 1.23},  {"5.", 5},         {"4e-320", 4e-320},
      {"1e400", kMax}, {"-1e400", -kMax}, {"-1e-400", -0.0}, {"0.0001e400", kMax}};
  for (const auto& [text, expected] : rows) {
    const double value = Decode<double>(Encode(text));
    EXPECT_EQ(value, expected) << '"' << text << '"';
    EXPECT_EQ(std::signbit(value), std::signbit(expected)) << '"' << text << '"';
  }
  EXPECT_EQ(Decode<double>(Encode(std::string("1e99999999999999999999"))), kMax);
  // No number, or an underflow to +0.
  for (const std::string text :
       {"0x10", "1e", "1e+", ".", "-", "", "abc", "--1", "- 5", "+-5", "-+5", "e5", "inf", "-inf",
        "nan", "1e-400", "10000e-330", "0e999999"}) {
    const double value = Decode<double>(Encode(text));
    EXPECT_TRUE(value == 0 && !std::signbit(value)) << '"' << text << '"';
  }
  EXPECT_EQ(Decode<float>(Encode(std::string("1e39"))), FLT_MAX);
  EXPECT_EQ(Decode<float>(Encode(std::string("1e-50"))), 0.0f);
  EXPECT_EQ(Decode<long double>(Encode(std::string("1e5000"))), LDBL_MAX);
  const long double tiny = Decode<long double>(Encode(std::string("-1e-5000")));
  EXPECT_EQ(tiny, 0.0L);
  EXPECT_TRUE(std::signbit(tiny));
}

TEST(ByteStreamEncoding, IntegerCutShortKeepsTheBytesReadInTheirPlaces) {
  auto check = [](const char* hex, auto value, unsigned long long expected) {
    std::string bytes = Unhex(hex);
    fs::IStringByteStream in(bytes);
    EXPECT_THROW(in >> value, fs::eof_error) << hex;
    EXPECT_EQ(static_cast<std::make_unsigned_t<decltype(value)>>(value), expected) << hex;
  };
  check("1234", std::uint32_t{0xAAAAAAAA}, 0x1234AAAAu);
  check("80", short{0x0055}, 0x8055u);
  check("ffffff", 0LL, 0xFFFFFF0000000000ull);
}

TEST(ByteStreamEncoding, StringReadErasesTheTargetBeforeTheCount) {
  std::string cut = Unhex("0000");
  fs::IStringByteStream in(cut);
  UTF16String wide = u"old";
  EXPECT_THROW(in >> wide, fs::eof_error);
  EXPECT_TRUE(wide.empty());
}

// A corrupt count must end in eof_error once the real bytes run out, without
// memory for the claimed size: the capacity would show a reservation from the
// count, and a reservation of 2^63 or more would throw something other than
// eof_error.
TEST(ByteStreamEncoding, CorruptStringCountEndsInEofWithoutReservingIt) {
  for (const std::string count : {"000000007fffffff", "0000000080000000", "ffffffffffffffff"}) {
    std::string bytes = Unhex(count + "616263");
    fs::IStringByteStream in(bytes);
    std::string narrow = "previous";
    EXPECT_THROW(in >> narrow, fs::eof_error) << count;
    EXPECT_EQ(narrow, "abc") << count;
    EXPECT_LT(narrow.capacity(), 64u) << count;

    std::string wideBytes = Unhex(count + "00610062ff");
    fs::IStringByteStream wideIn(wideBytes);
    UTF16String wide;
    EXPECT_THROW(wideIn >> wide, fs::eof_error) << count;
    EXPECT_EQ(wide, UTF16String(u"ab")) << count << ": a unit cut in half is not appended";
    EXPECT_LT(wide.capacity(), 64u) << count;
  }
  // The same through a float, whose text is a framed string.
  std::string floatBytes = Unhex("00000000ffffffff312e35");
  fs::IStringByteStream floatIn(floatBytes);
  double value = 7;
  EXPECT_THROW(floatIn >> value, fs::eof_error);
  EXPECT_EQ(value, 7) << "an unfinished text leaves the target alone";
}

TEST(ByteStreamCopy, KnownLengthMovesExactlyThatManyBytes) {
  std::string source = "hello, world", copy, partial;
  fs::IStringByteStream in(source), late(source);
  fs::OStringByteStream out(copy), partialOut(partial);
  out << in;
  EXPECT_EQ(copy, source);
  EXPECT_TRUE(in.AtTheEnd());

  // The position is not consulted: a source past 0 runs out first.
  late.CurPos(7);
  EXPECT_THROW(partialOut << late, fs::eof_error);
  EXPECT_EQ(partial, "world") << "the bytes before the end are written";
}

TEST(ByteStreamCopy, UnknownLengthCopiesUntilTheEndAndReturnsNormally) {
  for (unsigned long long start : {0ull, 3ull, 6ull}) {
    UnknownLengthSource in("abcdef");
    in.CurPos(start);
    std::string copy;
    fs::OStringByteStream out(copy);
    EXPECT_NO_THROW(out << in) << start;
    EXPECT_EQ(copy, std::string("abcdef").substr(start)) << start;
  }

  // A full fixed sink ends an unknown-length copy just as quietly.
  UnknownLengthSource longer("abcdef");
  unsigned char block[4] = {};
  FixedSink sink(block, sizeof block);
  EXPECT_NO_THROW(sink << longer);
  EXPECT_EQ(sink.Count(), 4u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 4), "abcd");

  // Any other failure passes through.
  UnknownLengthSource failing("abcdef");
  failing.failAt = 2;
  std::string partial;
  fs::OStringByteStream partialOut(partial);
  EXPECT_THROW(partialOut << failing, fs::io_error);
  EXPECT_EQ(partial, "ab");
}
