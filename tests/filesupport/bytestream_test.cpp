// The stream bases, their client slots, the exceptions, the value encoding and
// the stream copy.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <typeinfo>
#include <vector>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;
using tvxcore::UTF16String;

namespace {

// Bytes as lower-case hex, so a failed comparison shows the encoding.
std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned char b : bytes) {
    text += kDigits[b >> 4];
    text += kDigits[b & 15];
  }
  return text;
}

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

// Decimal text framed as a string: the 8-byte count, then the characters.
std::string FramedText(const std::string& text) { return Encode(text); }

// A reader with nothing but Get() and the position: Length() stays the default.
class UnknownLengthSource : public fs::IByteStream {
 public:
  explicit UnknownLengthSource(std::string bytes) : bytes_(std::move(bytes)) {}
  unsigned char Get() override {
    ++gets;
    if (pos_ >= bytes_.size()) throw fs::eof_error();
    if (failAt == pos_) throw fs::io_error();
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

// A writer that records each Put().
class RecordingSink : public fs::OByteStream {
 public:
  void Put(unsigned char byte) override { bytes += static_cast<char>(byte); }
  void CurPos(unsigned long long) override {}
  unsigned long long CurPos() const override { return bytes.size(); }
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
  std::string bytes;
};

class FixedSink : public fs::OBufferByteStream {
 public:
  using OBufferByteStream::OBufferByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

}  // namespace

TEST(ByteStreamBase, XallocHandsOutConsecutiveIndicesForAllStreams) {
  const int first = fs::ByteStream_base::xalloc();
  const int second = fs::ByteStream_base::xalloc();
  const int third = fs::ByteStream_base::xalloc();
  EXPECT_GE(first, 0);
  EXPECT_EQ(second, first + 1);
  EXPECT_EQ(third, first + 2);
}

TEST(ByteStreamBase, SlotsGrowWithZeroesAndNeverShrink) {
  std::string storage;
  fs::OStringByteStream stream(storage);
  EXPECT_EQ(stream.iword(5), 0);
  stream.iword(5) = 77;
  EXPECT_EQ(stream.iword(2), 0);
  stream.iword(2) = -3;
  EXPECT_EQ(stream.iword(5), 77);
  EXPECT_EQ(stream.iword(2), -3);
  EXPECT_EQ(stream.iword(0), 0);

  int marker = 0;
  EXPECT_EQ(stream.pword(3), nullptr);
  stream.pword(3) = &marker;
  EXPECT_EQ(stream.pword(1), nullptr);
  EXPECT_EQ(stream.pword(3), &marker);
  // Integer and pointer slots are separate.
  EXPECT_EQ(stream.iword(3), 0);

  std::string other;
  fs::OStringByteStream second(other);
  EXPECT_EQ(second.iword(5), 0) << "slots belong to one stream";
}

namespace {
struct CallbackRecord {
  char name;
  fs::ByteStream_base::event event;
  const void* stream;
  int index;
  std::int32_t slot;
};
std::vector<CallbackRecord> S_calls;
void CallbackA(fs::ByteStream_base::event e, fs::ByteStream_base& s, int index) {
  S_calls.push_back({'A', e, &s, index, s.iword(index)});
}
void CallbackB(fs::ByteStream_base::event e, fs::ByteStream_base& s, int index) {
  S_calls.push_back({'B', e, &s, index, s.iword(index)});
}
}  // namespace

TEST(ByteStreamBase, CallbacksRunOldestFirstWhenTheStreamDies) {
  S_calls.clear();
  const void* address = nullptr;
  {
    std::string storage;
    fs::OStringByteStream stream(storage);
    address = static_cast<fs::ByteStream_base*>(&stream);
    stream.iword(1) = 11;
    stream.iword(4) = 44;
    stream.register_callback(CallbackA, 1);
    stream.register_callback(CallbackB, 4);
    stream.register_callback(CallbackA, 1);  // twice: runs twice
    EXPECT_TRUE(S_calls.empty()) << "nothing runs before the stream dies";
  }
  ASSERT_EQ(S_calls.size(), 3u);
  const char names[] = {'A', 'B', 'A'};
  const int indices[] = {1, 4, 1};
  const std::int32_t slots[] = {11, 44, 11};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(S_calls[i].name, names[i]) << i;
    EXPECT_EQ(S_calls[i].event, fs::ByteStream_base::erase_event);
    EXPECT_EQ(static_cast<int>(S_calls[i].event), 0);
    EXPECT_EQ(S_calls[i].stream, address);
    EXPECT_EQ(S_calls[i].index, indices[i]);
    EXPECT_EQ(S_calls[i].slot, slots[i]) << "slots are still there for the callbacks";
  }
}

TEST(ByteStreamBase, DefaultOperationsLoopOverGetAndPut) {
  UnknownLengthSource source("abcdef");
  EXPECT_EQ(source.Length(), 0u);
  EXPECT_TRUE(source.AtTheEnd()) << "default length 0 is reached at position 0";

  unsigned char block[8] = {};
  source.ReadBlock(block, 0);
  EXPECT_EQ(source.gets, 0) << "a count of 0 reads nothing";
  source.ReadBlock(block, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 3), "abc");
  EXPECT_EQ(source.gets, 3);
  EXPECT_FALSE(source.AtTheEnd());

