// The stream bases, their client slots and exceptions, and the contract every
// reading and every writing stream keeps: bytes in order, positions, lengths
// and the end, run over each kind of stream.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "support/CompletedStream.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/CRCByteStream.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

// A writer with nothing but Put().
class RecordingSink : public fs::OByteStream {
 public:
  void Put(unsigned char byte) override { bytes += static_cast<char>(byte); }
  void CurPos(unsigned long long) override {}
  unsigned long long CurPos() const override { return bytes.size(); }
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
  std::string bytes;
};

using tvxtest::Bytes;
using tvxtest::Completed;
using tvxtest::UnknownLengthSource;

tvxcore::UTF16String FileWith(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  return tvxtest::U(path.string());
}

}  // namespace

TEST(ByteStreamBase, XallocHandsOutConsecutiveIndicesAndSlotsGrowWithZeroes) {
  const int first = fs::ByteStream_base::xalloc();
  EXPECT_GE(first, 0);
  EXPECT_EQ(fs::ByteStream_base::xalloc(), first + 1);
  EXPECT_EQ(fs::ByteStream_base::xalloc(), first + 2);

  std::string storage, other;
  fs::OStringByteStream stream(storage), second(other);
  EXPECT_EQ(stream.iword(5), 0);
  stream.iword(5) = 77;
  EXPECT_EQ(stream.iword(2), 0);
  stream.iword(2) = -3;
  EXPECT_EQ(stream.iword(5), 77);
  EXPECT_EQ(stream.iword(2), -3);

  int marker = 0;
  EXPECT_EQ(stream.pword(3), nullptr);
  stream.pword(3) = &marker;
  EXPECT_EQ(stream.pword(1), nullptr);
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
  EXPECT_EQ(sink.bytes, "\x01\x02\x03");
}

TEST(ByteStreamExceptions, CarryNoTextAndEofErrorIsNoIoError) {
  static_assert(std::is_base_of_v<fs::byte_stream_exception, fs::eof_error> &&
                std::is_base_of_v<fs::byte_stream_exception, fs::io_error> &&
                !std::is_base_of_v<fs::io_error, fs::eof_error> &&
                std::is_copy_assignable_v<fs::eof_error>);
  const std::string plain = std::exception().what();
  EXPECT_EQ(fs::byte_stream_exception().what(), plain);
  EXPECT_EQ(fs::eof_error().what(), plain);
  EXPECT_EQ(fs::io_error().what(), plain);
}

namespace {

// Each kind of reader, opened over given bytes. kEndByte is what Get() gives
// at the end, or kThrows for eof_error; kBeyondEnd whether a position past the
// end may be set, or kRefused for eof_error.
constexpr int kThrows = -1;
enum Beyond { kAllowed, kRefused, kUnknown };

struct StringReader {
  static constexpr const char* kName = "String";
  static constexpr int kEndByte = kThrows;
  static constexpr Beyond kBeyondEnd = kAllowed;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path&) {
    text = bytes;
    return stream.emplace(text);
  }
  std::string text;
  std::optional<fs::IStringByteStream> stream;
};

struct DequeReader {
  static constexpr const char* kName = "Deque";
  static constexpr int kEndByte = kThrows;
  static constexpr Beyond kBeyondEnd = kAllowed;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path&) {
    deque.assign(bytes.begin(), bytes.end());
    return stream.emplace(deque);
  }
  std::deque<unsigned char> deque;
  std::optional<fs::IDequeByteStream> stream;
};

struct BufferReader {
  static constexpr const char* kName = "Buffer";
  static constexpr int kEndByte = kThrows;
  static constexpr Beyond kBeyondEnd = kAllowed;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path&) {
    text = bytes;
    return stream.emplace(text.empty() ? nullptr : Bytes(text), text.size());
  }
  std::string text;
  std::optional<fs::IBufferByteStream> stream;
};

// A failed standard stream has no position: nothing is set past its end.
struct StdReader {
  static constexpr const char* kName = "Std";
  static constexpr int kEndByte = 0xFF;
  static constexpr Beyond kBeyondEnd = kUnknown;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path&) {
    standard.str(bytes);
    return stream.emplace(standard);
  }
  std::istringstream standard;
  std::optional<fs::IStdByteStream> stream;
};

