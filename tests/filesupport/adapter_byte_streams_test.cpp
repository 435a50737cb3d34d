// The adapters over standard streams, deques and strings: what each does
// beyond the contract every stream keeps.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <sstream>
#include <string>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"

namespace fs = tvxcore::filesupport;

namespace {

using tvxtest::Completed;

TEST(IStdByteStream, LengthKeepsThePositionAndTheEndGivesFFForEver) {
  std::istringstream standard("0123456789");
  fs::IStdByteStream in(standard);
  in.CurPos(6);
  EXPECT_EQ(in.Length(), 10u);
  EXPECT_EQ(in.CurPos(), 6u) << "Length restores the position";
  EXPECT_EQ(in.Get(), '6');

  // The value operators see 0xFF bytes for ever.
  in.CurPos(8);
  std::uint32_t value = 0;
  EXPECT_NO_THROW(in >> value);
  EXPECT_EQ(value, 0x3839FFFFu);
  EXPECT_TRUE(standard.eof()) << "the standard stream's own flags are set";
}

TEST(OStdByteStream, ShowsFailuresOnlyInTheFlags) {
  std::ostream broken(nullptr);
  Completed<fs::OStdByteStream> failing(broken);
  EXPECT_NO_THROW(failing.Put('a'));
  EXPECT_TRUE(broken.bad());
}

TEST(ODequeByteStream, PutAlwaysAppendsWhereverThePositionWasSet) {
  std::deque<unsigned char> deque = {9, 9};
  Completed<fs::ODequeByteStream> out(deque);
  EXPECT_EQ(out.CurPos(), 2u) << "the position is the deque's size";
  out.CurPos(0);
  out.Put(7);
  EXPECT_EQ(deque, (std::deque<unsigned char>{9, 9, 7}));
}

TEST(OStringByteStream, PositionIsTheSizeAndTruncateGoesBothWays) {
  std::string storage = "abc";
  fs::OStringByteStream out(storage);
  EXPECT_EQ(out.CurPos(), 3u) << "the position is the string's size";
  out.OSFlush();
  out.Truncate(10);
  EXPECT_EQ(storage, std::string("abc\0\0\0\0\0\0\0", 10));
  for (const char* expected : {"a", "a", ""}) {
    out.Truncate(std::string(expected).size());
    EXPECT_EQ(storage, expected);
  }
}

}  // namespace
