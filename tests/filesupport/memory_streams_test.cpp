// The adapter streams over standard streams, deques and strings, the fixed
// block streams and the counting sink: end of stream, positions and counts.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

const std::string kSample = "0123456789";

// Each reader over its own copy of kSample.
struct StringReader {
  std::string storage = kSample;
  fs::IStringByteStream stream{storage};
};
struct DequeReader {
  std::deque<unsigned char> storage{kSample.begin(), kSample.end()};
  fs::IDequeByteStream stream{storage};
};
struct BufferReader {
  std::vector<unsigned char> storage{kSample.begin(), kSample.end()};
  fs::IBufferByteStream stream{storage.data(), storage.size()};
};

template <typename Reader>
class ContainerReaderTest : public ::testing::Test {
 protected:
  Reader reader_;
  fs::IByteStream& in() { return reader_.stream; }
};
using ContainerReaders = ::testing::Types<StringReader, DequeReader, BufferReader>;
TYPED_TEST_SUITE(ContainerReaderTest, ContainerReaders);

TYPED_TEST(ContainerReaderTest, ReadsEveryByteThenThrowsEofError) {
  fs::IByteStream& in = this->in();
  EXPECT_EQ(in.Length(), kSample.size());
  for (std::size_t i = 0; i < kSample.size(); ++i) {
    EXPECT_EQ(in.CurPos(), i);
    EXPECT_FALSE(in.AtTheEnd());
    EXPECT_EQ(in.Get(), static_cast<unsigned char>(kSample[i]));
  }
  EXPECT_TRUE(in.AtTheEnd());
  EXPECT_THROW(in.Get(), fs::eof_error);
  EXPECT_EQ(in.CurPos(), kSample.size()) << "a failed Get does not move";
}

TYPED_TEST(ContainerReaderTest, RepositionsBothWays) {
  fs::IByteStream& in = this->in();
  const unsigned long long positions[] = {7, 2, 9, 0, 10, 5, 5};
  for (unsigned long long pos : positions) {
    in.CurPos(pos);
    EXPECT_EQ(in.CurPos(), pos);
    EXPECT_EQ(in.AtTheEnd(), pos == kSample.size());
    if (pos < kSample.size()) {
      EXPECT_EQ(in.Get(), static_cast<unsigned char>(kSample[pos]));
    }
  }
  unsigned char block[4] = {};
  in.CurPos(3);
  in.ReadBlock(block, 4);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 4), "3456");
}

TYPED_TEST(ContainerReaderTest, PositionBeyondTheEndIsNotTheEndButGetThrows) {
  fs::IByteStream& in = this->in();
  in.CurPos(100);
  EXPECT_EQ(in.CurPos(), 100u);
  EXPECT_FALSE(in.AtTheEnd()) << "AtTheEnd tests equality with the length";
  EXPECT_THROW(in.Get(), fs::eof_error);
  in.CurPos(1);
  EXPECT_EQ(in.Get(), '1') << "coming back from beyond the end works";
}

TEST(IBufferByteStream, EmptyBlockThrowsOnTheFirstGet) {
  fs::IBufferByteStream in(nullptr, 0);
  EXPECT_EQ(in.Length(), 0u);
  EXPECT_TRUE(in.AtTheEnd());
  EXPECT_THROW(in.Get(), fs::eof_error);
}

TEST(IStdByteStream, EndOfStreamGivesFFWithoutThrowing) {
  std::istringstream standard(std::string("\x12\x34", 2));
  fs::IStdByteStream in(standard);
  EXPECT_EQ(in.Length(), 2u);
  EXPECT_EQ(in.CurPos(), 0u) << "Length restores the position";
  EXPECT_EQ(in.Get(), 0x12);
  EXPECT_EQ(in.Get(), 0x34);
  EXPECT_TRUE(in.AtTheEnd());
  unsigned char last = 0;
  EXPECT_NO_THROW(last = in.Get());
  EXPECT_EQ(last, 0xFF);
  EXPECT_TRUE(standard.eof()) << "the standard stream's own flags are set";

  // The value operators then see 0xFF bytes for ever.
  std::istringstream shortInput(std::string("\x12\x34", 2));
  fs::IStdByteStream shortIn(shortInput);
  std::uint32_t value = 0;
  EXPECT_NO_THROW(shortIn >> value);
  EXPECT_EQ(value, 0x1234FFFFu);
}