struct FileReader {
  static constexpr const char* kName = "File";
  static constexpr int kEndByte = 0;
  static constexpr Beyond kBeyondEnd = kAllowed;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path& dir) {
    return stream.emplace(fs::File(FileWith(dir / "in.bin", bytes)), fs::kPlatformStreamDefault);
  }
  std::optional<fs::IPlatformByteStream> stream;
};

// Buffered over a file, with a window smaller than the sample.
struct BufferedFileReader {
  static constexpr const char* kName = "BufferedFile";
  static constexpr int kEndByte = kThrows;
  static constexpr Beyond kBeyondEnd = kRefused;
  fs::IByteStream& Open(const std::string& bytes, const std::filesystem::path& dir) {
    file.emplace(fs::File(FileWith(dir / "in.bin", bytes)), fs::kPlatformStreamDefault);
    return stream.emplace(*file, 4, 2);
  }
  std::optional<fs::IPlatformByteStream> file;
  std::optional<fs::IBufferedByteStream> stream;
};

struct KindName {
  template <typename Kind>
  static std::string GetName(int) {
    return Kind::kName;
  }
};

const std::string kSample = "0123456789";

template <typename Kind>
class ReaderContract : public tvxtest::TempDirTest {
 protected:
  fs::IByteStream& Open(const std::string& bytes) { return kind_.Open(bytes, root_); }
  // Get() at the end: eof_error without a move, or the kind's end byte.
  void ExpectEnd(fs::IByteStream& in, const std::string& where) {
    const unsigned long long pos = in.CurPos();
    if (Kind::kEndByte == kThrows) {
      EXPECT_THROW(in.Get(), fs::eof_error) << where;
      EXPECT_EQ(in.CurPos(), pos) << where << ": a failed Get does not move";
    } else {
      EXPECT_EQ(in.Get(), Kind::kEndByte) << where;
    }
  }
  Kind kind_;
};

using ReaderKinds = ::testing::Types<StringReader, DequeReader, BufferReader, StdReader, FileReader,
                                     BufferedFileReader>;
TYPED_TEST_SUITE(ReaderContract, ReaderKinds, KindName);

TYPED_TEST(ReaderContract, ReadsEveryByteInOrderToTheEnd) {
  for (const std::string& bytes : {std::string(), kSample}) {
    TypeParam kind;
    fs::IByteStream& in = kind.Open(bytes, this->root_);
    EXPECT_EQ(in.Length(), bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      EXPECT_EQ(in.CurPos(), i);
      EXPECT_FALSE(in.AtTheEnd());
      EXPECT_EQ(in.Get(), static_cast<unsigned char>(bytes[i]));
    }
    EXPECT_TRUE(in.AtTheEnd());
    this->ExpectEnd(in, "at the end of " + std::to_string(bytes.size()) + " bytes");
  }
}