  std::memset(block, '-', sizeof block);
  EXPECT_THROW(source.ReadBlock(block, 5), fs::eof_error);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 5), "def--")
      << "bytes before the end are stored";

  RecordingSink sink;
  const unsigned char bytes[] = {1, 2, 3};
  sink.WriteBlock(bytes, 0);
  EXPECT_TRUE(sink.bytes.empty());
  sink.WriteBlock(bytes, 3);
  EXPECT_EQ(sink.bytes, std::string("\x01\x02\x03"));
}

TEST(ByteStreamExceptions, CarryNoTextAndCatchAsTheirBase) {
  const std::string plain = std::exception().what();
  const std::function<void()> throwers[] = {
      [] { throw fs::byte_stream_exception(); },
      [] { throw fs::eof_error(); },
      [] { throw fs::io_error(); },
  };
  for (const auto& thrower : throwers) {
    try {
      thrower();
      ADD_FAILURE() << "nothing thrown";
    } catch (const fs::byte_stream_exception& e) {
      EXPECT_EQ(std::string(e.what()), plain);
    }
  }
  try {
    throw fs::eof_error();
  } catch (const fs::io_error&) {
    ADD_FAILURE() << "eof_error is not an io_error";
  } catch (const fs::eof_error& e) {
    fs::eof_error copy(e);
    copy = e;
    EXPECT_EQ(typeid(copy), typeid(fs::eof_error));
  }
}

TEST(ByteStreamEncoding, EveryValueTypeHasItsExactBytesAndReadsBack) {
  struct Row {
    std::string what;
    std::string encoded;                        // what the operator wrote
    std::string expected;                       // hex
    std::function<bool(std::string)> readBack;  // decodes and compares
  };
  std::vector<Row> rows;
  auto add = [&rows]<typename T>(const std::string& what, T value, const std::string& hex) {
    rows.push_back({what, Encode(value), hex,
                    [value](std::string bytes) { return Decode<T>(bytes) == value; }});
  };
  add("bool false", false, "00");
  add("bool true", true, "01");
  add("char", 'A', "41");
  add("char high", static_cast<char>(0xE9), "e9");
  add("signed char min", static_cast<signed char>(-128), "80");
  add("signed char max", static_cast<signed char>(127), "7f");
  add("unsigned char", static_cast<unsigned char>(255), "ff");
  add("short", static_cast<short>(0x1234), "1234");
  add("short -1", static_cast<short>(-1), "ffff");
  add("short min", static_cast<short>(SHRT_MIN), "8000");
  add("short max", static_cast<short>(SHRT_MAX), "7fff");
  add("unsigned short", static_cast<unsigned short>(0xBEEF), "beef");
  add("int32", std::int32_t{0x12345678}, "12345678");
  add("int32 -2", std::int32_t{-2}, "fffffffe");
  add("int32 min", std::numeric_limits<std::int32_t>::min(), "80000000");
  add("int32 max", std::numeric_limits<std::int32_t>::max(), "7fffffff");
  add("uint32", std::uint32_t{0x12345678}, "12345678");
  add("uint32 max", std::numeric_limits<std::uint32_t>::max(), "ffffffff");
  add("long", 0x0102030405060708L, "0102030405060708");
  add("long min", LONG_MIN, "8000000000000000");
  add("unsigned long", 0xFEDCBA9876543210UL, "fedcba9876543210");
  add("long long -1", -1LL, "ffffffffffffffff");
  add("long long max", LLONG_MAX, "7fffffffffffffff");
  add("unsigned long long", 0x8000000000000001ULL, "8000000000000001");
  add("string empty", std::string(), "0000000000000000");
  add("string abc", std::string("abc"), "0000000000000003616263");
  add("string with zero", std::string("a\0b", 3), "0000000000000003610062");
  add("utf16 A", UTF16String(u"A"), "00000000000000010041");
  add("utf16 empty", UTF16String(), "0000000000000000");
  add("utf16 lone surrogate", UTF16String(u"\xFFFF\xD800\x00E9"), "0000000000000003ffffd80000e9");
  add("float", 1.5f, "0000000000000003312e35");
  add("double", 1.5, "0000000000000003312e35");
  add("long double", 1.5L, "0000000000000003312e35");
  add("double -2", -2.0, "00000000000000022d32");

  for (const Row& row : rows) {
    EXPECT_EQ(Hex(row.encoded), row.expected) << row.what;
    EXPECT_TRUE(row.readBack(row.encoded)) << row.what << " does not read back";
  }
}