TEST(IStdByteStream, PositionsAreAbsoluteSeeks) {
  std::istringstream standard(kSample);
  fs::IStdByteStream in(standard);
  in.CurPos(6);
  EXPECT_EQ(in.CurPos(), 6u);
  EXPECT_EQ(in.Length(), kSample.size());
  EXPECT_EQ(in.CurPos(), 6u) << "Length restores the position";
  EXPECT_EQ(in.Get(), '6');
  in.CurPos(2);
  EXPECT_EQ(in.Get(), '2');
  EXPECT_FALSE(in.AtTheEnd());
  in.CurPos(kSample.size());
  EXPECT_TRUE(in.AtTheEnd());
}

// The writers that leave OSFlush and Truncate to a derived class, completed
// with nothing.
template <typename Base>
class Completed : public Base {
 public:
  using Base::Base;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

struct StringWriter {
  std::string storage;
  fs::OStringByteStream stream{storage};
  std::string Bytes() const { return storage; }
};
struct DequeWriter {
  std::deque<unsigned char> storage;
  Completed<fs::ODequeByteStream> stream{storage};
  std::string Bytes() const { return std::string(storage.begin(), storage.end()); }
};
struct BufferWriter {
  std::vector<unsigned char> storage = std::vector<unsigned char>(256);
  Completed<fs::OBufferByteStream> stream{storage.data(), storage.size()};
  std::string Bytes() const {
    return std::string(storage.begin(), storage.begin() + static_cast<long>(stream.Count()));
  }
};
struct StdWriter {
  std::ostringstream storage;
  Completed<fs::OStdByteStream> stream{storage};
  std::string Bytes() const { return storage.str(); }
};

template <typename Writer>
class WriterTest : public ::testing::Test {
 protected:
  Writer writer_;
};
using Writers = ::testing::Types<StringWriter, DequeWriter, BufferWriter, StdWriter>;
TYPED_TEST_SUITE(WriterTest, Writers);

TYPED_TEST(WriterTest, WritesTheSameBytesAsEveryOtherWriter) {
  fs::OByteStream& out = this->writer_.stream;
  EXPECT_EQ(out.CurPos(), 0u);
  out << std::int32_t{0x01020304} << std::string("xy") << false;
  const unsigned char block[] = {0xAA, 0xBB};
  out.WriteBlock(block, 2);
  const std::string expected("\x01\x02\x03\x04\0\0\0\0\0\0\0\x02xy\0\xAA\xBB", 17);
  EXPECT_EQ(this->writer_.Bytes(), expected);
  EXPECT_EQ(out.CurPos(), expected.size());

  // The counting sink agrees on the size.
  Completed<fs::OCountingByteStream> counter;
  counter << std::int32_t{0x01020304} << std::string("xy") << false;
  counter.WriteBlock(block, 2);
  EXPECT_EQ(counter.Count(), expected.size());
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
}

TEST(OCountingByteStream, MeasuresEveryValueAsItsEncodedSize) {
  struct Row {
    std::string what;
    std::function<void(fs::OByteStream&)> write;
  };
  const Row rows[] = {
      {"bool", [](fs::OByteStream& o) { o << true; }},
      {"short", [](fs::OByteStream& o) { o << static_cast<short>(1); }},
      {"int32", [](fs::OByteStream& o) { o << std::int32_t{1}; }},
      {"int64", [](fs::OByteStream& o) { o << std::int64_t{1}; }},
      {"string", [](fs::OByteStream& o) { o << std::string(300, 'x'); }},
      {"utf16", [](fs::OByteStream& o) { o << tvxcore::UTF16String(5, u'x'); }},
      {"double", [](fs::OByteStream& o) { o << 0.1; }},
      {"long double", [](fs::OByteStream& o) { o << 1e-300L; }},
  };
  for (const Row& row : rows) {
    std::string bytes;
    fs::OStringByteStream text(bytes);
    row.write(text);
    Completed<fs::OCountingByteStream> counter;
    row.write(counter);
    EXPECT_EQ(counter.Count(), bytes.size()) << row.what;
  }
}

}  // namespace
