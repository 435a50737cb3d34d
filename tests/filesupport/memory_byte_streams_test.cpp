// The fixed block streams and the counting sink: what each does beyond the
// contract every stream keeps.
#include <gtest/gtest.h>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

using tvxtest::Completed;

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