// A pointer has no encoding: a literal must not go out as the bool it converts
// to, nor any other pointer.
template <typename T>
concept Writable = requires(fs::OByteStream& out, const T& value) {
  out << value;
};
static_assert(!Writable<char[5]>);
static_assert(!Writable<const char*>);
static_assert(!Writable<int*>);
static_assert(Writable<std::string> && Writable<bool> && Writable<double>);

TEST(ByteStreamEncoding, TriboolStateTravelsAsOneByte) {
  using boost::logic::tribool;
  EXPECT_EQ(Hex(Encode(tribool(false))), "00");
  EXPECT_EQ(Hex(Encode(tribool(true))), "01");
  EXPECT_EQ(Hex(Encode(tribool(boost::logic::indeterminate))), "02");
  EXPECT_TRUE(bool(Decode<tribool>(Unhex("01"))));
  EXPECT_TRUE(bool(!Decode<tribool>(Unhex("00"))));
  EXPECT_TRUE(boost::logic::indeterminate(Decode<tribool>(Unhex("02"))));

  // A state byte out of range is taken as it is and written back unchanged.
  const tribool odd = Decode<tribool>(Unhex("07"));
  unsigned state = 0;
  std::memcpy(&state, &odd.value, sizeof state);
  EXPECT_EQ(state, 7u);
  EXPECT_EQ(Hex(Encode(odd)), "07");
}

TEST(ByteStreamEncoding, AnyNonZeroByteReadsAsTrue) {
  for (int byte : {0x01, 0x02, 0x7F, 0x80, 0xFF}) {
    const bool value = Decode<bool>(std::string(1, static_cast<char>(byte)));
    EXPECT_TRUE(value) << byte;
    EXPECT_EQ(Hex(Encode(value)), "01") << byte;
  }
  EXPECT_FALSE(Decode<bool>(std::string(1, '\0')));
}

TEST(ByteStreamEncoding, FloatingValuesGoOutAsThirtySixDigitText) {
  struct Row {
    std::string encoded;
    std::string text;
  };
  const Row rows[] = {
      {Encode(0.1), "0.100000000000000005551115123125782702"},
      {Encode(-0.0), "-0"},
      {Encode(123456.0f), "123456"},
      {Encode(0.1f), "0.100000001490116119384765625"},
      {Encode(1e-5), "1.00000000000000008180305391403130955e-05"},
      {Encode(1e36), "1.00000000000000004242063737401796198e+36"},
      {Encode(DBL_MAX), "1.79769313486231570814527423731704357e+308"},
      {Encode(-DBL_MIN), "-2.22507385850720138309023271733240406e-308"},
      {Encode(std::numeric_limits<double>::denorm_min()),
       "4.94065645841246544176568792868221372e-324"},
      {Encode(FLT_MAX), "3.40282346638528859811704183484516925e+38"},
      {Encode(std::numeric_limits<float>::denorm_min()),
       "1.40129846432481707092372958328991613e-45"},
      {Encode(0.1L), "0.100000000000000000001355252715606881"},
      {Encode(LDBL_MAX), "1.18973149535723176502126385303097021e+4932"},
      {Encode(-2.5L), "-2.5"},
      {Encode(std::numeric_limits<double>::infinity()), "inf"},
      {Encode(-std::numeric_limits<float>::infinity()), "-inf"},
      {Encode(std::numeric_limits<double>::quiet_NaN()), "nan"},
      {Encode(-std::numeric_limits<long double>::quiet_NaN()), "-nan"},
  };
  for (const Row& row : rows) EXPECT_EQ(Hex(row.encoded), Hex(FramedText(row.text))) << row.text;
}

