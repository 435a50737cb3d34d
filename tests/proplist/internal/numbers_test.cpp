#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <span>
#include <sstream>
#include <string>

#include "proplist/internal/Numbers.h"

using namespace tvxcore;
using tvxcore::proplist::internal::AppendNumber;
using tvxcore::proplist::internal::ReadNumber;

namespace {

// Inputs that the reader must take as the stream extraction does: signs,
// spaces, junk after or instead of a number, the ends of each type's range.
const char* const kShort[] = {"0",       "7",     "-7",     "+7",     " 42 ",  "\t\n12", "",
                              "   ",     "-",     "+",      "abc",    "12abc", "1.5",    "-1.5",
                              ".5",      "-.5",   "1.",     "1e5",    "1E-5",  "1e",     "1e+",
                              "-0",      "0x10",  "007",    "1--2",   "1.5.5", "--1",    "1e5e5",
                              "2.5e-3x", "1e400", "-1e400", "1e-400", "inf",   "nan"};
const char* const kLong[] = {"65535",      "65536",       "-65536",     "4294967295",
                             "4294967296", "-2147483648", "2147483648", "3.4028236e38"};
const char* const kHuge[] = {"9223372036854775807", "9223372036854775808", "-9223372036854775809",
                             "18446744073709551615", "18446744073709551616"};

template <typename T>
void ExpectSameAsStream(const std::string& text) {
  SCOPED_TRACE("'" + text + "' as " + typeid(T).name());
  T expected = T(11);
  std::istringstream(text) >> expected;
  T actual = T(11);
  ReadNumber(reinterpret_cast<const UTF8Char*>(text.data()), text.size(), actual);
  if constexpr (std::is_floating_point_v<T>) {
    EXPECT_EQ(std::signbit(actual), std::signbit(expected));
  }
  EXPECT_EQ(actual, expected);
}

}  // namespace

TEST(PropListNumbers, ReadingMatchesStreamExtractionForEveryType) {
  using Texts = std::span<const char* const>;
  for (Texts texts : {Texts(kShort), Texts(kLong), Texts(kHuge)}) {
    for (const char* text : texts) {
      ExpectSameAsStream<std::uint16_t>(text);
      ExpectSameAsStream<std::uint32_t>(text);
      ExpectSameAsStream<std::int32_t>(text);
      ExpectSameAsStream<std::int64_t>(text);
      ExpectSameAsStream<std::uint64_t>(text);
      ExpectSameAsStream<float>(text);
      ExpectSameAsStream<double>(text);
    }
  }
}

TEST(PropListNumbers, WritingMatchesStreamInsertionAtTheFormatsPrecision) {
  const double values[] = {
      0,    -0.0,     1,     0.1,   1.0 / 3, 1e-5, 123456789.0, 1e16,
      1e17, 2.5e-300, 1e300, -7.25, 65536.5, 1e-7, 4.9e-324,    1.7976931348623157e308};
  for (double v : values) {
    std::ostringstream d;
    d.precision(16);
    d << v;
    std::ostringstream f;
    f.precision(8);
    f << static_cast<float>(v);
    UTF8String outD, outF;
    AppendNumber(outD, v);
    AppendNumber(outF, static_cast<float>(v));
    EXPECT_EQ(std::string(outD.begin(), outD.end()), d.str());
    EXPECT_EQ(std::string(outF.begin(), outF.end()), f.str());
  }
}
