// Buffered streams: where the read window lands and what it asks of the inner
// stream, when the write window goes out, and random work on a file compared
// with a model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/CompletedStream.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::Bytes;
using tvxtest::Log;
using tvxtest::RecordingSink;

namespace {

// Byte i of every test source.
unsigned char Pattern(unsigned long long i) {
  return static_cast<unsigned char>((i * 7 + i / 251) & 0xFF);
}
std::vector<unsigned char> PatternAt(unsigned long long pos, std::size_t count) {
  std::vector<unsigned char> bytes(count);
  for (auto& byte : bytes) byte = Pattern(pos++);
  return bytes;
}

// A reading stream over a pattern of `length` bytes that records every call
// the wrapper makes, and can be told to fail one of its next calls: a failing
// seek moves nothing, a failing block read delivers the first half of its
// bytes before the io_error, as a read that breaks off part way does.
class RecordingSource : public IByteStream {
 public:
  explicit RecordingSource(unsigned long long length) : length_(length) {}
  unsigned char Get() override {
    log("G");
    if (pos_ >= length_) throw eof_error();
    return Pattern(pos_++);
  }
  void ReadBlock(unsigned char* dst, std::uint32_t count) override {
    log("R" + std::to_string(count));
    const bool fail = FailsNow();
    const std::uint32_t deliver = fail ? count / 2 : count;
    if (pos_ + deliver > length_) throw eof_error();
    for (std::uint32_t i = 0; i < deliver; ++i) dst[i] = Pattern(pos_++);
    if (fail) throw io_error();
  }
  void CurPos(unsigned long long pos) override {
    log("@" + std::to_string(pos));
    if (FailsNow()) throw io_error();
    pos_ = pos;
  }
  unsigned long long CurPos() const override { return pos_; }
  unsigned long long Length() const override { return length_; }

  Log log;
  // Counts down over seeks and block reads; the call that brings it from 1 to
  // 0 fails. 0 means no failure.
  int failAtCall = 0;

 private:
  bool FailsNow() { return failAtCall > 0 && --failAtCall == 0; }

  unsigned long long length_;
  unsigned long long pos_ = 0;
};

}  // namespace

TEST(BufferedReading, WindowAlignsToBlocksAndKeepsOneBlockOfHistory) {
  // Each row: reads on a fresh stream of 100000 bytes, buffer 4096 and block
  // 1024 unless given; the calls of the last read. A read is a Get, or a
  // block of `count` bytes.
  struct Read {
    unsigned long long pos;
    int count = -1;
  };
  struct Row {
    const char* what;
    std::vector<Read> reads;
    std::string calls;
    std::uint32_t bufferSize = 4096, blockSize = 1024;
  };
  const Row rows[] = {
      {"5000: down to 4096, keeps the block before", {{5000}}, "@3072 R4096"},
      {"1024: not beyond the first block, no history", {{1024}}, "@1024 R4096"},
      {"2048 keeps the first block", {{2048}}, "@1024 R4096"},
      {"a step back into the history costs nothing", {{5000}, {3072}}, ""},
      {"a step forward inside the window costs nothing", {{5000}, {7167}}, ""},
      {"forward, overlapping: only behind the kept bytes", {{0}, {4100}}, "@4096 R3072"},
      {"backward, overlapping: only the gap", {{5000}, {2100}}, "@1024 R2048"},
      {"backward, no overlap: the whole window", {{20000}, {100}}, "@0 R4096"},
      {"forward, no overlap: the whole window", {{0}, {9000}}, "@7168 R4096"},
      {"near the end the window holds what is left", {{99999}}, "@98304 R1696"},
      {"a block of buffer less block goes through the window", {{10, 3072}}, "@0 R4096"},
      {"one byte more bypasses it", {{10, 3072}, {500, 3073}}, "@500 R3073"},
      {"the window survives a bypass", {{10, 3072}, {500, 3073}, {4095}}, ""},
      {"a read of nothing asks nothing", {{4095}, {4096, 0}}, ""},
      {"a window of one block: every block read bypasses it",
       {{3000}, {3001, 1}},
       "@3001 R1",
       1024,
       1024},
  };
  for (const Row& row : rows) {
    RecordingSource source(100000);
    IBufferedByteStream in(source, row.bufferSize, row.blockSize);
    for (const Read& read : row.reads) {
      source.log.calls.clear();
      in.CurPos(read.pos);
      if (read.count < 0) {
        ASSERT_EQ(in.Get(), Pattern(read.pos)) << row.what;
      } else {
        std::vector<unsigned char> got(read.count);
        in.ReadBlock(got.data(), read.count);
        EXPECT_EQ(got, PatternAt(read.pos, read.count)) << row.what;
      }
      EXPECT_EQ(in.CurPos(), read.pos + (read.count < 0 ? 1 : read.count)) << row.what;
    }
    EXPECT_EQ(source.log.calls, row.calls) << row.what;
  }
}