TEST(ByteStreamEncoding, FiniteFloatingValuesReadBackExactly) {
  const double doubles[] = {0.1,
                            -0.0,
                            1e-5,
                            DBL_MAX,
                            -DBL_MAX,
                            DBL_MIN,
                            std::numeric_limits<double>::denorm_min(),
                            3.141592653589793};
  for (double value : doubles) {
    const double back = Decode<double>(Encode(value));
    EXPECT_EQ(back, value);
    EXPECT_EQ(std::signbit(back), std::signbit(value)) << value;
  }
  const float floats[] = {0.1f, -0.0f, FLT_MAX, -FLT_MIN, std::numeric_limits<float>::denorm_min()};
  for (float value : floats) {
    const float back = Decode<float>(Encode(value));
    EXPECT_EQ(back, value);
    EXPECT_EQ(std::signbit(back), std::signbit(value)) << value;
  }
  const long double longs[] = {
      0.1L, -0.0L, LDBL_MAX, LDBL_MIN, std::numeric_limits<long double>::denorm_min(), 1.0L / 3};
  for (long double value : longs) {
    const long double back = Decode<long double>(Encode(value));
    EXPECT_EQ(back, value);
    EXPECT_EQ(std::signbit(back), std::signbit(value));
  }
}

TEST(ByteStreamEncoding, FloatingTextReadsAsAStandardExtractionWould) {
  const double kMax = DBL_MAX;
  struct Row {
    std::string text;
    double value;
  };
  const Row rows[] = {
      {"1.5", 1.5},
      {" \t\n2.5", 2.5},
      {"+3", 3},
      {"-0", -0.0},
      {"1.5xyz", 1.5},
      {"1.5.7", 1.5},
      {"1E2", 100},
      {".5e1", 5},
      {"00012", 12},
      {"123e-2", 1.23},
      {"5.", 5},
      {"0x10", 0},
      {"1e", 0},
      {"1e+", 0},
      {".", 0},
      {"-", 0},
      {"", 0},
      {"abc", 0},
      {"--1", 0},
      {"e5", 0},
      {"inf", 0},
      {"-inf", 0},
      {"nan", 0},
      {"1e400", kMax},
      {"-1e400", -kMax},
      {"0.0001e400", kMax},
      {"1e99999999999999999999", kMax},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"10000e-330", 0.0},
      {"0e999999", 0.0},
      {"4e-320", 4e-320},
  };
  for (const Row& row : rows) {
    const double value = Decode<double>(FramedText(row.text));
    EXPECT_EQ(value, row.value) << '"' << row.text << '"';
    EXPECT_EQ(std::signbit(value), std::signbit(row.value)) << '"' << row.text << '"';
  }
  EXPECT_EQ(Decode<float>(FramedText("1e39")), FLT_MAX);
  EXPECT_EQ(Decode<float>(FramedText("-1e39")), -FLT_MAX);
  EXPECT_EQ(Decode<float>(FramedText("1e-50")), 0.0f);
  EXPECT_EQ(Decode<float>(FramedText("0.25")), 0.25f);
  EXPECT_EQ(Decode<long double>(FramedText("1e5000")), LDBL_MAX);
  EXPECT_EQ(Decode<long double>(FramedText("-1e-5000")), 0.0L);
  EXPECT_TRUE(std::signbit(Decode<long double>(FramedText("-1e-5000"))));
  // Non-finite values go out as text that does not read back as a number.
  EXPECT_EQ(Decode<double>(Encode(std::numeric_limits<double>::infinity())), 0.0);
  EXPECT_EQ(Decode<float>(Encode(std::numeric_limits<float>::quiet_NaN())), 0.0f);
}

