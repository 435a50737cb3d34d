// The fixed block streams and the counting sink: what each does beyond the
// contract every stream keeps.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <typeinfo>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

using tvxtest::Completed;

TEST(OBufferByteStream, CountIsTheHighWaterMarkAndTheEndThrows) {
  unsigned char block[4] = {0, 0, 0, 0};
  Completed<fs::OBufferByteStream> out(block, 4);
  EXPECT_EQ(out.Length(), 4u);
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

  unsigned char nothing = 0x5A;
  Completed<fs::OBufferByteStream> empty(&nothing, 0);
  EXPECT_THROW(empty.Put(1), fs::eof_error);
  EXPECT_EQ(nothing, 0x5A);
  EXPECT_EQ(empty.Count(), 0u);

  // A value that does not fit is cut where the block ends.
  unsigned char three[3] = {};
  Completed<fs::OBufferByteStream> small(three, 3);
  EXPECT_THROW(small << std::int32_t{0x0A0B0C0D}, fs::eof_error);
  EXPECT_EQ(small.Count(), 3u);
  EXPECT_EQ(three[2], 0x0C);
}

TEST(OCountingByteStream, CountsOnlyWhatPutReaches) {
  Completed<fs::OCountingByteStream> out;
  out.CurPos(100);
  EXPECT_EQ(out.CurPos(), 100u);
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

TEST(OCountingByteStream, MeasuresEveryValueAsItsEncodedSize) {
  auto check = [](const auto& value) {
    std::string bytes;
    fs::OStringByteStream text(bytes);
    Completed<fs::OCountingByteStream> counter;
    text << value;
    counter << value;
    EXPECT_EQ(counter.Count(), bytes.size()) << typeid(value).name();
  };
  check(true);
  check(short{1});
  check(std::int32_t{1});
  check(1LL);
  check(std::string(300, 'x'));
  check(tvxcore::UTF16String(5, u'x'));
  check(0.1);
  check(1e-300L);
}

}  // namespace