TEST(BufferedReading, EndOfStreamAndBadSizes) {
  RecordingSource source(5000);
  IBufferedByteStream in(source, 4096, 1024);
  in.CurPos(5000);
  EXPECT_THROW(in.Get(), eof_error);
  EXPECT_THROW(in.CurPos(5001), eof_error);
  EXPECT_EQ(in.CurPos(), 5000u) << "neither moved";
  EXPECT_TRUE(source.log.calls.empty());  // none of that asked the inner stream

  // The window can't hold less than one block.
  EXPECT_THROW(IBufferedByteStream(source, 4096, 0), std::invalid_argument);
  EXPECT_THROW(IBufferedByteStream(source, 1000, 1024), std::invalid_argument);
}

TEST(BufferedReading, FailedFillPassesTheErrorAndServesNoMisplacedByte) {
  // Each row: a window is set up by a Get at the first position, then a Get at
  // the second fails in the inner stream at its first call (the seek) or its
  // second (the block read, which breaks off half way); the position stays.
  // Afterwards a Get at the third position, then every byte around the first
  // two, read right.
  const unsigned long long rows[][3] = {
      {0, 4100, 0},         // forward, overlapping
      {5000, 2100, 5000},   // backward, overlapping
      {5000, 2100, 904},    // then backward again from the emptied window
      {20000, 100, 20000},  // backward, no overlap
      {0, 9000, 0},         // forward, no overlap
  };
  for (const auto& row : rows) {
    for (const int failAt : {1, 2}) {
      const std::string what = std::to_string(row[0]) + " then " + std::to_string(row[1]) +
                               (failAt == 1 ? ", seek fails" : ", read fails") + ", then " +
                               std::to_string(row[2]);
      RecordingSource source(100000);
      IBufferedByteStream in(source, 4096, 1024);
      in.CurPos(row[0]);
      in.Get();
      source.failAtCall = failAt;
      in.CurPos(row[1]);
      EXPECT_THROW(in.Get(), io_error) << what;
      EXPECT_EQ(in.CurPos(), row[1]) << what;
      in.CurPos(row[2]);
      ASSERT_EQ(in.Get(), Pattern(row[2])) << what;
      std::vector<unsigned char> block(100);
      for (const auto start : {row[0], row[1]}) {
        const unsigned long long from = start < 4096 ? 0 : start - 4096;
        for (unsigned long long pos = from; pos < start + 4096; pos += 61) {
          in.CurPos(pos);
          ASSERT_EQ(in.Get(), Pattern(pos)) << what << ", at " << pos;
        }
        in.CurPos(start);
        in.ReadBlock(block.data(), 100);
        EXPECT_EQ(block, PatternAt(start, 100)) << what;
      }
    }
  }
}

namespace {

// Runs a script of words on a writer: "Pxy" puts x then y, "Wxy" writes the
// block "xy", "@n" seeks, "F" flushes, "O" is OSFlush, "Tn" truncates and "=n"
// expects the position.
void RunScript(OBufferedByteStream& out, const std::string& script) {
  std::istringstream words(script);
  for (std::string word; words >> word;) {
    const std::string arg = word.substr(1);
    const char op = word[0];
    if (op == 'P')
      for (char c : arg) out.Put(static_cast<unsigned char>(c));
    if (op == 'W') out.WriteBlock(Bytes(arg), static_cast<std::uint32_t>(arg.size()));
    if (op == '@') out.CurPos(std::stoull(arg));
    if (op == 'F') out.Flush();
    if (op == 'O') out.OSFlush();
    if (op == 'T') out.Truncate(std::stoull(arg));
    if (op == '=') {
      EXPECT_EQ(out.CurPos(), std::stoull(arg)) << script;
    }
  }
}

}  // namespace