TEST(ByteStreamEncoding, IntegerCutShortKeepsTheBytesReadInTheirPlaces) {
  {
    std::string bytes = Unhex("1234");
    fs::IStringByteStream in(bytes);
    std::uint32_t value = 0xAAAAAAAA;
    EXPECT_THROW(in >> value, fs::eof_error);
    EXPECT_EQ(value, 0x1234AAAAu);
  }
  {
    std::string bytes = Unhex("80");
    fs::IStringByteStream in(bytes);
    short value = 0x0055;
    EXPECT_THROW(in >> value, fs::eof_error);
    EXPECT_EQ(static_cast<unsigned short>(value), 0x8055);
  }
  {
    std::string bytes = Unhex("ffffff");
    fs::IStringByteStream in(bytes);
    long long value = 0;
    EXPECT_THROW(in >> value, fs::eof_error);
    EXPECT_EQ(static_cast<unsigned long long>(value), 0xFFFFFF0000000000ull);
  }
}

TEST(ByteStreamEncoding, StringReadErasesTheTargetFirst) {
  std::string bytes = Encode(std::string());
  fs::IStringByteStream in(bytes);
  std::string target = "old";
  in >> target;
  EXPECT_TRUE(target.empty());

  std::string cut = Unhex("0000");
  fs::IStringByteStream cutIn(cut);
  UTF16String wide = u"old";
  EXPECT_THROW(cutIn >> wide, fs::eof_error);
  EXPECT_TRUE(wide.empty()) << "erased before the count is read";
}

// A corrupt count must end in eof_error once the real bytes run out, without
// memory for the claimed size: the capacity would show a reservation from the
// count, and a reservation of 2^63 or more would throw something other than
// eof_error.
TEST(ByteStreamEncoding, CorruptStringCountEndsInEofWithoutReservingIt) {
  const std::string counts[] = {"000000007fffffff", "0000000080000000", "0000010000000000",
                                "7fffffffffffffff", "ffffffffffffffff"};
  for (const std::string& count : counts) {
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
  std::string floatBytes = Unhex(
      "00000000ffffffff"
      "312e35");
  fs::IStringByteStream floatIn(floatBytes);
  double value = 7;
  EXPECT_THROW(floatIn >> value, fs::eof_error);
  EXPECT_EQ(value, 7) << "an unfinished text leaves the target alone";
}

TEST(ByteStreamCopy, KnownLengthMovesExactlyThatManyBytes) {
  std::string source = "hello, world";
  fs::IStringByteStream in(source);
  std::string copy;
  fs::OStringByteStream out(copy);
  out << in;
  EXPECT_EQ(copy, source);
  EXPECT_TRUE(in.AtTheEnd());

  // The position is not consulted: a source past 0 runs out first.
  fs::IStringByteStream late(source);
  late.CurPos(7);
  std::string partial;
  fs::OStringByteStream partialOut(partial);
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

TEST(ByteStreamEncoding, MixedSequenceReadsBackFromEveryReader) {
  std::string bytes;
  fs::OStringByteStream out(bytes);
  out << true << std::int32_t{-7} << std::string("name") << 2.75 << static_cast<short>(300)
      << UTF16String(u"\u00e9t\u00e9") << 0xFFFFFFFFFFull << 'z';

  auto check = [](fs::IByteStream& in) {
    bool flag = false;
    std::int32_t number = 0;
    std::string name;
    double real = 0;
    short small = 0;
    UTF16String wide;
    unsigned long long big = 0;
    char letter = 0;
    in >> flag >> number >> name >> real >> small >> wide >> big >> letter;
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(name, "name");
    EXPECT_EQ(real, 2.75);
    EXPECT_EQ(small, 300);
    EXPECT_EQ(wide, UTF16String(u"\u00e9t\u00e9"));
    EXPECT_EQ(big, 0xFFFFFFFFFFull);
    EXPECT_EQ(letter, 'z');
    EXPECT_TRUE(in.AtTheEnd());
    EXPECT_THROW(in >> letter, fs::eof_error);
  };
  fs::IStringByteStream fromString(bytes);
  check(fromString);
  fs::IBufferByteStream fromBuffer(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   bytes.size());
  check(fromBuffer);
  std::deque<unsigned char> deque(bytes.begin(), bytes.end());
  fs::IDequeByteStream fromDeque(deque);
  check(fromDeque);
}
