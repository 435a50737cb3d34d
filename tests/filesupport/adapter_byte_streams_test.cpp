// The adapters over standard streams, deques and strings, the fixed block
// streams and the counting sink: what each does beyond the contract every
// stream keeps.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <sstream>
#include <string>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

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

TEST(OBufferByteStream, CountIsTheHighWaterMarkAndTheEndThrows) {
  unsigned char block[4] = {0, 0, 0, 0};
  Completed<fs::OBufferByteStream> out(block, 4);
  EXPECT_EQ(out.Count(), 0u);
  for (unsigned char b : {1, 2, 3, 4}) out.Put(b);
  EXPECT_EQ(out.Count(), 4u);
  EXPECT_THROW(out.Put(5), fs::eof_error);
  EXPECT_EQ(out.Count(), 4u);
  EXPECT_EQ(out.CurPos(), 4u);

  out.CurPos(1);
  out.Put(9);
  EXPECT_EQ(out.Count(), 4u) << "rewriting behind the mark does not raise it";
  EXPECT_EQ(block[1], 9);
  EXPECT_EQ(block[2], 3);

  out.CurPos(100);
  EXPECT_EQ(out.Count(), 100u) << "a bare seek forward raises the mark";
  EXPECT_THROW(out.Put(6), fs::eof_error);
  EXPECT_EQ(out.Count(), 100u);
  EXPECT_EQ(out.Length(), 4u);
}

TEST(OCountingByteStream, CountsOnlyWhatPutReaches) {
  Completed<fs::OCountingByteStream> out;
  out.CurPos(100);
  EXPECT_EQ(out.Count(), 0u) << "a bare seek does not raise the mark";
  out.Put(1);
  EXPECT_EQ(out.Count(), 101u);
  out.CurPos(0);
  out.Put(1);
  EXPECT_EQ(out.CurPos(), 1u);
  EXPECT_EQ(out.Count(), 101u);
  const unsigned char two[2] = {};
  out.CurPos(100);
  out.WriteBlock(two, 2);
  EXPECT_EQ(out.Count(), 102u) << "a block counts like its bytes";
}

}  // namespace
