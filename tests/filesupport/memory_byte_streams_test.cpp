// The adapter streams over standard streams, deques and strings, the fixed
// block streams and the counting sink: end of stream, positions and counts.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

const std::string kSample = "0123456789";

// The writers that leave OSFlush and Truncate to a derived class, completed
// with nothing.
template <typename Base>
class Completed : public Base {
 public:
  using Base::Base;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

std::string Text(const unsigned char* bytes, std::size_t count) {
  return std::string(reinterpret_cast<const char*>(bytes), count);
}

TEST(ContainerReaders, ReadEveryByteThenThrowEofErrorAndRepositionBothWays) {
  std::string text = kSample;
  std::deque<unsigned char> deque(kSample.begin(), kSample.end());
  fs::IStringByteStream fromString(text);
  fs::IDequeByteStream fromDeque(deque);
  fs::IBufferByteStream fromBuffer(reinterpret_cast<const unsigned char*>(kSample.data()),
                                   kSample.size());
  for (fs::IByteStream* reader :
       {static_cast<fs::IByteStream*>(&fromString), static_cast<fs::IByteStream*>(&fromDeque),
        static_cast<fs::IByteStream*>(&fromBuffer)}) {
    fs::IByteStream& in = *reader;
    SCOPED_TRACE(typeid(in).name());
    EXPECT_EQ(in.Length(), kSample.size());
    for (std::size_t i = 0; i < kSample.size(); ++i) {
      EXPECT_EQ(in.CurPos(), i);
      EXPECT_FALSE(in.AtTheEnd());
      EXPECT_EQ(in.Get(), static_cast<unsigned char>(kSample[i]));
    }
    EXPECT_TRUE(in.AtTheEnd());
    EXPECT_THROW(in.Get(), fs::eof_error);
    EXPECT_EQ(in.CurPos(), kSample.size()) << "a failed Get does not move";

    // Beyond the end is not the end (AtTheEnd tests equality with the length),
    // but Get throws there; coming back works.
    for (unsigned long long pos : {7, 2, 9, 0, 10, 5, 5, 100, 1}) {
      in.CurPos(pos);
      EXPECT_EQ(in.CurPos(), pos);
      EXPECT_EQ(in.AtTheEnd(), pos == kSample.size()) << pos;
      if (pos < kSample.size()) {
        EXPECT_EQ(in.Get(), static_cast<unsigned char>(kSample[pos]));
      } else {
        EXPECT_THROW(in.Get(), fs::eof_error) << pos;
      }
    }
    unsigned char block[4] = {};
    std::uint32_t value = 0;
    in.CurPos(2);
    in.ReadBlock(block, 4);
    in >> value;
    EXPECT_EQ(Text(block, 4), "2345");
    EXPECT_EQ(value, 0x36373839u);
  }
}

TEST(IBufferByteStream, EmptyBlockThrowsOnTheFirstGet) {
  fs::IBufferByteStream in(nullptr, 0);
  EXPECT_EQ(in.Length(), 0u);
  EXPECT_TRUE(in.AtTheEnd());
  EXPECT_THROW(in.Get(), fs::eof_error);
}

TEST(IStdByteStream, SeeksAbsolutelyAndGivesFFPastTheEndWithoutThrowing) {
  std::istringstream standard(kSample);
  fs::IStdByteStream in(standard);
  in.CurPos(6);
  EXPECT_EQ(in.Length(), kSample.size());
  EXPECT_EQ(in.CurPos(), 6u) << "Length restores the position";
  EXPECT_EQ(in.Get(), '6');
  in.CurPos(2);
  EXPECT_EQ(in.Get(), '2');
  EXPECT_FALSE(in.AtTheEnd());
  in.CurPos(kSample.size());
  EXPECT_TRUE(in.AtTheEnd());

  // The value operators see 0xFF bytes for ever.
  in.CurPos(8);
  std::uint32_t value = 0;
  EXPECT_NO_THROW(in >> value);
  EXPECT_EQ(value, 0x3839FFFFu);
  unsigned char last = 0;
  EXPECT_NO_THROW(last = in.Get());
  EXPECT_EQ(last, 0xFF);
  EXPECT_TRUE(standard.eof()) << "the standard stream's own flags are set";
}

TEST(MemoryWriters, WriteTheSameBytesAsEachOther) {
  const std::string expected("\x01\x02\x03\x04\0\0\0\0\0\0\0\x02xy\0\xAA\xBB", 17);
  std::string text;
  std::deque<unsigned char> deque;
  std::vector<unsigned char> buffer(256);
  std::ostringstream standard;
  fs::OStringByteStream toString(text);
  Completed<fs::ODequeByteStream> toDeque(deque);
  Completed<fs::OBufferByteStream> toBuffer(buffer.data(), buffer.size());
  Completed<fs::OStdByteStream> toStd(standard);
  const unsigned char block[] = {0xAA, 0xBB};
  for (fs::OByteStream* out :
       {static_cast<fs::OByteStream*>(&toString), static_cast<fs::OByteStream*>(&toDeque),
        static_cast<fs::OByteStream*>(&toBuffer), static_cast<fs::OByteStream*>(&toStd)}) {
    EXPECT_EQ(out->CurPos(), 0u) << typeid(*out).name();
    *out << std::int32_t{0x01020304} << std::string("xy") << false;
    out->WriteBlock(block, 2);
    EXPECT_EQ(out->CurPos(), expected.size()) << typeid(*out).name();
  }
  EXPECT_EQ(text, expected);
  EXPECT_EQ(std::string(deque.begin(), deque.end()), expected);
  EXPECT_EQ(Text(buffer.data(), toBuffer.Count()), expected);
  EXPECT_EQ(standard.str(), expected);
}

TEST(ODequeByteStream, PutAlwaysAppendsWhereverThePositionWasSet) {
  std::deque<unsigned char> deque = {9, 9};
  Completed<fs::ODequeByteStream> out(deque);
  EXPECT_EQ(out.CurPos(), 2u) << "the position is the deque's size";
  out.CurPos(0);
  EXPECT_EQ(out.CurPos(), 2u);
  out.Put(7);
  EXPECT_EQ(out.CurPos(), 3u);
  EXPECT_EQ(deque, (std::deque<unsigned char>{9, 9, 7}));
}

TEST(OStringByteStream, AppendsAndTruncatesBothWays) {
  std::string storage = "abc";
  fs::OStringByteStream out(storage);
  EXPECT_EQ(out.CurPos(), 3u);
  out.CurPos(0);
  out.Put('d');
  EXPECT_EQ(storage, "abcd") << "setting the position does nothing";
  out.OSFlush();
  EXPECT_EQ(storage, "abcd");

  storage = "abc";
  out.Truncate(10);
  EXPECT_EQ(storage, std::string("abc\0\0\0\0\0\0\0", 10));
  out.Truncate(1);
  EXPECT_EQ(storage, "a");
  out.Truncate(1);
  EXPECT_EQ(storage, "a");
  out.Truncate(0);
  EXPECT_TRUE(storage.empty());
}

TEST(OStdByteStream, SeeksAbsolutelyAndShowsFailuresOnlyInTheFlags) {
  std::ostringstream standard;
  Completed<fs::OStdByteStream> out(standard);
  for (char c : std::string("abcdef")) out.Put(static_cast<unsigned char>(c));
  EXPECT_EQ(out.CurPos(), 6u);
  out.CurPos(2);
  out.Put('X');
  EXPECT_EQ(out.CurPos(), 3u);
  EXPECT_EQ(standard.str(), "abXdef");

  std::ostream broken(nullptr);
  Completed<fs::OStdByteStream> failing(broken);
  EXPECT_NO_THROW(failing.Put('a'));
  EXPECT_TRUE(broken.bad());
}

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
