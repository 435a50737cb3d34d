// Buffered streams: where the read window lands and what it asks of the inner
// stream, when the write window goes out, and random work compared with plain
// memory streams and with files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "filesupport/TempDirFixture.h"
#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;

namespace {

// Byte i of every test source.
unsigned char Pattern(unsigned long long i) {
  return static_cast<unsigned char>((i * 7 + i / 251) & 0xFF);
}

// A reading stream over a pattern of `length` bytes that records every call
// the wrapper makes, and can be told to fail its next block read.
class RecordingSource : public IByteStream {
 public:
  explicit RecordingSource(unsigned long long length) : length_(length) {}

  unsigned char Get() override {
    log.push_back("Get");
    if (pos_ >= length_) throw eof_error();
    return Pattern(pos_++);
  }
  void ReadBlock(unsigned char* dst, std::uint32_t count) override {
    log.push_back("ReadBlock(" + std::to_string(count) + ")");
    if (failNextRead) {
      failNextRead = false;
      throw io_error();
    }
    if (pos_ + count > length_) throw eof_error();
    for (std::uint32_t i = 0; i < count; ++i) dst[i] = Pattern(pos_++);
  }
  void CurPos(unsigned long long pos) override {
    log.push_back("CurPos(" + std::to_string(pos) + ")");
    pos_ = pos;
  }
  unsigned long long CurPos() const override { return pos_; }
  unsigned long long Length() const override { return length_; }

  std::vector<std::string> log;
  bool failNextRead = false;

 private:
  unsigned long long length_;
  unsigned long long pos_ = 0;
};

// A writing stream that records every call and what each block held.
class RecordingSink : public OByteStream {
 public:
  void Put(unsigned char byte) override {
    log.push_back("Put(" + std::string(1, char(byte)) + ")");
  }
  void WriteBlock(const unsigned char* src, std::uint32_t count) override {
    if (failWrites) throw io_error();
    log.push_back("WriteBlock(" + std::string(src, src + count) + ")");
  }
  void CurPos(unsigned long long pos) override {
    log.push_back("CurPos(" + std::to_string(pos) + ")");
  }
  unsigned long long CurPos() const override { return 0; }
  void OSFlush() override { log.push_back("OSFlush"); }
  void Truncate(unsigned long long length) override {
    log.push_back("Truncate(" + std::to_string(length) + ")");
  }