TEST(BufferedWriting, WindowGoesOutInOneBlockFromItsStart) {
  struct Row {
    const char* what;
    const char* script;
    const char* calls;
    std::uint32_t bufferSize = 8, blockSize = 4;
  };
  const Row rows[] = {
      {"rewriting in the window", "Pabc @1 Px F", "@0 Waxc"},
      {"a block over the window size flushes, then goes straight through", "Pab W0123456789",
       "@0 Wab @2 W0123456789"},
      {"a seek to the window's end costs nothing", "Wabc @0 @3 Pd F", "@0 Wabcd"},
      {"a seek outside the window writes it first", "@100 Wabc @104 Pe @99 Pz F",
       "@100 Wabc @104 We @99 Wz"},
      {"a full window goes out before the next byte", "W12345678 P9 Wabcdefgh F",
       "@0 W12345678 @8 W9 @9 Wabcdefgh"},
      {"an empty window and a second Flush write nothing", "F Pq F F", "@0 Wq"},
      {"OSFlush and Truncate write the window first; the position stays", "Wabcd O Pe T2 =5",
       "@0 Wabcd O @4 We T2"},
      {"the destructor writes what is left", "Wtail", "@0 Wtail"},
      {"a zero-sized window writes each byte on its own", "Pab Wcd W", "@0 Wa @1 Wb @2 Wcd", 0, 0},
  };
  for (const Row& row : rows) {
    RecordingSink sink;
    {
      OBufferedByteStream out(sink, row.bufferSize, row.blockSize);
      RunScript(out, row.script);
    }
    EXPECT_EQ(sink.log.calls, row.calls) << row.what;
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
  EXPECT_EQ(sink.log.calls, "@0 @0");
}

class BufferedFiles : public tvxtest::TempDirTest {};

// Random writes with seeks, flushes and blocks go into a file through the
// writer and into a model; random reads through the reader on that file then
// meet a plain memory stream over the model.
TEST_F(BufferedFiles, RandomWorkMatchesAModelAndAPlainMemoryStream) {
  std::mt19937 random(20261121);
  auto pick = [&](unsigned long long low, unsigned long long high) {
    return std::uniform_int_distribution<unsigned long long>(low, high)(random);
  };
  const std::size_t kLength = 50000;
  const std::uint32_t sizes[][2] = {{4096, 1024}, {4096, 4096}, {1000, 1}, {64, 16}, {8192, 3000}};
  for (const auto& [bufferSize, blockSize] : sizes) {
    SCOPED_TRACE(std::to_string(bufferSize) + "/" + std::to_string(blockSize));
    Write("random.bin", std::string(kLength, '\0'));
    const File file(Path("random.bin"));
    std::vector<unsigned char> model(kLength, 0);
    {
      OPlatformByteStream raw(file, kPlatformStreamDefault);
      OBufferedByteStream out(raw, bufferSize, blockSize);
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
          const auto most =
              std::min<unsigned long long>(kLength - pos, op == 9 ? 3 * bufferSize : 100);
          std::vector<unsigned char> block(pick(0, most));
          for (auto& byte : block) byte = static_cast<unsigned char>(random());
          out.WriteBlock(block.data(), static_cast<std::uint32_t>(block.size()));
          std::copy(block.begin(), block.end(), model.begin() + static_cast<std::ptrdiff_t>(pos));
          pos += block.size();
        }
        ASSERT_EQ(out.CurPos(), pos);
      }
    }

    IBufferByteStream plainIn(model.data(), kLength);
    IPlatformByteStream raw(file, kPlatformStreamDefault);
    IBufferedByteStream in(raw, bufferSize, blockSize);
    ASSERT_EQ(in.Length(), kLength);
    std::vector<unsigned char> got, want;
    for (int step = 0; step < 3000; ++step) {
      const auto pos = pick(0, kLength - 1);
      in.CurPos(pos);
      plainIn.CurPos(pos);
      const auto most =
          step % 16 == 0 ? kLength - pos : std::min<unsigned long long>(kLength - pos, 64);
      const auto count = static_cast<std::uint32_t>(pick(0, most));
      got.assign(count, 0);
      want.assign(count, 0);
      if (step % 2 == 0) {
        in.ReadBlock(got.data(), count);
        plainIn.ReadBlock(want.data(), count);
      } else {
        for (auto& byte : got) byte = in.Get();
        for (auto& byte : want) byte = plainIn.Get();
      }
      ASSERT_EQ(got, want) << "step " << step;
      ASSERT_EQ(in.CurPos(), plainIn.CurPos());
      ASSERT_EQ(in.AtTheEnd(), plainIn.AtTheEnd());
    }
    in.CurPos(kLength);
    EXPECT_THROW(in.Get(), eof_error);
  }
}
