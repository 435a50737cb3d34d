// The stream bases and their client slots, and the contract every
// reading and every writing stream keeps: bytes in order, positions, lengths
// and the end, run over each kind of stream.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/CompletedStream.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

using tvxtest::Bytes;
using tvxtest::Completed;
using tvxtest::UnknownLengthSource;

}  // namespace

TEST(ByteStreamBase, XallocHandsOutConsecutiveIndicesAndSlotsGrowWithZeroes) {
  const int first = fs::ByteStream_base::xalloc();
  EXPECT_GE(first, 0);
  EXPECT_EQ(fs::ByteStream_base::xalloc(), first + 1);

  std::string storage, other;
  fs::OStringByteStream stream(storage), second(other);
  EXPECT_EQ(stream.iword(5), 0);
  stream.iword(5) = 77;
  stream.iword(2) = -3;
  EXPECT_EQ(stream.iword(5), 77);
  EXPECT_EQ(stream.iword(2), -3);

  int marker = 0;
  EXPECT_EQ(stream.pword(3), nullptr);
  stream.pword(3) = &marker;
  EXPECT_EQ(stream.pword(3), &marker);
  EXPECT_EQ(stream.iword(3), 0) << "integer and pointer slots are separate";
  EXPECT_EQ(second.iword(5), 0) << "slots belong to one stream";
}

namespace {
// name, event, stream, index, the slot's value when called
using CallbackRecord = std::tuple<char, int, const void*, int, std::int32_t>;
std::vector<CallbackRecord> S_calls;
template <char kName>
void Callback(fs::ByteStream_base::event e, fs::ByteStream_base& s, int index) {
  S_calls.emplace_back(kName, static_cast<int>(e), &s, index, s.iword(index));
}
}  // namespace

TEST(ByteStreamBase, CallbacksRunOldestFirstWhenTheStreamDiesWithTheSlotsStillThere) {
  S_calls.clear();
  const void* stream = nullptr;
  {
    std::string storage;
    fs::OStringByteStream out(storage);
    stream = static_cast<fs::ByteStream_base*>(&out);
    out.iword(1) = 11;
    out.iword(4) = 44;
    out.register_callback(Callback<'A'>, 1);
    out.register_callback(Callback<'B'>, 4);
    out.register_callback(Callback<'A'>, 1);  // twice: runs twice
    EXPECT_TRUE(S_calls.empty()) << "nothing runs before the stream dies";
  }
  // The event is erase_event, which is 0.
  EXPECT_EQ(S_calls,
            (std::vector<CallbackRecord>{
                {'A', 0, stream, 1, 11}, {'B', 0, stream, 4, 44}, {'A', 0, stream, 1, 11}}));
}

// The string streams keep the default ReadBlock and WriteBlock, which the
// contract below runs; here what only a reader of unknown length shows.
TEST(ByteStreamBase, DefaultOperationsLoopOverGet) {
  UnknownLengthSource source("abcdef");
  EXPECT_EQ(source.Length(), 0u);
  EXPECT_TRUE(source.AtTheEnd()) << "default length 0 is reached at position 0";

  unsigned char block[8];
  std::memset(block, '-', sizeof block);
  source.ReadBlock(block, 0);
  EXPECT_EQ(source.gets, 0) << "a count of 0 reads nothing";
  source.CurPos(3);
  EXPECT_THROW(source.ReadBlock(block, 5), fs::eof_error);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 5), "def--")
      << "bytes before the end are stored";
}