  std::vector<std::string> log;
  bool failWrites = false;
};

using Log = std::vector<std::string>;

// A fixed block of memory to write into; flushing and truncating do nothing.
class MemorySink : public OBufferByteStream {
 public:
  using OBufferByteStream::OBufferByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

TEST(BufferedReading, WindowAlignsToBlocksAndKeepsOneBlockOfHistory) {
  // Each row: Get at the given positions in order on a fresh stream of
  // 100000 bytes, buffer 4096, block 1024; the calls of the last Get.
  struct Row {
    const char* what;
    std::vector<unsigned long long> gets;
    Log calls;
  };
  const Row rows[] = {
      {"5000 rounds down to 4096 and keeps the block before",
       {5000},
       {"CurPos(3072)", "ReadBlock(4096)"}},
      {"1024 is not beyond the first block: no history",
       {1024},
       {"CurPos(1024)", "ReadBlock(4096)"}},
      {"2048 keeps the first block", {2048}, {"CurPos(1024)", "ReadBlock(4096)"}},
      {"a step back into the history costs nothing", {5000, 3072}, {}},
      {"a step forward inside the window costs nothing", {5000, 7167}, {}},
      {"forward with overlap reads only behind the kept bytes",
       {0, 4100},
       {"CurPos(4096)", "ReadBlock(3072)"}},
      {"backward with overlap reads only the gap",
       {5000, 2100},
       {"CurPos(1024)", "ReadBlock(2048)"}},
      {"backward without overlap reads the whole window",
       {20000, 100},
       {"CurPos(0)", "ReadBlock(4096)"}},
      {"forward without overlap reads the whole window",
       {0, 9000},
       {"CurPos(7168)", "ReadBlock(4096)"}},
      {"near the end the window holds what is left", {99999}, {"CurPos(98304)", "ReadBlock(1696)"}},
  };
  for (const Row& row : rows) {
    RecordingSource source(100000);
    IBufferedByteStream in(source, 4096, 1024);
    for (const auto pos : row.gets) {
      source.log.clear();
      in.CurPos(pos);
      EXPECT_EQ(in.Get(), Pattern(pos)) << row.what;
      EXPECT_EQ(in.CurPos(), pos + 1) << row.what;
    }
    EXPECT_EQ(source.log, row.calls) << row.what;
  }
}

TEST(BufferedReading, BlocksUpToBufferLessBlockGoThroughTheWindowLongerOnesBypassIt) {
  RecordingSource source(100000);
  IBufferedByteStream in(source, 4096, 1024);
  std::vector<unsigned char> got(3073);

  // Exactly bufferSize - blockSize: filled into the window.
  in.CurPos(10);
  in.ReadBlock(got.data(), 3072);
  EXPECT_EQ(source.log, (Log{"CurPos(0)", "ReadBlock(4096)"}));
  for (std::size_t i = 0; i < 3072; ++i) ASSERT_EQ(got[i], Pattern(10 + i)) << i;
  EXPECT_EQ(in.CurPos(), 3082u);

  // One byte more: straight from the inner stream at the wrapper's position.
  source.log.clear();
  in.CurPos(500);
  in.ReadBlock(got.data(), 3073);
  EXPECT_EQ(source.log, (Log{"CurPos(500)", "ReadBlock(3073)"}));
  for (std::size_t i = 0; i < 3073; ++i) ASSERT_EQ(got[i], Pattern(500 + i)) << i;
  EXPECT_EQ(in.CurPos(), 3573u);

  // The window survived the bypass and still answers without a call.
  source.log.clear();
  in.CurPos(4095);
  EXPECT_EQ(in.Get(), Pattern(4095));
  in.ReadBlock(got.data(), 0);
  EXPECT_TRUE(source.log.empty());
}

TEST(BufferedReading, EndOfStreamAndBadSizes) {
  RecordingSource source(5000);
  IBufferedByteStream in(source, 4096, 1024);
  EXPECT_EQ(in.Length(), 5000u);
  in.CurPos(5000);
  EXPECT_TRUE(in.AtTheEnd());
  EXPECT_THROW(in.Get(), eof_error);
  EXPECT_EQ(in.CurPos(), 5000u);
  EXPECT_THROW(in.CurPos(5001), eof_error);
  EXPECT_EQ(in.CurPos(), 5000u);
  EXPECT_TRUE(source.log.empty());  // none of that asked the inner stream

  // The window can't hold less than one block.
  EXPECT_THROW(IBufferedByteStream(source, 4096, 0), std::invalid_argument);
  EXPECT_THROW(IBufferedByteStream(source, 1000, 1024), std::invalid_argument);
  EXPECT_THROW(IBufferedByteStream(source, 0, 0), std::invalid_argument);

  // A window the size of one block works: every block read bypasses it.
  IBufferedByteStream tight(source, 1024, 1024);
  tight.CurPos(3000);
  EXPECT_EQ(tight.Get(), Pattern(3000));
  unsigned char byte = 0;
  source.log.clear();
  tight.ReadBlock(&byte, 1);
  EXPECT_EQ(source.log, (Log{"CurPos(3001)", "ReadBlock(1)"}));
  EXPECT_EQ(byte, Pattern(3001));
}

TEST(BufferedReading, FailedFillPassesTheErrorAndServesNoMisplacedByte) {
  // Each row: a window is set up by a Get, then a Get elsewhere fails in the
  // inner stream; afterwards every byte still reads right.
  const unsigned long long rows[][2] = {{0, 4100}, {5000, 2100}, {20000, 100}};
  for (const auto& row : rows) {
    RecordingSource source(100000);
    IBufferedByteStream in(source, 4096, 1024);
    in.CurPos(row[0]);
    in.Get();
    source.failNextRead = true;
    in.CurPos(row[1]);
    EXPECT_THROW(in.Get(), io_error) << row[1];
    for (const auto pos : {row[0], row[1], row[0] + 1000, row[1] + 1000}) {
      in.CurPos(pos);
      EXPECT_EQ(in.Get(), Pattern(pos)) << row[0] << " then " << row[1] << ", at " << pos;
    }
  }
}

TEST(BufferedWriting, WindowGoesOutInOneBlockFromItsStart) {
  struct Row {
    const char* what;
    void (*work)(OBufferedByteStream&);
    Log calls;
  };
  const Row rows[] = {
      {"a byte rewritten in the window replaces it in memory",
       [](OBufferedByteStream& out) {
         out.Put('a');
         out.Put('b');
         out.Put('c');
         out.CurPos(1);
         out.Put('x');
         out.Flush();
       },
       {"CurPos(0)", "WriteBlock(axc)"}},
      {"a block larger than the window flushes, then goes straight through",
       [](OBufferedByteStream& out) {
         out.Put('a');
         out.Put('b');
         out.WriteBlock(Bytes("0123456789"), 10);
       },
       {"CurPos(0)", "WriteBlock(ab)", "CurPos(2)", "WriteBlock(0123456789)"}},
      {"a seek to the window's very end costs nothing",
       [](OBufferedByteStream& out) {
         out.WriteBlock(Bytes("abc"), 3);
         out.CurPos(0);
         out.CurPos(3);
         out.Put('d');
         out.Flush();
       },
       {"CurPos(0)", "WriteBlock(abcd)"}},
      {"a seek outside the window writes it first",
       [](OBufferedByteStream& out) {
         out.CurPos(100);
         out.WriteBlock(Bytes("abc"), 3);
         out.CurPos(104);
         out.Put('e');
         out.CurPos(99);
         out.Put('z');
         out.Flush();
       },
       {"CurPos(100)", "WriteBlock(abc)", "CurPos(104)", "WriteBlock(e)", "CurPos(99)",
        "WriteBlock(z)"}},
      {"a full window goes out before the next byte",
       [](OBufferedByteStream& out) {
         out.WriteBlock(Bytes("12345678"), 8);
         out.Put('9');
         out.WriteBlock(Bytes("abcdefgh"), 8);
         out.Flush();
       },
       {"CurPos(0)", "WriteBlock(12345678)", "CurPos(8)", "WriteBlock(9)", "CurPos(9)",
        "WriteBlock(abcdefgh)"}},
      {"Flush of an empty window and a second Flush write nothing",
       [](OBufferedByteStream& out) {
         out.Flush();
         out.Put('q');
         out.Flush();
         out.Flush();
       },
       {"CurPos(0)", "WriteBlock(q)"}},
      {"OSFlush and Truncate write the window first; the position stays",
       [](OBufferedByteStream& out) {
         out.WriteBlock(Bytes("abcd"), 4);
         out.OSFlush();
         out.Put('e');
         out.Truncate(2);
         if (out.CurPos() != 5) throw std::logic_error("position moved");
       },
       {"CurPos(0)", "WriteBlock(abcd)", "OSFlush", "CurPos(4)", "WriteBlock(e)", "Truncate(2)"}},
      {"the destructor writes what is left",
       [](OBufferedByteStream& out) { out.WriteBlock(Bytes("tail"), 4); },
       {"CurPos(0)", "WriteBlock(tail)"}},
  };
  for (const Row& row : rows) {
    RecordingSink sink;
    {
      OBufferedByteStream out(sink, 8, 4);
      row.work(out);
    }
    EXPECT_EQ(sink.log, row.calls) << row.what;
  }
}

TEST(BufferedWriting, DestructorSwallowsAFailedLastWriteButFlushReportsIt) {
  RecordingSink sink;
  {
    OBufferedByteStream out(sink, 8, 4);
    out.Put('a');
    sink.failWrites = true;
    EXPECT_THROW(out.Flush(), io_error);
    EXPECT_EQ(out.CurPos(), 1u);
  }  // tries again and loses the error
  EXPECT_EQ(sink.log, (Log{"CurPos(0)", "CurPos(0)"}));
}

TEST(BufferedWriting, ZeroSizedWindowWritesEachByteOnItsOwn) {
  RecordingSink sink;
  {
    OBufferedByteStream out(sink, 0, 0);
    out.Put('a');
    out.Put('b');
    out.WriteBlock(Bytes("cd"), 2);
    out.WriteBlock(Bytes(""), 0);
  }
  EXPECT_EQ(sink.log, (Log{"CurPos(0)", "WriteBlock(a)", "CurPos(1)", "WriteBlock(b)", "CurPos(2)",
                           "WriteBlock(cd)"}));
}

TEST(BufferedStreams, RandomWorkMatchesPlainMemoryStreams) {
  std::mt19937 random(20261121);
  auto pick = [&](unsigned long long low, unsigned long long high) {
    return std::uniform_int_distribution<unsigned long long>(low, high)(random);
  };
  const std::uint32_t sizes[][2] = {{4096, 1024}, {4096, 4096}, {1000, 1}, {64, 16}, {8192, 3000}};
  const std::size_t kLength = 50000;

  std::vector<unsigned char> source(kLength);
  for (auto& byte : source) byte = static_cast<unsigned char>(random());

  for (const auto& size : sizes) {
    const std::uint32_t bufferSize = size[0], blockSize = size[1];
    // Reading: the wrapper against a direct memory stream, from random places.
    IBufferByteStream plainIn(source.data(), kLength), innerIn(source.data(), kLength);
    IBufferedByteStream in(innerIn, bufferSize, blockSize);
    std::vector<unsigned char> got, want;
    for (int step = 0; step < 3000; ++step) {
      const auto pos = pick(0, kLength - 1);
      in.CurPos(pos);
      plainIn.CurPos(pos);
      const auto small = std::min<unsigned long long>(kLength - pos, 64);
      const auto count =
          static_cast<std::uint32_t>(step % 16 == 0 ? pick(0, kLength - pos) : pick(0, small));
      got.assign(count, 0);
      want.assign(count, 0);
      if (step % 2 == 0) {
        in.ReadBlock(got.data(), count);
        plainIn.ReadBlock(want.data(), count);
      } else {
        for (std::uint32_t i = 0; i < count; ++i) got[i] = in.Get();
        for (std::uint32_t i = 0; i < count; ++i) want[i] = plainIn.Get();
      }
      ASSERT_EQ(got, want) << bufferSize << "/" << blockSize << " step " << step;
      ASSERT_EQ(in.CurPos(), plainIn.CurPos());
      ASSERT_EQ(in.AtTheEnd(), plainIn.AtTheEnd());
    }

    // Writing: the wrapper against a model, with seeks, flushes and blocks.
    std::vector<unsigned char> written(kLength, 0), model(kLength, 0);
    MemorySink innerOut(written.data(), kLength);
    {
      OBufferedByteStream out(innerOut, bufferSize, blockSize);
      unsigned long long pos = 0;
      for (int step = 0; step < 3000; ++step) {
        const auto op = pick(0, 9);
        if (op == 0) {
          pos = pick(0, kLength - 1);
          out.CurPos(pos);
        } else if (op == 1) {
          out.Flush();
        } else if (op < 6) {
          const auto byte = static_cast<unsigned char>(random());
          if (pos >= kLength) continue;
          out.Put(byte);
          model[pos++] = byte;
        } else {
          const auto room = kLength - pos;
          const auto count = static_cast<std::uint32_t>(
              op == 9 ? pick(0, std::min<unsigned long long>(room, 3 * bufferSize))
                      : pick(0, std::min<unsigned long long>(room, 100)));
          std::vector<unsigned char> block(count);
          for (auto& byte : block) byte = static_cast<unsigned char>(random());
          out.WriteBlock(block.data(), count);
          std::copy(block.begin(), block.end(), model.begin() + static_cast<std::ptrdiff_t>(pos));
          pos += count;
        }
        ASSERT_EQ(out.CurPos(), pos);
      }
    }
    EXPECT_EQ(written, model) << bufferSize << "/" << blockSize;
  }
}

class BufferedFiles : public tvxtest::TempDirTest {};

TEST_F(BufferedFiles, ValuesAndBlocksRoundTripThroughAFile) {
  const std::uint32_t sizes[][2] = {{65536, 4096}, {4096, 1024}, {16, 4}};
  std::mt19937 random(7);
  for (const auto& size : sizes) {
    Write("values.bin", "");
    const File file(Path("values.bin"));
    std::vector<std::uint32_t> numbers(20000);
    for (auto& n : numbers) n = static_cast<std::uint32_t>(random());
    std::vector<unsigned char> block(100000);
    for (auto& b : block) b = static_cast<unsigned char>(random());
    {
      OPlatformByteStream raw(file, kPlatformStreamDefault);
      OBufferedByteStream out(raw, size[0], size[1]);
      for (const auto n : numbers) out << n;
      out << std::string("middle");
      out.WriteBlock(block.data(), static_cast<std::uint32_t>(block.size()));
      out << 1.5 << UTF16String(u"end");
      out.Flush();
      EXPECT_EQ(raw.Length(), numbers.size() * 4 + 14 + block.size() + 11 + 14);
    }
    IPlatformByteStream raw(file, kPlatformStreamDefault);
    IBufferedByteStream in(raw, size[0], size[1]);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      std::uint32_t n = 0;
      in >> n;
      ASSERT_EQ(n, numbers[i]) << i;
    }
    std::string middle;
    in >> middle;
    EXPECT_EQ(middle, "middle");
    std::vector<unsigned char> back(block.size());
    in.ReadBlock(back.data(), static_cast<std::uint32_t>(back.size()));
    EXPECT_EQ(back, block);
    double value = 0;
    UTF16String end;
    in >> value >> end;
    EXPECT_EQ(value, 1.5);
    EXPECT_EQ(end, UTF16String(u"end"));
    EXPECT_TRUE(in.AtTheEnd());
    EXPECT_THROW(in.Get(), eof_error);
  }
}