TYPED_TEST(ReaderContract, RepositionsBothWaysAndReadsBlocksAndValues) {
  fs::IByteStream& in = this->Open(kSample);
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

TYPED_TEST(ReaderContract, PastTheEndIsNoEndButReadsNothing) {
  fs::IByteStream& in = this->Open(kSample);
  if (TypeParam::kBeyondEnd == kUnknown) GTEST_SKIP() << "the position is the standard stream's";
  if (TypeParam::kBeyondEnd == kRefused) {
    EXPECT_THROW(in.CurPos(100), fs::eof_error);
    EXPECT_EQ(in.CurPos(), 0u);
    return;
  }
  // AtTheEnd tests equality with the length.
  in.CurPos(100);
  EXPECT_EQ(in.CurPos(), 100u);
  EXPECT_FALSE(in.AtTheEnd());
  this->ExpectEnd(in, "beyond the end");
  in.CurPos(3);
  EXPECT_EQ(in.Get(), '3') << "coming back works";
}

// Each kind of writer, over storage that starts empty, with its bytes so far.
// kSeeks tells whether a position may be set; a writer that can't ignores it
// and appends.
struct StringWriter {
  static constexpr const char* kName = "String";
  static constexpr bool kSeeks = false;
  fs::OByteStream& Open(const std::filesystem::path&) { return stream.emplace(text); }
  std::string Contents() { return text; }
  std::string text;
  std::optional<fs::OStringByteStream> stream;
};

struct DequeWriter {
  static constexpr const char* kName = "Deque";
  static constexpr bool kSeeks = false;
  fs::OByteStream& Open(const std::filesystem::path&) { return stream.emplace(deque); }
  std::string Contents() { return std::string(deque.begin(), deque.end()); }
  std::deque<unsigned char> deque;
  std::optional<Completed<fs::ODequeByteStream>> stream;
};

struct BufferWriter {
  static constexpr const char* kName = "Buffer";
  static constexpr bool kSeeks = true;
  fs::OByteStream& Open(const std::filesystem::path&) {
    return stream.emplace(block, sizeof block);
  }
  std::string Contents() { return std::string(block, block + stream->Count()); }
  unsigned char block[64] = {};
  std::optional<Completed<fs::OBufferByteStream>> stream;
};

struct StdWriter {
  static constexpr const char* kName = "Std";
  static constexpr bool kSeeks = true;
  fs::OByteStream& Open(const std::filesystem::path&) { return stream.emplace(standard); }
  std::string Contents() { return standard.str(); }
  std::ostringstream standard;
  std::optional<Completed<fs::OStdByteStream>> stream;
};

struct FileWriter {
  static constexpr const char* kName = "File";
  static constexpr bool kSeeks = true;
  fs::OByteStream& Open(const std::filesystem::path& dir) {
    path = dir / "out.bin";
    return stream.emplace(fs::File(FileWith(path, "")), fs::kPlatformStreamDefault);
  }
  std::string Contents() {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::filesystem::path path;
  std::optional<fs::OPlatformByteStream> stream;
};

// Buffered over a file, with a window smaller than what is written.
struct BufferedFileWriter : FileWriter {
  static constexpr const char* kName = "BufferedFile";
  fs::OByteStream& Open(const std::filesystem::path& dir) {
    return buffered.emplace(FileWriter::Open(dir), 4, 2);
  }
  std::string Contents() {
    buffered->Flush();
    return FileWriter::Contents();
  }
  std::optional<fs::OBufferedByteStream> buffered;
};

// The CRC stream passes everything on to a fixed block.
struct CRCWriter : BufferWriter {
  static constexpr const char* kName = "CRC";
  fs::OByteStream& Open(const std::filesystem::path& dir) {
    return crc.emplace(BufferWriter::Open(dir));
  }
  std::optional<Completed<fs::OCRCByteStream>> crc;
};

template <typename Kind>
class WriterContract : public tvxtest::TempDirTest {
 protected:
  fs::OByteStream& Open() { return kind_.Open(root_); }
  Kind kind_;
};

using WriterKinds = ::testing::Types<StringWriter, DequeWriter, BufferWriter, StdWriter, FileWriter,
                                     BufferedFileWriter, CRCWriter>;
TYPED_TEST_SUITE(WriterContract, WriterKinds, KindName);

TYPED_TEST(WriterContract, WritesBytesBlocksAndValuesInOrder) {
  fs::OByteStream& out = this->Open();
  EXPECT_EQ(out.CurPos(), 0u);
  out.Put('>');
  const unsigned char block[] = {0xAA, 0xBB};
  out.WriteBlock(block, 0);
  EXPECT_EQ(out.CurPos(), 1u);
  out << std::int32_t{0x01020304} << std::string("xy") << false;
  out.WriteBlock(block, 2);
  const std::string expected("\x3E\x01\x02\x03\x04\0\0\0\0\0\0\0\x02xy\0\xAA\xBB", 18);
  EXPECT_EQ(out.CurPos(), expected.size());
  EXPECT_EQ(this->kind_.Contents(), expected);
}

TYPED_TEST(WriterContract, SetPositionIsOverwrittenOrIgnored) {
  fs::OByteStream& out = this->Open();
  const std::string text = "abcdef";
  out.WriteBlock(Bytes(text), 6);
  out.CurPos(2);
  out.Put('X');
  if (TypeParam::kSeeks) {
    EXPECT_EQ(out.CurPos(), 3u);
    out.CurPos(6);
    out.Put('!');
    EXPECT_EQ(this->kind_.Contents(), "abXdef!");
  } else {
    EXPECT_EQ(out.CurPos(), 7u);
    EXPECT_EQ(this->kind_.Contents(), "abcdefX");
  }
}

}  // namespace