namespace {

// A stream with what it reads or writes, which outlives it.
template <typename Stream>
struct Held {
  std::shared_ptr<void> storage;
  std::shared_ptr<Stream> stream;
};

// Each kind of reader, over bytes that are also the contents of `file`.
// endByte is what Get() gives at the end, or kThrows for eof_error; beyondEnd
// whether a position past the end may be set.
constexpr int kThrows = -1;
struct ReaderKind {
  const char* name;
  int endByte;
  bool beyondEnd;
  Held<fs::IByteStream> (*open)(const std::string& bytes, const fs::File& file);
};

const ReaderKind kReaders[] = {
    {"String", kThrows, true,
     [](const std::string& bytes, const fs::File&) -> Held<fs::IByteStream> {
       auto text = std::make_shared<std::string>(bytes);
       return {text, std::make_shared<fs::IStringByteStream>(*text)};
     }},
    {"Deque", kThrows, true,
     [](const std::string& bytes, const fs::File&) -> Held<fs::IByteStream> {
       auto deque = std::make_shared<std::deque<unsigned char>>(bytes.begin(), bytes.end());
       return {deque, std::make_shared<fs::IDequeByteStream>(*deque)};
     }},
    {"Buffer", kThrows, true,
     [](const std::string& bytes, const fs::File&) -> Held<fs::IByteStream> {
       auto text = std::make_shared<std::string>(bytes);
       return {text, std::make_shared<fs::IBufferByteStream>(text->empty() ? nullptr : Bytes(*text),
                                                             text->size())};
     }},
    // A failed standard stream has no position: nothing is set past its end.
    {"Std", 0xFF, false,
     [](const std::string& bytes, const fs::File&) -> Held<fs::IByteStream> {
       auto standard = std::make_shared<std::istringstream>(bytes);
       return {standard, std::make_shared<fs::IStdByteStream>(*standard)};
     }},
    {"File", 0, true,
     [](const std::string&, const fs::File& file) -> Held<fs::IByteStream> {
       return {nullptr,
               std::make_shared<fs::IPlatformByteStream>(file, fs::kPlatformStreamDefault)};
     }},
};

// Get() at the end: eof_error without a move, or the kind's end byte.
void ExpectEnd(const ReaderKind& kind, fs::IByteStream& in) {
  const unsigned long long pos = in.CurPos();
  if (kind.endByte == kThrows) {
    EXPECT_THROW(in.Get(), fs::eof_error);
    EXPECT_EQ(in.CurPos(), pos) << "a failed Get does not move";
  } else {
    EXPECT_EQ(in.Get(), kind.endByte);
  }
}

// Each kind of writer, over storage that starts empty, with what it has
// written so far. A writer that can't seek ignores a position and appends.
struct Writer : Held<fs::OByteStream> {
  std::function<std::string()> contents;
};
struct WriterKind {
  const char* name;
  bool seeks;
  Writer (*open)(const fs::File& empty);
};

// A fixed block and a writer into it.
struct Block {
  std::string Contents() const { return std::string(bytes, bytes + out.Count()); }
  unsigned char bytes[64] = {};
  Completed<fs::OBufferByteStream> out{bytes, sizeof bytes};
};

std::string Contents(const fs::File& file) {
  std::ifstream in(tvxtest::N(file.FullPath()), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

const WriterKind kWriters[] = {
    {"String", false,
     [](const fs::File&) -> Writer {
       auto text = std::make_shared<std::string>();
       return {{text, std::make_shared<fs::OStringByteStream>(*text)}, [text] { return *text; }};
     }},
    {"Deque", false,
     [](const fs::File&) -> Writer {
       auto deque = std::make_shared<std::deque<unsigned char>>();
       return {{deque, std::make_shared<Completed<fs::ODequeByteStream>>(*deque)},
               [deque] { return std::string(deque->begin(), deque->end()); }};
     }},
    {"Buffer", true,
     [](const fs::File&) -> Writer {
       auto block = std::make_shared<Block>();
       return {{block, std::shared_ptr<fs::OByteStream>(block, &block->out)},
               [block] { return block->Contents(); }};
     }},
    {"Std", true,
     [](const fs::File&) -> Writer {
       auto standard = std::make_shared<std::ostringstream>();
       return {{standard, std::make_shared<Completed<fs::OStdByteStream>>(*standard)},
               [standard] { return standard->str(); }};
     }},
    {"File", true,
     [](const fs::File& file) -> Writer {
       return {
           {nullptr, std::make_shared<fs::OPlatformByteStream>(file, fs::kPlatformStreamDefault)},
           [file] { return Contents(file); }};
     }},
};

const std::string kSample = "0123456789";

class StreamContract : public tvxtest::TempDirTest {
 protected:
  Held<fs::IByteStream> Open(const ReaderKind& kind, const std::string& bytes) {
    Write("in.bin", bytes);
    return kind.open(bytes, fs::File(Path("in.bin")));
  }
  Writer Open(const WriterKind& kind) {
    Write("out.bin", "");
    return kind.open(fs::File(Path("out.bin")));
  }
};

TEST_F(StreamContract, ReadersReadEveryByteInOrderToTheEnd) {
  for (const ReaderKind& kind : kReaders) {
    for (const std::string& bytes : {std::string(), kSample}) {
      SCOPED_TRACE(std::string(kind.name) + " over " + std::to_string(bytes.size()) + " bytes");
      const auto reader = Open(kind, bytes);
      fs::IByteStream& in = *reader.stream;
      EXPECT_EQ(in.Length(), bytes.size());
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(in.CurPos(), i);
        EXPECT_FALSE(in.AtTheEnd());
        EXPECT_EQ(in.Get(), static_cast<unsigned char>(bytes[i]));
      }
      EXPECT_TRUE(in.AtTheEnd());
      ExpectEnd(kind, in);
    }
  }
}

TEST_F(StreamContract, ReadersRepositionBothWaysAndReadBlocksAndValues) {
  for (const ReaderKind& kind : kReaders) {
    SCOPED_TRACE(kind.name);
    const auto reader = Open(kind, kSample);
    fs::IByteStream& in = *reader.stream;
    for (unsigned long long pos : {7, 2, 9, 0, 10, 5, 5, 1}) {
      in.CurPos(pos);
      EXPECT_EQ(in.CurPos(), pos);
      EXPECT_EQ(in.AtTheEnd(), pos == kSample.size()) << pos;
      if (pos < kSample.size()) {
        EXPECT_EQ(in.Get(), static_cast<unsigned char>(kSample[pos]));
      }
    }
    unsigned char block[4] = {};
    std::uint32_t value = 0;
    in.CurPos(2);
    in.ReadBlock(block, 4);
    in.ReadBlock(block, 0);
    in >> value;
    EXPECT_EQ(std::string(block, block + 4), "2345");
    EXPECT_EQ(value, 0x36373839u);
    EXPECT_EQ(in.CurPos(), 10u);
    EXPECT_TRUE(in.AtTheEnd());
  }
}

TEST_F(StreamContract, ReadersPastTheEndAreNotAtTheEndButReadNothing) {
  for (const ReaderKind& kind : kReaders) {
    SCOPED_TRACE(kind.name);
    const auto reader = Open(kind, kSample);
    fs::IByteStream& in = *reader.stream;
    if (!kind.beyondEnd) continue;  // the position is the standard stream's
    // AtTheEnd tests equality with the length.
    in.CurPos(100);
    EXPECT_EQ(in.CurPos(), 100u);
    EXPECT_FALSE(in.AtTheEnd());
    ExpectEnd(kind, in);
    in.CurPos(3);
    EXPECT_EQ(in.Get(), '3') << "coming back works";
  }
}

TEST_F(StreamContract, WritersWriteBytesBlocksAndValuesInOrder) {
  const std::string expected("\x3E\x01\x02\x03\x04\0\0\0\0\0\0\0\x02xy\0\xAA\xBB", 18);
  for (const WriterKind& kind : kWriters) {
    SCOPED_TRACE(kind.name);
    const Writer writer = Open(kind);
    fs::OByteStream& out = *writer.stream;
    EXPECT_EQ(out.CurPos(), 0u);
    out.Put('>');
    const unsigned char block[] = {0xAA, 0xBB};
    out.WriteBlock(block, 0);
    EXPECT_EQ(out.CurPos(), 1u);
    out << std::int32_t{0x01020304} << std::string("xy") << false;
    out.WriteBlock(block, 2);
    EXPECT_EQ(out.CurPos(), expected.size());
    EXPECT_EQ(writer.contents(), expected);
  }
}

TEST_F(StreamContract, WritersOverwriteAtASetPositionOrIgnoreIt) {
  for (const WriterKind& kind : kWriters) {
    SCOPED_TRACE(kind.name);
    const Writer writer = Open(kind);
    fs::OByteStream& out = *writer.stream;
    out.WriteBlock(Bytes("abcdef"), 6);
    out.CurPos(2);
    out.Put('X');
    if (kind.seeks) {
      EXPECT_EQ(out.CurPos(), 3u);
      out.CurPos(6);
      out.Put('!');
      EXPECT_EQ(writer.contents(), "abXdef!");
    } else {
      EXPECT_EQ(out.CurPos(), 7u);
      EXPECT_EQ(writer.contents(), "abcdefX");
    }
  }
}

}  // namespace
